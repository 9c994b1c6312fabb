// Parts of the kernels of KeySelection.h. Included within the namespace of each, so that every
// object has functions of its own.

// Whether the row numbers ascend by one.
static inline bool IsRun(const int* rowV, int count) {
    if (rowV[count - 1] != rowV[0] + count - 1) return false;
    for (int i = 1; i < count - 1; ++i) {
        if (rowV[i] != rowV[0] + i) return false;
    }
    return true;
}

// The codes of the rows, in order: those of the data if the rows are consecutive, else copied to
// `buffer`. The loop does nothing else, so many loads overlap.
static inline const uint8_t* CodesOf(const uint8_t* codeV, const int* rowV, int count,
                                     uint8_t* buffer) {
    if (count > 0 && IsRun(rowV, count)) return codeV + rowV[0];
    for (int i = 0; i < count; ++i) buffer[i] = codeV[rowV[i]];
    return buffer;
}

static inline uint64_t MakeKey(uint32_t rank, int row) {
    return static_cast<uint64_t>(rank) << 32 | static_cast<uint32_t>(row);
}

// Writes each key, then keeps it or not, so that there is no branch. Starts at position `from`.
static inline int SelectKeysFrom(int from, const CandidateMarks& candidates,
                                 const SelectedRows& selected, const uint32_t* rankV,
                                 uint64_t* keyV, int numKeys) {
    for (int i = from; i < selected.num; ++i) {
        keyV[numKeys] = MakeKey(rankV[i], selected.rowV[i]);
        numKeys += candidates.fCandidateV[rankV[i] >> candidates.step];
    }
    return numKeys;
}
