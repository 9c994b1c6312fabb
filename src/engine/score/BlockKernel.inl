// The block kernel, included once per instruction set into a namespace of its own, which says how
// many bytes its registers have (kWidth) and how many registers take part in a step (kTogether).
//
// Only functions with internal linkage may be used here: the linker would take any other's code
// from just one object, and that might be the one for the newest processors.

typedef int8_t Bytes __attribute__((vector_size(kWidth)));
typedef uint8_t Numbers __attribute__((vector_size(kWidth)));  // leaf numbers; these may wrap
typedef uint32_t Words __attribute__((vector_size(kWidth)));

constexpr int kStepRows = kTogether * kWidth;

// One byte for each row of a step.
struct StepNumbers {
    Numbers part[kTogether];
};

static inline StepNumbers Load(const uint8_t* from) {
    StepNumbers numbers;
    for (int p = 0; p < kTogether; ++p) {
        __builtin_memcpy(&numbers.part[p], from + p * kWidth, kWidth);
    }
    return numbers;
}

static inline void Store(const StepNumbers& numbers, uint8_t* to) {
    for (int p = 0; p < kTogether; ++p) {
        __builtin_memcpy(to + p * kWidth, &numbers.part[p], kWidth);
    }
}

// All bits of the rows that go left at test k.
static inline StepNumbers GoLeft(const ChunkTests& tests, int k, const int8_t* rows) {
    const Bytes test = (Bytes)(Words{} + tests.testV[k]);
    StepNumbers fLeft;
    for (int p = 0; p < kTogether; ++p) {
        Bytes codes;
        __builtin_memcpy(&codes, rows + tests.codeAtV[k] + p * kWidth, sizeof codes);
        fLeft.part[p] = (Numbers)(test > codes);
    }
    return fLeft;
}

static inline StepNumbers Add(const StepNumbers& numbers, uint8_t summand) {
    StepNumbers sum;
    for (int p = 0; p < kTogether; ++p) sum.part[p] = numbers.part[p] + summand;
    return sum;
}

static inline StepNumbers Select(const StepNumbers& fLeft, const StepNumbers& left,
                                 const StepNumbers& right) {
    StepNumbers selected;
    for (int p = 0; p < kTogether; ++p) {
        selected.part[p] = (Bytes)fLeft.part[p] ? left.part[p] : right.part[p];
    }
    return selected;
}

// `rows` and `numberV` are those of the first row of the step.
static inline void FindInLeafChunk(const LeafChunk& chunk, const int8_t* rows, uint8_t* numberV) {
    const ChunkTests& tests = chunk.tests;
    // All bits are the number -1: counted from the chunk's second leaf, it is the first.
    const StepNumbers leaf01 = GoLeft(tests, 3, rows);
    const StepNumbers leaf23 = Add(GoLeft(tests, 4, rows), 2);
    const StepNumbers leaf03 = Select(GoLeft(tests, 1, rows), leaf01, leaf23);
    const StepNumbers leaf45 = GoLeft(tests, 5, rows);
    const StepNumbers leaf67 = Add(GoLeft(tests, 6, rows), 2);
    const StepNumbers leaf47 = Add(Select(GoLeft(tests, 2, rows), leaf45, leaf67), 4);
    Store(Add(Select(GoLeft(tests, 0, rows), leaf03, leaf47), chunk.secondLeaf), numberV);
}

static inline void FindInJoin(const JoinChunk& join, const int8_t* rows, const uint8_t* sonNumberV,
                              uint8_t* numberV) {
    const ChunkTests& tests = join.tests;
    const auto end = [&](int k) {
        return Select(GoLeft(tests, 3 + k, rows), Load(sonNumberV + join.sonAtV[2 * k]),
                      Load(sonNumberV + join.sonAtV[2 * k + 1]));
    };
    const StepNumbers left = Select(GoLeft(tests, 1, rows), end(0), end(1));
    const StepNumbers right = Select(GoLeft(tests, 2, rows), end(2), end(3));
    Store(Select(GoLeft(tests, 0, rows), left, right), numberV);
}

static void FindLeavesOfTree(const BlockTree& tree, const int8_t* tile, uint8_t* leafV) {
    alignas(kTileRows) uint8_t numberV[kMaxChunks * kTileRows];
    const int numChunks = tree.numLeafChunks + tree.numJoins;
    const auto chunkNumbers = [&](int k) {
        return k == numChunks - 1 ? leafV : numberV + k * kTileRows;
    };
    for (int k = 0; k < tree.numLeafChunks; ++k) {
        uint8_t* const to = chunkNumbers(k);
        for (int row = 0; row < kTileRows; row += kStepRows) {
            FindInLeafChunk(tree.leafChunkV[k], tile + row, to + row);
        }
    }
    for (int k = 0; k < tree.numJoins; ++k) {
        uint8_t* const to = chunkNumbers(tree.numLeafChunks + k);
        for (int row = 0; row < kTileRows; row += kStepRows) {
            FindInJoin(tree.joinV[k], tile + row, numberV + row, to + row);
        }
    }
}

static void FindLeaves(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV) {
    for (int t = 0; t < numTrees; ++t) FindLeavesOfTree(treeV[t], tile, leafV + t * kTileRows);
}

// Written so that compilers turn it into vector arithmetic.
static void FillBand(const int16_t* rankV, int firstRank, int8_t* codeV) {
    const int16_t first = static_cast<int16_t>(firstRank);
    for (int row = 0; row < kTileRows; ++row) {
        const int16_t rank = rankV[row] > first ? rankV[row] : first;
        const int16_t above = static_cast<int16_t>(rank - first);
        codeV[row] = static_cast<int8_t>((above < kBandThresholds ? above : kBandThresholds) - 128);
    }
}
