// The modes of the command; each is implemented in a file of its own. They return 0, or -1 after a
// message on standard error.
#ifndef SYLVORA_FRONTEND_MODES_H
#define SYLVORA_FRONTEND_MODES_H

#include <string>

#include "CheckIn.h"
#include "Communicator.h"

namespace sylvora::frontend {

// The settings of a run, and the configuration file that they were read from.
struct Command {
    CheckCfgCLS cfg;
    std::string fileCfg;
    Communicator* ranks = nullptr;  // that train together; null: one process

    // Whether this process writes the files of the run.
    bool IsWriter() const { return ranks == nullptr || ranks->Rank() == 0; }
};

// Checks and normalises the settings, trains on fileTrain and writes fileModel. If fileTest is set,
// loads the written model and prints its test metrics; if filePred is set too, writes the scores.
// Of several ranks, which all call it, rank 0 writes and prints.
[[nodiscard]] int Train(Command& command);

// Scores fileTest with fileModel into filePred and prints the metrics.
[[nodiscard]] int Predict(const Command& command);

// Writes the feature-analysis report: what each column contributes to the scores of fileTest.
[[nodiscard]] int Analyze(const Command& command);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_MODES_H
