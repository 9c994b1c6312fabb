// Partitions a node's rows exactly as the two cursors of the reference implementation do: the k-th
// misplaced row of the left part changes places with the k-th misplaced row of the right part. The
// order within both parts is thereby fixed.
#ifndef SYLVORA_ENGINE_TRAIN_ROWEXCHANGE_H
#define SYLVORA_ENGINE_TRAIN_ROWEXCHANGE_H

#include <algorithm>
#include <cstdint>

#include "RowKernels.h"

namespace sylvora {
namespace engine {

// Lists the misplaced positions of [begin, end) in ascending order: those whose entry in `fLefts`
// equals `fMisplaced`, which is 0 in the left part and 1 in the right part. `fLefts` must not
// change meanwhile. Positions are found a block at a time.
class MisplacedRows {
  public:
    MisplacedRows(const uint8_t* fLefts, uint8_t fMisplaced, int begin, int end)
        : fLeftV(fLefts), fWrong(fMisplaced), next(begin), pastLast(end) {}

    // The number of positions ready at Positions(); 0 at the end.
    int NumReady() {
        while (at == num && next < pastLast) FindMore();
        return num - at;
    }
    const int* Positions() const { return positionV + at; }
    // Moves on by `count` positions, at most NumReady().
    void Advance(int count) { at += count; }
    // Moves on by `count` positions, or to the end.
    void Skip(int count) {
        while (count > 0) {
            const int some = std::min(count, NumReady());
            if (some == 0) return;
            Advance(some);
            count -= some;
        }
    }

  private:
    static constexpr int kBlockRows = 512;

    void FindMore() {
        const int pastBlock = pastLast - next > kBlockRows ? next + kBlockRows : pastLast;
        at = 0;
        num = kernels.list(fLeftV + next, fWrong, next, pastBlock - next, positionV);
        next = pastBlock;
    }

    const uint8_t* const fLeftV;
    const uint8_t fWrong;
    // The first position that has not been examined.
    int next;
    const int pastLast;
    // positionV[at..num) are ready.
    int at = 0;
    int num = 0;
    // The positions found in the last block.
    int positionV[kBlockRows + RowKernels::kSlack];
    const RowKernels& kernels = BestRowKernels();
};

// Calls exchange(left, right) for up to `mostPairs` pairs of misplaced positions. Ends with the
// shorter side: the sides differ in number only if the threshold does not separate the values next
// to it.
template <typename Exchange>
void ExchangeMisplaced(MisplacedRows& left, MisplacedRows& right, int mostPairs,
                       const Exchange& exchange) {
    while (mostPairs > 0) {
        const int num = std::min({left.NumReady(), right.NumReady(), mostPairs});
        if (num == 0) return;
        for (int k = 0; k < num; ++k) exchange(left.Positions()[k], right.Positions()[k]);
        left.Advance(num);
        right.Advance(num);
        mostPairs -= num;
    }
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_ROWEXCHANGE_H
