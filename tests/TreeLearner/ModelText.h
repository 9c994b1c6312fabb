// Models for tests, from their text.
#ifndef SYLVORA_TESTS_TREELEARNER_MODELTEXT_H
#define SYLVORA_TESTS_TREELEARNER_MODELTEXT_H

#include <locale>
#include <string>

#include "../Support.h"
#include "TreeLearner.h"

namespace sylvora::tests {

// The first two lines of a model and its means, all of them 0.
inline std::string ModelHead(int numGroups, int numClass, int dimFea) {
    std::string text = std::to_string(numGroups) + " " + std::to_string(numClass) + " " +
                       std::to_string(dimFea) + "\n0.6 0.6 20 4 5 0.5 Square DOC GBDT\n";
    for (int j = 0; j < dimFea; ++j) text += "0 ";
    return text + "\n";
}

// Sets a global locale with decimal commas and grouped digits; returns the one before.
inline std::locale UseCommas() {
    struct CommaNumbers : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    return std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
}

inline Outcome LoadText(TreeLearner& learner, const std::string& text) {
    const TempFolder folder;
    return Observe([&] { return learner.LoadModelFull(folder.Write("model", text)); });
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_TREELEARNER_MODELTEXT_H
