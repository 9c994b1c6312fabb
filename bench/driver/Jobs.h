// The jobs of the driver. Each prints its figures to standard output (see Measure.h) and throws
// std::runtime_error if it fails. Every figure in seconds, KEY_s, comes with KEY_cpu: the processor
// time, summed over all threads.
#ifndef SYLVORA_BENCH_JOBS_H
#define SYLVORA_BENCH_JOBS_H

#include "Measure.h"

namespace sylvora::bench {

// data=RAW set=NAME size=N: writes a synthetic set to the raw file.
void GenerateData(const Job& job);
// data=RAW rows=N columns=N: writes the set "continuous" with another number of columns.
void GenerateWideData(const Job& job);
// data=RAW text=FILE: writes the set of the raw file as data lines.
void WriteLines(const Job& job);

// data=RAW config=CFG: trains as the configuration says and writes the model. Prints
//   prepare_s  DataInput and ParamInit
//   first_s    from the start of Boosting to the end of the first round (tree of a forest)
//   rest_s     the other rounds together
//   rounds     the number of rounds (trees of a forest)
//   finish_s   from the end of the last round to the end of Boosting, which writes the model file
//   peak_bytes the peak memory minus that before the data were read
//   cells      rows times columns of the data
//   misfit     on the training data: root mean square error, share of wrong classes, or share of
//              pairs of a query in the wrong order
void Train(const Job& job);

// data=RAW config=CFG: trains on the floats of the raw file where they are. Prints fit_s, all of
// the training, peak_bytes without the data, and cells and misfit as Train does.
void Fit(const Job& job);

// data=RAW model=FILE threads=N: prints batch_s, per row, scoring the whole set in one call.
void ScoreBatch(const Job& job);
// The same on the floats of the raw file where they are.
void ScoreFloats(const Job& job);
// data=RAW model=FILE: prints single_s, per row, scoring each row in a call of its own.
void ScoreSingle(const Job& job);
// model=FILE: prints load_s.
void LoadModel(const Job& job);
// text=FILE threads=N: prints read_s, until the rows are in the form that the learner takes, and
// file_bytes.
void ReadLines(const Job& job);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_JOBS_H
