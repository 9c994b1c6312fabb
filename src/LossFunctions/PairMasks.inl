// Masks in the compiler's vector types, for instruction sets that keep them in vector registers:
// all bits of a lane are set where the mask is true. Included before PairKernel.inl.
typedef double Reals __attribute__((vector_size(8 * kLanes)));
typedef uint64_t Mask __attribute__((vector_size(8 * kLanes)));

constexpr uint64_t kSign = uint64_t{1} << 63;

static inline Mask IsLess(Reals a, Reals b) {
    return (Mask)(a < b);
}

static inline Mask IsUnequal(Reals a, Reals b) {
    return (Mask)(a != b);
}

static inline Mask Either(Mask a, Mask b) {
    return a | b;
}

static inline Mask Both(Mask a, Mask b) {
    return a & b;
}

static inline bool IsAny(Mask mask) {
    uint64_t any = 0;
    for (int lane = 0; lane < kLanes; ++lane) any |= mask[lane];
    return any != 0;
}

// a where the mask is true, b elsewhere.
static inline Reals Select(Mask mask, Reals a, Reals b) {
    return (Reals)(((Mask)a & mask) | ((Mask)b & ~mask));
}

// 0 where the mask is false.
static inline Reals KeepOnly(Mask mask, Reals value) {
    return (Reals)((Mask)value & mask);
}

// -value where the mask is true.
static inline Reals FlipSign(Mask mask, Reals value) {
    return (Reals)((Mask)value ^ (mask & kSign));
}

static inline Reals Absolute(Reals value) {
    return (Reals)((Mask)value & ~kSign);
}
