// The row kernel: one row through 32 trees, one tree per SIMD lane. Included, like BlockKernel.inl
// and under the same rule, once per instruction set that has byte shuffles.
//
// At each level, every lane picks its test among those of all 2^level positions: the lines of the
// level are loaded and halved `level` times, once for each decision made so far. That costs many
// instructions, but none waits for a mispredicted branch or for a computed address.

typedef __m256i Lanes;  // a byte for each tree
static_assert(sizeof(Lanes) == kRowTrees);

// For each lane, the bands (fBands) or else the test constants at the position that its first kBits
// decisions lead to. Candidates are testsV[0], testsV[kStride], ..., 2^kBits of them. The last
// decision chooses between neighbours, so it is taken first and doubles the stride.
template <int kBits, int kStride>
__attribute__((always_inline)) static inline Lanes Pick(const RowTests* testsV, bool fBands,
                                                        const Lanes* fLeftV) {
    if constexpr (kBits == 0) {
        const void* const from = fBands ? static_cast<const void*>(testsV->bandV) : testsV->testV;
        return _mm256_load_si256(static_cast<const Lanes*>(from));
    } else {
        return _mm256_blendv_epi8(Pick<kBits - 1, 2 * kStride>(testsV + kStride, fBands, fLeftV),
                                  Pick<kBits - 1, 2 * kStride>(testsV, fBands, fLeftV),
                                  fLeftV[kBits - 1]);
    }
}

// For each lane, the row's code for its band, given that the band lies in one of the kTables tables
// from table kFirst on. `offsets` are the bands' indices within their tables. The tables are halved
// by the highest bit of the band number that tells them apart. Whether there is an upper half
// depends on the quantiser and not on the row, so the branch is predicted.
template <int kFirst, int kTables>
__attribute__((always_inline)) static inline Lanes LookUp(Lanes bands, Lanes offsets,
                                                          const RowCodes& codes) {
    if constexpr (kTables == 1) {
        const int8_t* const from = codes.codeV + kFirst * kTableBands;
        const __m128i table = _mm_load_si128(reinterpret_cast<const __m128i*>(from));
        return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(table), offsets);
    } else {
        constexpr int kHalf = kTables / 2;
        const Lanes lower = LookUp<kFirst, kHalf>(bands, offsets, codes);
        if (codes.numBands <= (kFirst + kHalf) * kTableBands) return lower;
        const Lanes upper = LookUp<kFirst + kHalf, kHalf>(bands, offsets, codes);
        // A blend goes by the highest bit of each byte. This shift moves the bit of value kHalf of
        // the table number there; bits that cross into the next byte stay below its highest bit.
        constexpr int kShift = 128 / (kHalf * kTableBands);
        const Lanes fUpper = _mm256_slli_epi16(bands, __builtin_ctz(kShift));
        return _mm256_blendv_epi8(lower, upper, fUpper);
    }
}

// Makes the tests of levels kLevel to kDepth - 1. Invariant: fLeftV[0, kLevel) are the decisions so
// far, 0xFF in the lanes that went left.
template <int kDepth, int kLevel>
__attribute__((always_inline)) static inline void Descend(const RowTests* testsV,
                                                          const RowCodes& codes, Lanes* fLeftV) {
    if constexpr (kLevel < kDepth) {
        const RowTests* const level = testsV + (1 << kLevel);
        const Lanes bands = Pick<kLevel, 1>(level, true, fLeftV);
        const Lanes offsets = _mm256_and_si256(bands, _mm256_set1_epi8(kTableBands - 1));
        const Lanes found = LookUp<0, kMaxBands / kTableBands>(bands, offsets, codes);
        fLeftV[kLevel] = _mm256_cmpgt_epi8(Pick<kLevel, 1>(level, false, fLeftV), found);
        Descend<kDepth, kLevel + 1>(testsV, codes, fLeftV);
    }
}

template <int kDepth>
static void FindRowLeavesAt(const RowTests* testsV, const RowCodes& codes, uint8_t* leafV) {
    Lanes fLeftV[kDepth];
    Descend<kDepth, 0>(testsV, codes, fLeftV);
    // 0xFF is -1, so this sums -2^k over the decisions to the left (the last one has k = 0); the
    // last leaf's number plus that sum is the leaf's number.
    Lanes leaves = _mm256_setzero_si256();
    for (const Lanes& fLeft : fLeftV) {
        leaves = _mm256_add_epi8(_mm256_add_epi8(leaves, leaves), fLeft);
    }
    leaves = _mm256_add_epi8(leaves, _mm256_set1_epi8(static_cast<char>((1 << kDepth) - 1)));
    _mm256_storeu_si256(reinterpret_cast<Lanes*>(leafV), leaves);
}

static void FindRowLeaves(const RowTests* testsV, int depth, const RowCodes& codes,
                          uint8_t* leafV) {
    static constexpr decltype(&FindRowLeavesAt<3>) kDepths[] = {
        FindRowLeavesAt<3>, FindRowLeavesAt<4>, FindRowLeavesAt<5>,
        FindRowLeavesAt<6>, FindRowLeavesAt<7>, FindRowLeavesAt<8>};
    static_assert(sizeof kDepths / sizeof kDepths[0] == kMaxBlockDepth - kMinBlockDepth + 1);
    kDepths[depth - kMinBlockDepth](testsV, codes, leafV);
}
