// Scoring one row with the ensemble, tree by tree.
#include <algorithm>
#include <vector>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"

using sylvora::Fail;

namespace {

// Votes of this many classes are counted on the stack; for more, each thread keeps an array that
// its first call makes.
constexpr int kFewClasses = 4096;

double GroupMean(const std::vector<TreeCR*>& group, double* line) {
    double sum = 0.0;
    for (TreeCR* tree : group) sum += tree->Predict(line);
    return sum / static_cast<double>(group.size());
}

}  // namespace

int TreeLearner::OnlineTesting(double* line, double& result, int n, double* fullResult) {
    result = 0.0;
    if (TreeVV.empty() || TreeVV.size() != StepLengthV.size()) {
        return Fail("ERROR: Wrong tree size or shrink size!\n");
    }
    if (dimFea == 0) return Fail("ERROR: feature dimension in model is 0!\n");
    if (CfgInfo.fRegCls != "REG" && CfgInfo.fRegCls != "CLS") {
        return Fail("ERROR: Please config the task REG or CLS in cfg!\n");
    }
    if (std::max(dimFea, modelDim) > n)
        return Fail("ERROR: dimension of input line doesn't match the model!\n");
    if (!walkFault.empty()) return Fail("ERROR: Wrong model format!\n", walkFault, "\n");
    if (CfgInfo.fRegCls == "REG") {
        for (size_t g = 0; g < TreeVV.size(); ++g) {
            const double predGroup = GroupMean(TreeVV[g], line);
            result += StepLengthV[g] * predGroup;
            if (fullResult != nullptr) fullResult[g] = predGroup;
        }
        return 0;
    }
    if (numClass <= kFewClasses) {
        long long counts[kFewClasses];
        return VoteGroups(line, result, fullResult, counts);
    }
    return sylvora::Guarded([&] {
        static thread_local std::vector<long long> countV;
        if (countV.size() < static_cast<size_t>(numClass)) {
            countV.resize(static_cast<size_t>(numClass));
        }
        return VoteGroups(line, result, fullResult, countV.data());
    });
}

// Counts and the highest count are deliberately carried from group to group. With fullResult every
// tree votes; without it a group ends at an absolute majority, and the highest count then stays.
int TreeLearner::VoteGroups(double* line, double& result, double* fullResult,
                            long long* countV) const {
    std::fill_n(countV, std::max(numClass, 0), 0);
    long long highest = 0;
    double sum = 0.0;
    for (size_t g = 0; g < TreeVV.size(); ++g) {
        const std::vector<TreeCR*>& group = TreeVV[g];
        const double majority = static_cast<double>(group.size()) * 0.5;
        double winner = 0.0;
        for (size_t j = 0; j < group.size(); ++j) {
            const double pred = group[j]->Predict(line);
            const int cls = sylvora::Truncate<int>(pred);
            if (cls < 0 || cls >= numClass) {
                return Fail("ERROR: Class label ", pred, " of group ", g, ", tree ", j,
                            " is not one of the ", numClass, " classes!\n");
            }
            const long long count = ++countV[cls];
            if (fullResult == nullptr && static_cast<double>(count) > majority) {
                winner = pred;
                break;
            }
            if (count > highest) {
                winner = pred;
                highest = count;
            }
            if (fullResult != nullptr) fullResult[j] = pred;
        }
        sum += StepLengthV[g] * winner;
    }
    result = sum;
    return 0;
}
