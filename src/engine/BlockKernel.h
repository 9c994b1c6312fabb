// The inner loop of batch scoring: which leaf of a tree each row of a tile reaches.
//
// A tile is 64 rows, one byte per row and slot. A slot covers up to 254 neighbouring thresholds of
// one feature; its byte says how many of them the row's value lies above, so every test of a tree
// is one comparison of bytes, for as many rows at a time as a register has bytes. Trees are not
// walked: all tests are made, and leaf numbers are selected upwards from the lowest tests to the
// root, three levels (a chunk) at a time. No branch depends on data.
//
// There is one source, BlockKernel.inl, and one object per instruction set; see KernelChoice.h.
#ifndef SYLVORA_ENGINE_BLOCKKERNEL_H
#define SYLVORA_ENGINE_BLOCKKERNEL_H

#include <cstdint>

namespace sylvora {
namespace engine {

constexpr int kTileRows = 64;
// Thresholds of one slot. A row's byte counts those that the row is above; 255 is left for a test
// that every row passes to the left.
constexpr int kSlotThresholds = 254;
// Leaf numbers are bytes.
constexpr int kMaxBlockDepth = 8;

// The tests of three levels, the upper ones first. A row goes left when its byte, which stands at
// codeAtV (from the tile's beginning), is below the test. Bytes are signed, because that is how
// processors compare them, and start at -128. A test fills all four bytes of its word: words can be
// spread over a register as they are loaded.
struct ChunkTests {
    uint32_t codeAtV[7];
    uint32_t testV[7];

    static uint32_t Spread(int count) { return 0x01010101u * static_cast<uint8_t>(count - 128); }
};
constexpr int kAlwaysLeft = kSlotThresholds + 1;

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

struct BlockKernel {
    const char* name;
    // The bytes of a slot from the rows' ranks (at most 32767): rank - firstRank, at least 0 and at
    // most kSlotThresholds, less 128.
    void (*fillSlot)(const int16_t* rankV, int firstRank, int8_t* codeV);
    // Leaf numbers: leafV[t * kTileRows + row].
    void (*findLeaves)(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV);
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_BLOCKKERNEL_H
