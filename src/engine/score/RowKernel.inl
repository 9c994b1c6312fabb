// One row through many trees, a tree in each lane; included, like BlockKernel.inl, for each
// instruction set that can look bytes up in a register.
//
// At each level, a lane's test is picked among those of all positions: 2^level lines are loaded and
// halved `level` times, once for each decision on the way down. That is many instructions, but none
// of them waits for a guessed branch or for an address.

typedef __m256i Lanes;  // a byte for each tree
static_assert(sizeof(Lanes) == kRowTrees);

// The bytes at the positions that the first kBits decisions lead to, among every kStride-th one;
// the last decision is the one between neighbours.
template <int kBits, int kStride>
__attribute__((always_inline)) static inline Lanes Pick(const RowTests* testsV, bool fBand,
                                                        const Lanes* fLeftV) {
    if constexpr (kBits == 0) {
        const void* const from = fBand ? static_cast<const void*>(testsV->bandV) : testsV->testV;
        return _mm256_load_si256(static_cast<const Lanes*>(from));
    } else {
        return _mm256_blendv_epi8(Pick<kBits - 1, 2 * kStride>(testsV + kStride, fBand, fLeftV),
                                  Pick<kBits - 1, 2 * kStride>(testsV, fBand, fLeftV),
                                  fLeftV[kBits - 1]);
    }
}

// The row's bytes for the bands, among those of kTables tables from kFirst on: selected by the
// highest bit of a band's number that tells the tables apart. That the upper half may not be there
// is the same for all rows, so the branch is guessed right.
template <int kFirst, int kTables>
__attribute__((always_inline)) static inline Lanes LookUp(Lanes bands, Lanes places,
                                                          const RowBytes& codes) {
    if constexpr (kTables == 1) {
        const int8_t* const from = codes.codeV + kFirst * kTableBands;
        const __m128i table = _mm_load_si128(reinterpret_cast<const __m128i*>(from));
        return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(table), places);
    } else {
        constexpr int kHalf = kTables / 2;
        const Lanes lower = LookUp<kFirst, kHalf>(bands, places, codes);
        if (codes.numBands <= (kFirst + kHalf) * kTableBands) return lower;
        const Lanes upper = LookUp<kFirst + kHalf, kHalf>(bands, places, codes);
        // A blend goes by the highest bit of each byte, where bit kHalf of the table's number goes.
        constexpr int kShift = 128 / (kHalf * kTableBands);
        const Lanes fUpper = _mm256_slli_epi16(bands, __builtin_ctz(kShift));
        return _mm256_blendv_epi8(lower, upper, fUpper);
    }
}

template <int kDepth, int kLevel>
__attribute__((always_inline)) static inline void Descend(const RowTests* testsV,
                                                          const RowBytes& codes, Lanes* fLeftV) {
    if constexpr (kLevel < kDepth) {
        const RowTests* const level = testsV + (1 << kLevel);
        const Lanes bands = Pick<kLevel, 1>(level, true, fLeftV);
        const Lanes places = _mm256_and_si256(bands, _mm256_set1_epi8(kTableBands - 1));
        const Lanes found = LookUp<0, kMaxBands / kTableBands>(bands, places, codes);
        fLeftV[kLevel] = _mm256_cmpgt_epi8(Pick<kLevel, 1>(level, false, fLeftV), found);
        Descend<kDepth, kLevel + 1>(testsV, codes, fLeftV);
    }
}

template <int kDepth>
static void FindRowLeavesAt(const RowTests* testsV, const RowBytes& codes, uint8_t* leafV) {
    Lanes fLeftV[kDepth];
    Descend<kDepth, 0>(testsV, codes, fLeftV);
    // All bits are the number -1: what the last leaf's number is lessened by.
    Lanes leaves = _mm256_setzero_si256();
    for (const Lanes& fLeft : fLeftV) {
        leaves = _mm256_add_epi8(_mm256_add_epi8(leaves, leaves), fLeft);
    }
    leaves = _mm256_add_epi8(leaves, _mm256_set1_epi8(static_cast<char>((1 << kDepth) - 1)));
    _mm256_storeu_si256(reinterpret_cast<Lanes*>(leafV), leaves);
}

static void FindRowLeaves(const RowTests* testsV, int depth, const RowBytes& codes,
                          uint8_t* leafV) {
    static constexpr decltype(&FindRowLeavesAt<3>) kDepths[] = {
        FindRowLeavesAt<3>, FindRowLeavesAt<4>, FindRowLeavesAt<5>,
        FindRowLeavesAt<6>, FindRowLeavesAt<7>, FindRowLeavesAt<8>};
    static_assert(sizeof kDepths / sizeof kDepths[0] == kMaxBlockDepth - kMinBlockDepth + 1);
    kDepths[depth - kMinBlockDepth](testsV, codes, leafV);
}
