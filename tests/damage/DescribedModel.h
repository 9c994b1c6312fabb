// A small model with a description, and blocks with any content and the right checksums.
#ifndef SYLVORA_TESTS_DAMAGE_DESCRIBEDMODEL_H
#define SYLVORA_TESTS_DAMAGE_DESCRIBEDMODEL_H

#include <string>
#include <tuple>

#include "ModelText/Block.h"
#include "TreeLearner.h"

namespace sylvora {

inline bool operator==(const ModelDescription& a, const ModelDescription& b) {
    const auto all = [](const ModelDescription& d) {
        return std::tie(d.columnV, d.classV, d.link, d.missing, d.bestRound, d.settingV, d.coverV);
    };
    return all(a) == all(b);
}

namespace tests {

// Two groups, two classes, two columns.
const std::string kSmallModel =
    "2 2 2\n"
    "0.6 0.6 20 4 5 0.5 Label DOC CART\n"
    "0.25 1 \n"
    "idxTreeArray: 0 size: 1 shrink: 0.5\n"
    "2 5\n"
    "0 INTERMEDIATE 1 0.5 1 2 1\n"
    "1 TERMINAL -1 -1 -1 -1 0\n"
    "2 INTERMEDIATE 0 3 3 4 1\n"
    "3 TERMINAL -1 -1 -1 -1 1\n"
    "4 TERMINAL -1 -1 -1 -1 0\n"
    "idxTreeArray: 1 size: 1 shrink: 1\n"
    "0 1\n"
    "0 TERMINAL -1 -1 -1 -1 1\n";

inline ModelDescription SmallDescription() {
    ModelDescription description;
    description.columnV = {"age", "a \\b\n[end] 1"};
    description.classV = {"", "yes"};
    description.link = "sigmoid";
    description.missing = "nan";
    description.bestRound = 2;
    description.settingV = {{"valShrink", "0.5"}, {"a name", ""}};
    description.coverV = {9, 4, 5, 3, 2, 10};
    return description;
}

inline TextSum SumOf(const std::string& text) {
    TextSum sum;
    sum.Add(text.data(), text.size());
    return sum;
}

// The block behind `model` whose lines between the second and the last are `lines`.
inline std::string BlockOf(const std::string& model, const std::string& lines,
                           const std::string& version = "1") {
    const std::string block =
        "[description] " + version + "\nmodel " + SumOf(model).Figures() + "\n" + lines;
    return block + BlockEndLine(SumOf(block));
}

// Loads a text without its description and returns the model that is saved then; an empty string if
// it does not load.
inline std::string LoadAndSave(const std::string& text) {
    TreeLearner learner;
    std::string saved;
    if (ModelText::Load(text.data(), text.size(), learner, nullptr) != 0) return "";
    return ModelText::Save(learner, 6, nullptr, saved) == 0 ? saved : "";
}

}  // namespace tests
}  // namespace sylvora

#endif  // SYLVORA_TESTS_DAMAGE_DESCRIBEDMODEL_H
