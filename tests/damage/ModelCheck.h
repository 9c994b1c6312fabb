// Checks of a model file, damaged or not: the library must load what the oracle loads, give the
// same scores, and explain every refusal in one line.
#ifndef SYLVORA_TESTS_DAMAGE_MODELCHECK_H
#define SYLVORA_TESTS_DAMAGE_MODELCHECK_H

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "../InMemory.h"
#include "ModelOracle.h"
#include "TreeLearner.h"
#include "god/Report.h"

namespace sylvora::tests {

// Whether SYLVORA_DAMAGE asks for all byte values instead of a few.
inline bool IsThorough() {
    const char* wanted = std::getenv("SYLVORA_DAMAGE");
    return wanted != nullptr && std::strcmp(wanted, "all") == 0;
}

class ModelCheck {
  public:
    // Loads and scores the text. Returns a description of the first fault, or an empty string.
    std::string Run(const std::string& text) {
        ++numTried;
        const ModelOracle oracle(text);
        TreeLearner learner;
        const int status = learner.LoadModelFull(file.Fill(text));
        const std::string said = messages.Take();
        if ((status == 0) != oracle.Loads()) return Text("load: status ", status, ", ", said);
        if ((status == 0) != said.empty()) return Text("load: ", status, " with message ", said);
        ++(status == 0 ? numLoaded : numRefused);
        if (status != 0) return IsRefusal(said) ? "" : "load says: " + said;
        // Skips models with very many columns, whose rows would take much memory.
        return oracle.DimFea() <= kMostColumns ? CheckRows(learner, oracle) : "";
    }

    std::string Tally() const {
        return Text(numTried, " tried, ", numRefused, " refused, ", numLoaded, " loaded of which ",
                    numScored, " score");
    }

  private:
    static constexpr int kMostColumns = 2000;
    static constexpr size_t kNumRows = 24;  // enough for blocks of rows

    std::string CheckRows(TreeLearner& learner, const ModelOracle& oracle) {
        const size_t dim = static_cast<size_t>(oracle.DimFea());
        VecDle rowV = Rows(oracle, dim);
        VecDle batchV(kNumRows);
        const int status = learner.OnlineTestingBatch(rowV.data(), kNumRows, dim, batchV.data(), 1);
        const std::string said = messages.Take();
        if ((status == 0) != oracle.Scores()) return Text("batch: status ", status, ", ", said);
        if (status != 0 && !IsScoreRefusal(said)) return "batch says: " + said;
        numScored += status == 0 ? 1 : 0;
        VecDle fullV(learner.TreeVV.size() + static_cast<size_t>(learner.getTreeNum()));
        for (size_t r = 0; r < (status == 0 ? kNumRows : 1); ++r) {
            for (double* full : {fullV.data(), static_cast<double*>(nullptr)}) {
                double result = 7.0;
                const int single = learner.OnlineTesting(rowV.data() + r * dim, result,
                                                         static_cast<int>(dim), full);
                if (single != status || messages.Take() != said) return "one row: another verdict";
                if (status != 0) continue;
                const double expected = oracle.Score(rowV.data() + r * dim, full == nullptr);
                if (!IsSame(result, expected)) return Text("row ", r, ": ", result, ", ", expected);
                if (full != nullptr && !IsSame(batchV[r], expected)) return Text("batch row ", r);
            }
        }
        return dim > 0 && oracle.HasGroups() ? CheckAnalysis(learner, rowV, dim, status) : "";
    }

    std::string CheckAnalysis(TreeLearner& learner, const VecDle& rowV, size_t dim, int expected) {
        VecVecDle rowVV;
        for (size_t r = 0; r < 3; ++r) {
            const double* row = rowV.data() + r * dim;
            rowVV.emplace_back(row, row + dim);
        }
        if (learner.DataInput({0, 1, 2}, std::move(rowVV), 1, {}, {}) != 0) return "no test data";
        const int status = learner.FeatureAnalysis("/dev/null");
        const std::string said = messages.Take();
        if (status != expected) return Text("analysis: status ", status, ", ", said);
        return status == 0 || IsScoreRefusal(said) ? "" : "analysis says: " + said;
    }

    // Rows of missing values, NaN, thresholds and the doubles next to them.
    static VecDle Rows(const ModelOracle& oracle, size_t dim) {
        VecDle choiceV = {0.0, -2147483648.0, std::numeric_limits<double>::quiet_NaN(), 1e300};
        for (const double threshold : oracle.Thresholds()) {
            choiceV.insert(choiceV.end(), {threshold, std::nextafter(threshold, 1e308)});
        }
        VecDle rowV(kNumRows * dim);
        for (size_t i = 0; i < rowV.size(); ++i) {
            rowV[i] = choiceV[(i * 2654435761u >> 7) % choiceV.size()];
        }
        return rowV;
    }

    static bool IsSame(double a, double b) {
        return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
    }

    // True for one line, or for one of the two messages that have a second line by definition.
    static bool IsRefusal(const std::string& said) {
        if (said.rfind("idxTreeArray: ", 0) == 0) {
            const std::string end = "!\nERROR: Model format is wrong!\n";
            return said.find(end) + end.size() == said.size();
        }
        const size_t lineFeed = said.find('\n');
        const std::string behind = said.substr(std::min(lineFeed, said.size() - 1) + 1);
        return said.rfind("ERROR: ", 0) == 0 && lineFeed != std::string::npos &&
               (behind.empty() || behind == "!" || behind == "!\n");
    }

    static bool IsScoreRefusal(const std::string& said) {
        const std::string head = "ERROR: Wrong model format!\n";
        if (said.rfind(head, 0) != 0) {
            return said == "ERROR: Wrong tree size or shrink size!\n" ||
                   said == "ERROR: feature dimension in model is 0!\n";
        }
        return said.rfind("group ", head.size()) == head.size() && said.back() == '\n' &&
               std::count(said.begin(), said.end(), '\n') == 2;
    }

    MemoryFile file;
    Messages messages;
    long numTried = 0, numRefused = 0, numLoaded = 0, numScored = 0;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_DAMAGE_MODELCHECK_H
