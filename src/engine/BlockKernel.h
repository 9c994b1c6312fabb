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
// Thresholds of one slot: a row's byte counts 0 to 254 of them, and one test is left that no byte
// is above.
constexpr int kSlotThresholds = 254;
// Leaf numbers are bytes.
constexpr int kMaxBlockDepth = 8;

// The tests of three levels, the upper ones first. A row goes right when its byte at `codeAt`
// (from the tile's beginning; a multiple of kTileRows) is above the test. Bytes are signed, because
// that is how processors compare them; they start at -128.
struct ChunkTests {
    static constexpr int8_t kAlwaysLeft = 127;
    uint32_t codeAt[7];
    int8_t test[7];
};

// The lowest three levels: their ends are the leaves firstLeaf to firstLeaf + 7.
struct LeafChunk {
    ChunkTests tests;
    uint8_t firstLeaf;
};

// Three levels further up: end k takes the leaf numbers that chunk sonV[k] found. Chunks are
// counted from the tree's first leaf chunk, joins behind leaf chunks; sons come before.
struct JoinChunk {
    ChunkTests tests;
    uint8_t sonV[8];
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
    // most 255, less 128.
    void (*fillSlot)(const int16_t* rankV, int firstRank, int8_t* codeV);
    // Leaf numbers: leafV[t * kTileRows + row].
    void (*findLeaves)(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV);
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_BLOCKKERNEL_H
