// The block kernel. Each instruction set includes it once, into an unnamed namespace that defines
// kWidth, the bytes of a vector register, and kRegisters, the registers that a step processes.
//
// Call only functions with internal linkage here. Of any other function the linker keeps one copy,
// and that might be the one compiled for the newest processors.

typedef int8_t Bytes __attribute__((vector_size(kWidth)));
typedef uint8_t Numbers
    __attribute__((vector_size(kWidth)));  // leaf numbers; unsigned, so that sums may wrap
typedef uint32_t Words __attribute__((vector_size(kWidth)));

constexpr int kStepRows = kRegisters * kWidth;

// One byte for each of the kStepRows rows of a step.
struct StepNumbers {
    Numbers part[kRegisters];
};

static inline StepNumbers Load(const uint8_t* from) {
    StepNumbers numbers;
    for (int p = 0; p < kRegisters; ++p) {
        __builtin_memcpy(&numbers.part[p], from + p * kWidth, kWidth);
    }
    return numbers;
}

static inline void Store(const StepNumbers& numbers, uint8_t* to) {
    for (int p = 0; p < kRegisters; ++p) {
        __builtin_memcpy(to + p * kWidth, &numbers.part[p], kWidth);
    }
}

// For each row 0xFF where it goes left at test k, 0 where it goes right.
static inline StepNumbers GoLeft(const SubtreeTests& tests, int k, const int8_t* rows) {
    const Bytes test = (Bytes)(Words{} + tests.testV[k]);
    StepNumbers fLeft;
    for (int p = 0; p < kRegisters; ++p) {
        Bytes codes;
        __builtin_memcpy(&codes, rows + tests.codeAtV[k] + p * kWidth, sizeof codes);
        fLeft.part[p] = (Numbers)(test > codes);
    }
    return fLeft;
}

static inline StepNumbers Add(const StepNumbers& numbers, uint8_t summand) {
    StepNumbers sum;
    for (int p = 0; p < kRegisters; ++p) sum.part[p] = numbers.part[p] + summand;
    return sum;
}

// For each row `left` where fLeft is 0xFF, `right` where it is 0.
static inline StepNumbers Select(const StepNumbers& fLeft, const StepNumbers& left,
                                 const StepNumbers& right) {
    StepNumbers selected;
    for (int p = 0; p < kRegisters; ++p) {
        selected.part[p] = (Bytes)fLeft.part[p] ? left.part[p] : right.part[p];
    }
    return selected;
}

// `rows` and `numberV` point at the first row of the step.
static inline void FindInLeafSubtree(const LeafSubtree& subtree, const int8_t* rows,
                                     uint8_t* numberV) {
    const SubtreeTests& tests = subtree.tests;
    // A mask is itself a leaf number, counted from the second leaf of its pair: 0xFF is -1, the
    // first leaf, and 0 is the second one.
    const StepNumbers leaf01 = GoLeft(tests, 3, rows);
    const StepNumbers leaf23 = Add(GoLeft(tests, 4, rows), 2);
    const StepNumbers leaf03 = Select(GoLeft(tests, 1, rows), leaf01, leaf23);
    const StepNumbers leaf45 = GoLeft(tests, 5, rows);
    const StepNumbers leaf67 = Add(GoLeft(tests, 6, rows), 2);
    const StepNumbers leaf47 = Add(Select(GoLeft(tests, 2, rows), leaf45, leaf67), 4);
    Store(Add(Select(GoLeft(tests, 0, rows), leaf03, leaf47), subtree.secondLeaf), numberV);
}

// Like FindInLeafSubtree, but the ends are the leaf numbers that the subtrees below found.
static inline void FindInInnerSubtree(const InnerSubtree& subtree, const int8_t* rows,
                                      const uint8_t* childNumberV, uint8_t* numberV) {
    const SubtreeTests& tests = subtree.tests;
    const auto end = [&](int k) {
        return Select(GoLeft(tests, 3 + k, rows), Load(childNumberV + subtree.childAtV[2 * k]),
                      Load(childNumberV + subtree.childAtV[2 * k + 1]));
    };
    const StepNumbers left = Select(GoLeft(tests, 1, rows), end(0), end(1));
    const StepNumbers right = Select(GoLeft(tests, 2, rows), end(2), end(3));
    Store(Select(GoLeft(tests, 0, rows), left, right), numberV);
}

// Evaluates the subtrees of a tree in order. The last one, at the root, writes to leafV;
// the others write to numberV, kTileRows bytes each.
static void FindLeavesOfTree(const BlockTree& tree, const int8_t* tile, uint8_t* leafV) {
    alignas(kTileRows) uint8_t numberV[kMaxSubtrees * kTileRows];
    const int numSubtrees = tree.numLeafSubtrees + tree.numInnerSubtrees;
    const auto numbersOf = [&](int k) {
        return k == numSubtrees - 1 ? leafV : numberV + k * kTileRows;
    };
    for (int k = 0; k < tree.numLeafSubtrees; ++k) {
        uint8_t* const to = numbersOf(k);
        for (int row = 0; row < kTileRows; row += kStepRows) {
            FindInLeafSubtree(tree.leafSubtreeV[k], tile + row, to + row);
        }
    }
    for (int k = 0; k < tree.numInnerSubtrees; ++k) {
        uint8_t* const to = numbersOf(tree.numLeafSubtrees + k);
        for (int row = 0; row < kTileRows; row += kStepRows) {
            FindInInnerSubtree(tree.innerSubtreeV[k], tile + row, numberV + row, to + row);
        }
    }
}

static void FindLeaves(const BlockTree* treeV, int numTrees, const int8_t* tile, uint8_t* leafV) {
    for (int t = 0; t < numTrees; ++t) FindLeavesOfTree(treeV[t], tile, leafV + t * kTileRows);
}

// Without branches and in 16-bit arithmetic, so that compilers vectorise it.
static void FillBand(const int16_t* rankV, int firstRank, int8_t* codeV) {
    const int16_t first = static_cast<int16_t>(firstRank);
    for (int row = 0; row < kTileRows; ++row) {
        const int16_t rank = rankV[row] > first ? rankV[row] : first;
        const int16_t above = static_cast<int16_t>(rank - first);
        codeV[row] = static_cast<int8_t>((above < kBandThresholds ? above : kBandThresholds) - 128);
    }
}
