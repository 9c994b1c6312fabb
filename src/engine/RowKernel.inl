// One row through bundles of sixteen trees, a tree in each lane; included, like BlockKernel.inl,
// for each instruction set that can look bytes up in a register.
//
// At each level, a lane's word is picked among those of all positions: 2^level words are loaded and
// halved `level` times, once for each decision on the way down. That is many instructions, but none
// of them waits for a guessed branch, and two bundles at a time fill the gaps in each other. The
// deepest trees are walked, which is less work.

struct Pair {
    __m256i part[2];
};

// The words at the positions that the first kBits decisions lead to, among every kStride-th one;
// the last decision is the one between neighbours.
template <int kBits, int kStride>
__attribute__((always_inline)) static inline __m256i Pick(const uint16_t* wordV,
                                                          const Pair* fRightV, int part) {
    if constexpr (kBits == 0) {
        return _mm256_load_si256(reinterpret_cast<const __m256i*>(wordV));
    } else {
        const uint16_t* const next = wordV + kStride * kBundleTrees;
        return _mm256_blendv_epi8(Pick<kBits - 1, 2 * kStride>(wordV, fRightV, part),
                                  Pick<kBits - 1, 2 * kStride>(next, fRightV, part),
                                  fRightV[kBits - 1].part[part]);
    }
}

// The row's bytes for the bands in the low bytes of the words, in low bytes. Sixteen bands are one
// table; an index outside it gets its high bit set, for which the look-up yields 0.
__attribute__((always_inline)) static inline Pair LookUp(const Pair& words, const uint8_t* codeV,
                                                         int numBands) {
    const __m256i next = _mm256_set1_epi16(kTableBands);
    const __m256i outside = _mm256_set1_epi8(0x80 - kTableBands);
    const __m256i high = _mm256_set1_epi16(static_cast<int16_t>(0xff00));
    Pair found = {{_mm256_setzero_si256(), _mm256_setzero_si256()}};
    Pair index = {{_mm256_or_si256(words.part[0], high), _mm256_or_si256(words.part[1], high)}};
    for (int band = 0; band < numBands; band += kTableBands) {
        const __m128i* const from = reinterpret_cast<const __m128i*>(codeV + band);
        const __m256i table = _mm256_broadcastsi128_si256(_mm_load_si128(from));
        for (int p = 0; p < 2; ++p) {
            const __m256i inside = _mm256_adds_epu8(index.part[p], outside);
            found.part[p] = _mm256_or_si256(found.part[p], _mm256_shuffle_epi8(table, inside));
            index.part[p] = _mm256_sub_epi8(index.part[p], next);
        }
    }
    return found;
}

template <int kDepth, int kLevel>
__attribute__((always_inline)) static inline void Descend(const RowBundles& bundles,
                                                          const uint8_t* codeV, int numBands,
                                                          Pair* fRightV) {
    if constexpr (kLevel < kDepth) {
        Pair words;
        for (int p = 0; p < 2; ++p) {
            words.part[p] =
                Pick<kLevel, 1>(bundles.wordV[p] + (kBundleTrees << kLevel), fRightV, p);
        }
        const Pair codes = LookUp(words, codeV, numBands);
        for (int p = 0; p < 2; ++p) {
            fRightV[kLevel].part[p] =
                _mm256_cmpgt_epi16(codes.part[p], _mm256_srli_epi16(words.part[p], 8));
        }
        Descend<kDepth, kLevel + 1>(bundles, codeV, numBands, fRightV);
    }
}

template <int kDepth>
static void FindRowLeavesAt(const RowBundles& bundles, const uint8_t* codeV, int numBands,
                            uint16_t* leafV) {
    Pair fRightV[kDepth];
    Descend<kDepth, 0>(bundles, codeV, numBands, fRightV);
    for (int p = 0; p < 2; ++p) {
        __m256i leaves = _mm256_setzero_si256();
        for (int level = 0; level < kDepth; ++level) {
            // All bits are the number -1.
            leaves = _mm256_sub_epi16(_mm256_add_epi16(leaves, leaves), fRightV[level].part[p]);
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(leafV + p * kBundleTrees), leaves);
    }
}

static void FindRowLeaves(const RowBundles& bundles, const uint8_t* codeV, int numBands,
                          uint16_t* leafV) {
    static constexpr decltype(&FindRowLeavesAt<3>) kDepths[] = {
        FindRowLeavesAt<3>, FindRowLeavesAt<4>, FindRowLeavesAt<5>,
        FindRowLeavesAt<6>, FindRowLeavesAt<7>, WalkRow};
    static_assert(sizeof kDepths / sizeof kDepths[0] == kMaxBlockDepth - kMinBlockDepth + 1);
    kDepths[bundles.depth - kMinBlockDepth](bundles, codeV, numBands, leafV);
}
