// Key selection for every x86-64 processor; the reference implementation of the other kernels.
#include "KeySelection.h"

#include "base/Gather.h"

namespace sylvora {
namespace engine {
namespace {

#include "KeySelection.inl"

void SelectRows(const CandidateCodes& candidates, const uint8_t* codeV, const int* rowV, int count,
                SelectedRows& selected) {
    int num = 0;
    ForSelected(
        rowV, count, [&](int row) { return candidates.fCandidateV[codeV[row]]; },
        [&](int row) {
            selected.rowV[num] = row;
            selected.code8V[num++] = codeV[row];
        });
    selected.num = num;
}

int SelectKeys(const CandidateMarks& candidates, const SelectedRows& selected,
               const uint32_t* rankV, uint64_t* keyV) {
    return SelectKeysFrom(0, candidates, selected, rankV, keyV, 0);
}

}  // namespace

const KeySelection kKeySelectionBaseline = {SelectRows, SelectKeys};

}  // namespace engine
}  // namespace sylvora
