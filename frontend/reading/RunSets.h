// The data sets of a training run.
#ifndef SYLVORA_FRONTEND_READING_RUNSETS_H
#define SYLVORA_FRONTEND_READING_RUNSETS_H

#include <vector>

#include "CheckIn.h"
#include "DataFile.h"
#include "DataSet.h"

namespace sylvora::frontend {

// The values of the parameter `type` of TreeLearner's functions.
enum SetType { kTraining = 0, kTest = 1, kDevelopment = 2 };

struct RunSet {
    DataFile file;
    SetType type;
    DataSet data;
};

// The sets that the settings name, not read yet; the training set is the first.
std::vector<RunSet> NameSets(const CheckCfgCLS& cfg);

// Reads all files. Every row of a run has the width of the widest row in any file. Returns 0, or -1
// after a message.
[[nodiscard]] int ReadSets(std::vector<RunSet>& setV, const CheckCfgCLS& cfg);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_RUNSETS_H
