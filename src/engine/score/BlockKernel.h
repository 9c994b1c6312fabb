// The inner loops of scoring: which leaf of a tree each row of a tile reaches, and which leaves of
// a bundle of trees one row.
//
// A tile is 64 rows, one byte per row and band. A band covers up to 254 neighbouring thresholds of
// one feature; its byte says how many of them the row's value lies above, so every test of a tree
// is one comparison of bytes, for as many rows at a time as a register has bytes. Trees are not
// walked: all tests are made, and leaf numbers are selected upwards from the lowest tests to the
// root, three levels (a chunk) at a time. No branch depends on data.
//
// For one row, trees stand in a heap (the root at 1, the sons of position i at 2 * i and 2 * i +
// 1), with the tests of many trees side by side at each position.
//
// There is one source for all instruction sets (BlockKernel.inl, and RowKernel.inl for those that
// can do it) and one object for each; see KernelChoice.h.
#ifndef SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H
#define SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H

#include <cstddef>
#include <cstdint>

namespace sylvora {
namespace engine {

constexpr int kTileRows = 64;
// Thresholds of one band. A row's byte counts those that the row is above; 255 is left for a test
// that every row passes to the left.
constexpr int kBandThresholds = 254;
// Leaf numbers are bytes; trees are padded to the levels of a chunk at least.
constexpr int kMinBlockDepth = 3;
constexpr int kMaxBlockDepth = 8;
constexpr int kBundleTrees = 16;
// The trees that one row goes through at once: those of two bundles.
constexpr int kRowTrees = 2 * kBundleTrees;
// So many bands at most, for their number is a byte of a row's test. One row's bytes are looked up
// in tables of kTableBands, the last of which must be there as a whole.
constexpr int kMaxBands = 256;
constexpr int kTableBands = 16;

// A count of thresholds, as a byte of a row's codes or as a test of it. Bytes are signed, because
// that is how processors compare them, and start at -128.
constexpr int8_t CountByte(int count) {
    return static_cast<int8_t>(count - 128);
}
constexpr int kAlwaysLeft = kBandThresholds + 1;

// The tests of three levels, the upper ones first. A row goes left when its byte, which stands at
// codeAtV (from the tile's beginning), is below the test. A test fills all four bytes of its word:
// words can be spread over a register as they are loaded.
struct ChunkTests {
    uint32_t codeAtV[7];
    uint32_t testV[7];

    static uint32_t Spread(int count) {
        return 0x01010101u * static_cast<uint8_t>(CountByte(count));
    }
};

// The lowest three levels: their ends are eight leaves with numbers in a row.
struct LeafChunk {
    ChunkTests tests;
    uint8_t secondLeaf;
};

// Three levels further up: end k takes the numbers that a chunk found, which stand at sonAtV[k],
// kTileRows for each chunk. Leaf chunks come first, then joins, sons before parents.
struct JoinChunk {
    ChunkTests tests;
    uint16_t sonAtV[8];
};

// A tree as a program; the last chunk holds the root.
struct BlockTree {
    const LeafChunk* leafChunkV;
    const JoinChunk* joinV;
    int numLeafChunks;
    int numJoins;
};
constexpr int kMaxChunks = 32 + 4 + 1;  // of a tree of depth 8

// The tests of kRowTrees trees at one position, a cache line. A row goes left when its byte of the
// band is below the test.
struct alignas(64) RowTests {
    uint8_t bandV[kRowTrees];
    int8_t testV[kRowTrees];
};

// A row's bytes, one for each band.
struct RowBytes {
    const int8_t* codeV;  // aligned as a table is
    int numBands;
};

struct BlockKernel {
    const char* name;
    // The bytes of a band from the rows' ranks (at most 32767): rank - firstRank, at least 0 and at
    // most kBandThresholds, less 128.
    void (*fillBand)(const int16_t* rankV, int firstRank, int8_t* codeV);
    // Leaf numbers: leafV[t * kTileRows + row].
    void (*findLeaves)(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV);
    // The leaf numbers that one row reaches in kRowTrees trees of one depth; testsV is by position.
    void (*findRowLeaves)(const RowTests* testsV, int depth, const RowBytes& codes, uint8_t* leafV);
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_SCORE_BLOCKKERNEL_H
