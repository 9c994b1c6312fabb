// What the handles of the C interface hold, and blocks in both forms.
#ifndef SYLVORA_SYLVORA_C_HANDLES_H
#define SYLVORA_SYLVORA_C_HANDLES_H

#include <memory>
#include <string>
#include <vector>

#include "../ModelText.h"
#include "../TreeLearner.h"
#include "../sylvora_c.h"
#include "GatheredData.h"

struct sylvora_dataset {
    // Of several ranks; null: of this process alone. The set borrows its columns.
    std::shared_ptr<sylvora::c::GatheredData> gathered;
    std::shared_ptr<const sylvora::DataSet> set;
    std::string missing;   // as ModelDescription has it
    bool fSubset = false;  // its rows are not those that were gathered
};

// Where a tree is: the group, and the index in it. Covers are in the order of the trees.
struct sylvora_tree_place {
    size_t group, tree, firstCover;
};

struct sylvora_model {
    std::unique_ptr<TreeLearner> learner;
    sylvora::ModelDescription description;
    std::vector<sylvora_tree_place> placeV;  // of all trees, in order
    std::vector<std::string> settingV;       // of the description, as "parameter=value"
    std::string bestRound;                   // of the description, as a text
};

namespace sylvora::c {

// A block as the library has it. Borrows the values, but not the list of columns.
class Block {
  public:
    // Takes over a block of the C interface. Returns 0, or -1 after a message.
    [[nodiscard]] int Take(const sylvora_block* from);

    const DataBlock& Get() const { return block; }
    // What its rules read as missing, as ModelDescription has it.
    std::string Missing() const;

  private:
    DataBlock block;
    std::vector<DataColumn> columnV;
};

// The shortest text from which a number is read back exactly.
std::string ExactText(double value);

// A model to load into.
std::unique_ptr<sylvora_model> FreshModel();

// Sets the members that are derived from the learner and the description.
void Derive(sylvora_model& model);

}  // namespace sylvora::c

#endif  // SYLVORA_SYLVORA_C_HANDLES_H
