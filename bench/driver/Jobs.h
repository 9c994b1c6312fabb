// The jobs of the driver; each says its figures on standard output (see Measure.h) and throws
// std::runtime_error when it cannot do its work. A figure that ends in _s has a twin in _cpu: the
// time of processors that it took.
#ifndef SYLVORA_BENCH_JOBS_H
#define SYLVORA_BENCH_JOBS_H

#include "Measure.h"

namespace sylvora::bench {

// data=RAW set=NAME size=N: writes a synthetic set.
void GenerateData(const Job& job);
// data=RAW text=FILE: writes the set as data lines.
void WriteLines(const Job& job);

// data=RAW config=CFG: trains as the configuration says and writes its model. Says
//   prepare_s  DataInput and ParamInit
//   first_s    from the start of Boosting to the end of the first round (tree of a forest)
//   rest_s     the other rounds together
//   rounds     how many there were
//   finish_s   from the last round to the end of Boosting: the model file
//   peak_bytes the most memory, less what the process held before it had the data
//   cells      of the data
//   misfit     on the training data: root mean square error, share of wrong classes, or share of
//              pairs of a query in wrong order
void Train(const Job& job);

// data=RAW model=FILE threads=N: batch_s per row of the whole set.
void ScoreBatch(const Job& job);
// data=RAW model=FILE: single_s per row, one call for each.
void ScoreSingle(const Job& job);
// model=FILE: load_s.
void LoadModel(const Job& job);
// text=FILE threads=N: read_s, until the rows are as the learner takes them.
void ReadLines(const Job& job);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_JOBS_H
