// The inner loops of CollectKeys (SlotScoring.cpp): of a block of rows, those in candidate bins.
//
// One kernel per instruction set; all give the same rows and keys, in the order of the rows. The
// baseline kernel is the reference implementation of the others. Kernels keep no state, so any
// number of threads may call them.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_KEYSELECTION_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_KEYSELECTION_H

#include <cstdint>

#include "god/InstructionSets.h"

namespace sylvora {
namespace engine {

// The 8-bit codes of the candidate bins.
struct CandidateCodes {
    uint8_t fCandidateV[256] = {};
    // The same as bits, for kernels with byte shuffles: bit (code >> 4) & 7 of the byte
    // (code >> 7) * 16 + (code & 15).
    uint8_t bitsV[32] = {};

    // Adds the codes first to last.
    void Add(int first, int last) {
        for (int code = first; code <= last; ++code) {
            fCandidateV[code] = 1;
            bitsV[(code >> 7) * 16 + (code & 15)] |= static_cast<uint8_t>(1 << ((code >> 4) & 7));
        }
    }
};

// Marks of the candidate bins by rank / 2^step. Not owned. kSlack bytes past the last mark must be
// readable.
struct CandidateMarks {
    static constexpr int kSlack = 3;

    const uint8_t* fCandidateV;
    int step;
};

// Rows whose codes are those of candidate bins. Kernels write whole registers, past the last row.
struct SelectedRows {
    static constexpr int kMost = 512;
    static constexpr int kSlack = 16;

    int num = 0;
    int rowV[kMost + kSlack];
    uint8_t code8V[kMost + kSlack];
};

struct KeySelection {
    // Keys that selectKeys may write past the last one.
    static constexpr int kKeySlack = 8;

    // Sets `selected` to the rows among rowV[0, count) whose codes are candidates, count at most
    // SelectedRows::kMost. codeV holds the codes by row of the data.
    void (*selectRows)(const CandidateCodes& candidates, const uint8_t* codeV, const int* rowV,
                       int count, SelectedRows& selected);
    // Writes the keys (KeySort.h) of the rows whose ranks are candidates, and returns their number.
    // Ranks run parallel to selected.rowV.
    int (*selectKeys)(const CandidateMarks& candidates, const SelectedRows& selected,
                      const uint32_t* rankV, uint64_t* keyV);
};

extern const KeySelection kKeySelectionBaseline;
extern const KeySelection kKeySelectionAvx2;
extern const KeySelection kKeySelectionAvx512;

constexpr KernelsOfSets<const KeySelection> kKeySelections = {
    {&kKeySelectionBaseline, &kKeySelectionAvx2, &kKeySelectionAvx512}};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_KEYSELECTION_H
