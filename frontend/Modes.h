// What the command can do, one file per mode. Each returns 0, or -1 after a message on standard
// error.
#ifndef SYLVORA_FRONTEND_MODES_H
#define SYLVORA_FRONTEND_MODES_H

#include <string>

#include "CheckIn.h"

namespace sylvora::frontend {

// What the command line says: the settings, and the file that they were read from.
struct Command {
    CheckCfgCLS cfg;
    std::string fileCfg;
};

// Checks and normalises the settings, trains on fileTrain and writes fileModel. With fileTest, the
// written model is loaded, its test metrics are printed and, with filePred, its scores written.
[[nodiscard]] int Train(Command& command);

// Scores fileTest with fileModel into filePred and prints the metrics.
[[nodiscard]] int Predict(const Command& command);

// Writes what each column contributes to the scores of fileTest.
[[nodiscard]] int Analyze(const Command& command);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_MODES_H
