// The inner loops of scoring. The block kernel finds the leaf that each of 64 rows reaches in a
// tree; the row kernel finds the leaves that one row reaches in up to 32 trees.
//
// Rows are quantised first (RowQuantiser.h). A band is up to 254 consecutive thresholds of one
// feature. A row has one byte, a code, per band: the number of the band's thresholds that the row's
// value is above; a NaN is above all. So each test of a tree is one comparison of a code with a
// constant, and a vector register holds the codes of as many rows as it has bytes.
//
// The block kernel works on a tile: the codes of 64 rows, band after band. It does not walk trees.
// It makes every test of a tree and selects leaf numbers bottom up, one subtree of three levels at
// a time, so no branch depends on the data.
//
// The row kernel is the transpose: one tree per SIMD lane. Trees are stored as heaps (the root at
// 1, the children of i at 2 * i and 2 * i + 1), with the tests of 32 trees side by side at each
// position.
//
// One source serves all instruction sets: BlockKernel.inl, and RowKernel.inl for those with byte
// shuffles. It is compiled once for each; see KernelChoice.h. Kernels keep no state, so any number
// of threads may call them.
#ifndef SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H
#define SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H

#include <cstddef>
#include <cstdint>

namespace sylvora {
namespace engine {

constexpr int kTileRows = 64;
// Thresholds of one band. Codes are 0 to 254; the test constant 255 is above all of them, so that
// every row goes left.
constexpr int kBandThresholds = 254;
// A leaf number is a byte, which limits the depth to 8. Trees are padded to one subtree at least.
constexpr int kMinBlockDepth = 3;
constexpr int kMaxBlockDepth = 8;
constexpr int kBundleTrees = 16;
// Trees per call of the row kernel: those of two bundles.
constexpr int kRowTrees = 2 * kBundleTrees;
// A band's number is a byte. The row kernel looks codes up in tables of kTableBands bytes and loads
// the last table whole, so the array of a row's codes must extend to the end of that table.
constexpr int kMaxBands = 256;
constexpr int kTableBands = 16;

// A code or a test constant in [0, 255], stored less 128: SSE2 and AVX2 compare bytes as signed.
constexpr int8_t CountByte(int count) {
    return static_cast<int8_t>(count - 128);
}
constexpr int kAlwaysLeft = kBandThresholds + 1;

// The seven tests of a three-level subtree, level by level from its root. Row r of a tile goes left
// when its code, at byte codeAtV[k] + r of the tile, is below the test constant. The constant is
// repeated in all four bytes of its word: one instruction loads a word and broadcasts it to a whole
// register.
struct SubtreeTests {
    uint32_t codeAtV[7];
    uint32_t testV[7];

    static uint32_t Spread(int count) {
        return 0x01010101u * static_cast<uint8_t>(CountByte(count));
    }
};

// A subtree of the lowest three levels. Its eight leaves have consecutive numbers.
struct LeafSubtree {
    SubtreeTests tests;
    uint8_t secondLeaf;  // the number of the second of them; see FindInLeafSubtree
};

// A subtree whose eight ends are the roots of other subtrees. The leaf numbers found in the subtree
// below end k start at childAtV[k]: each subtree writes kTileRows numbers, leaf subtrees first,
// then inner ones, children before parents.
struct InnerSubtree {
    SubtreeTests tests;
    uint16_t childAtV[8];
};

// A tree as the block kernel takes it: subtrees in the order in which they are evaluated. The last
// one yields the leaf numbers of the tree. CompiledEnsemble owns the arrays.
struct BlockTree {
    const LeafSubtree* leafSubtreeV;
    const InnerSubtree* innerSubtreeV;
    int numLeafSubtrees;
    int numInnerSubtrees;
};
constexpr int kMaxSubtrees = 32 + 4 + 1;  // leaf and inner ones of a tree of depth 8

// One cache line: the tests that kRowTrees trees have at the same heap position. A row goes left in
// tree t when its code for band bandV[t] is below testV[t].
struct alignas(64) RowTests {
    uint8_t bandV[kRowTrees];
    int8_t testV[kRowTrees];
};

// The codes of one row, one for each band. Not owned.
struct RowCodes {
    const int8_t* codeV;  // aligned to kTableBands bytes, readable up to the end of a table
    int numBands;
};

struct BlockKernel {
    const char* name;
    // Writes the codes of one band for kTileRows rows: rank - firstRank, clamped to [0,
    // kBandThresholds], as CountByte. Ranks are in [0, 32767].
    void (*fillBand)(const int16_t* rankV, int firstRank, int8_t* codeV);
    // Finds the leaves of a tile's rows: leafV[t * kTileRows + row] is the leaf number in treeV[t].
    void (*findLeaves)(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV);
    // Finds the leaf numbers that one row reaches in kRowTrees trees of the same depth. testsV is
    // indexed by heap position; entry 0 is unused.
    void (*findRowLeaves)(const RowTests* testsV, int depth, const RowCodes& codes, uint8_t* leafV);
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H
