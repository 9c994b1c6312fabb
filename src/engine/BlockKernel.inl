// The block kernel, included once per instruction set into a namespace of its own, which says how
// many bytes its registers have: kWidth.
//
// Only functions with internal linkage may be used here: the linker would take any other's code
// from just one object, and that might be the one for the newest processors.

typedef int8_t Bytes __attribute__((vector_size(kWidth)));
typedef uint8_t Numbers __attribute__((vector_size(kWidth)));  // leaf numbers; these may wrap

static inline Bytes LoadBytes(const int8_t* from) {
    Bytes bytes;
    __builtin_memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

static inline Numbers LoadNumbers(const uint8_t* from) {
    Numbers numbers;
    __builtin_memcpy(&numbers, from, sizeof numbers);
    return numbers;
}

static inline void StoreNumbers(Numbers numbers, uint8_t* to) {
    __builtin_memcpy(to, &numbers, sizeof numbers);
}

// All bits of the rows that go right at test k.
static inline Bytes GoRight(const ChunkTests& tests, int k, const int8_t* rows) {
    return LoadBytes(rows + tests.codeAt[k]) > tests.test[k];
}

static inline Numbers Select(Bytes fRight, Numbers right, Numbers left) {
    return fRight ? right : left;
}

// `rows` and `numberV` are those of the first row of this register.
static inline void FindInLeafChunk(const LeafChunk& chunk, const int8_t* rows, uint8_t* numberV) {
    const ChunkTests& tests = chunk.tests;
    const Bytes fRight = GoRight(tests, 0, rows);
    const Bytes fRightL = GoRight(tests, 1, rows);
    const Bytes fRightR = GoRight(tests, 2, rows);
    // A mask is the number -1: leaves are counted downwards, and the count is subtracted at last.
    const Numbers leaf01 = (Numbers)GoRight(tests, 3, rows);
    const Numbers leaf23 = (Numbers)GoRight(tests, 4, rows) - 2;
    const Numbers leaf45 = (Numbers)GoRight(tests, 5, rows);
    const Numbers leaf67 = (Numbers)GoRight(tests, 6, rows) - 2;
    const Numbers leaf03 = Select(fRightL, leaf23, leaf01);
    const Numbers leaf47 = Select(fRightR, leaf67, leaf45) - 4;
    StoreNumbers(chunk.firstLeaf - Select(fRight, leaf47, leaf03), numberV);
}

static inline void FindInJoin(const JoinChunk& join, const int8_t* rows, const uint8_t* sonNumberV,
                              uint8_t* numberV) {
    const ChunkTests& tests = join.tests;
    Numbers end[4];
    for (int k = 0; k < 4; ++k) {
        const Numbers left = LoadNumbers(sonNumberV + join.sonV[2 * k] * kTileRows);
        const Numbers right = LoadNumbers(sonNumberV + join.sonV[2 * k + 1] * kTileRows);
        end[k] = Select(GoRight(tests, 3 + k, rows), right, left);
    }
    const Numbers left = Select(GoRight(tests, 1, rows), end[1], end[0]);
    const Numbers right = Select(GoRight(tests, 2, rows), end[3], end[2]);
    StoreNumbers(Select(GoRight(tests, 0, rows), right, left), numberV);
}

static void FindLeavesOfTree(const BlockTree& tree, const int8_t* tile, uint8_t* leafV) {
    alignas(kTileRows) uint8_t numberV[kMaxChunks * kTileRows];
    const int numChunks = tree.numLeafChunks + tree.numJoins;
    const auto chunkNumbers = [&](int k) {
        return k == numChunks - 1 ? leafV : numberV + k * kTileRows;
    };
    for (int k = 0; k < tree.numLeafChunks; ++k) {
        uint8_t* const to = chunkNumbers(k);
        for (int row = 0; row < kTileRows; row += kWidth) {
            FindInLeafChunk(tree.leafChunkV[k], tile + row, to + row);
        }
    }
    for (int k = 0; k < tree.numJoins; ++k) {
        uint8_t* const to = chunkNumbers(tree.numLeafChunks + k);
        for (int row = 0; row < kTileRows; row += kWidth) {
            FindInJoin(tree.joinV[k], tile + row, numberV + row, to + row);
        }
    }
}

static void FindLeaves(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV) {
    for (int t = 0; t < numTrees; ++t) FindLeavesOfTree(treeV[t], tile, leafV + t * kTileRows);
}

// Written so that compilers turn it into saturating vector arithmetic.
static void FillSlot(const int16_t* rankV, int firstRank, int8_t* codeV) {
    const int16_t first = static_cast<int16_t>(firstRank);
    for (int row = 0; row < kTileRows; ++row) {
        const int16_t rank = rankV[row] > first ? rankV[row] : first;
        const int16_t above = static_cast<int16_t>(rank - first);
        codeV[row] = static_cast<int8_t>((above < 255 ? above : 255) - 128);
    }
}
