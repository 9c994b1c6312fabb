// The fast path of exp and log, included once per instruction set into a namespace of its own,
// which says how many doubles a register has (kLanes).
//
// A result is computed as high + low with an error bound; where both ends of the error round to the
// same double, that is the result. docs/exact-math.md derives the bounds. They count on every
// operation as it stands: nothing here may be contracted or reordered, and the same operations make
// the bits the same in all kernels.
//
// Only functions with internal linkage may be used here: the linker would take any other's code
// from just one object, and that might be the one for the newest processors.

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__)
#error "exact results need the arithmetic of IEEE 754: compile without -ffast-math"
#endif
#if __FLT_EVAL_METHOD__ != 0 && __FLT_EVAL_METHOD__ != 16  // 16 is about shorter types
#error "exact results need doubles that are rounded as doubles"
#endif

typedef double Reals __attribute__((vector_size(8 * kLanes)));
typedef uint64_t Bits __attribute__((vector_size(8 * kLanes)));  // also masks: all ones is true

// What a function found for each lane: the result where `decided`.
struct Rounded {
    Reals result;
    Bits decided;
};

static inline Bits BitsOf(Reals value) {
    return (Bits)value;
}

static inline Reals RealsOf(Bits bits) {
    return (Reals)bits;
}

// A member of each lane's table entry.
template <int kMembers>
static inline Reals LookUp(const double* table, Bits index, uint64_t member) {
    Reals value;
    for (int lane = 0; lane < kLanes; ++lane) {
        value[lane] = table[kMembers * index[lane] + member];
    }
    return value;
}

// The rounding test of A. Ziv (1991) for high + low with an error of at most `error`.
static inline Rounded Round(Reals high, Reals low, Reals error, Bits inRange) {
    const Reals below = high + (low - error);
    const Reals above = high + (low + error);
    return {below, (Bits)(below == above) & inRange};
}

// e^x = 2^m * 2^(j/128) * e^r, |r| < 2^-8.5, with r = head + rest, where head has so few bits that
// the products with it are exact. (P. Tang, "Table-driven implementation of the exponential
// function in IEEE floating-point arithmetic", 1989.)
static inline Rounded FastExp(Reals x) {
    constexpr double kToInteger = 0x1.8p52;  // added and subtracted, rounds to integers
    constexpr double kToHead = 0x1.8p18;     // to multiples of 2^-34
    constexpr double kLargest = 708.0;       // up to here the result is normal
    constexpr double kError = 0x1p-67;       // of high + low, which is below 2
    const Reals shifted = x * kExpStepsPerUnit + kToInteger;
    const Reals steps = shifted - kToInteger;
    const Bits j = BitsOf(shifted) & (kExpEntries - 1);
    const Bits m = (BitsOf(shifted) ^ j) << 45;  // where a double has its exponent
    const Reals first = x - steps * kExpStepHigh;
    const Reals second = steps * kExpStepLow;
    const Reals head = (first + kToHead) - kToHead;
    const Reals rest = (first - head) - second;
    const Reals r = head + rest;
    const Reals tail =  // e^r - 1 - r
        r * r * (1.0 / 2 + r * (1.0 / 6 + r * (1.0 / 24 + r * (1.0 / 120 + r * (1.0 / 720)))));
    const Reals tableHigh = LookUp<kExpMembers>(kExpTable, j, 0);
    const Reals tableLow = LookUp<kExpMembers>(kExpTable, j, 1);
    const Reals product = tableHigh * head;
    const Reals high = tableHigh + product;
    const Reals low = ((tableHigh - high) + product) +
                      (tableHigh * (rest + tail) + (tableLow + tableLow * (r + tail)));
    const Bits inRange = (Bits)(x <= kLargest) & (Bits)(x >= -kLargest);
    const Rounded rounded = Round(high, low, Reals{} + kError, inRange);
    return {RealsOf(BitsOf(rounded.result) + m), rounded.decided};
}

// log(x) = m * log(2) - log(c) + log(1 + r) with x = 2^m * z, r = z * c - 1, |r| <= 2^-8. r is
// exact, and so is the square of its leading half. (P. Tang, "Table-driven implementation of the
// logarithm function in IEEE floating-point arithmetic", 1990.)
static inline Rounded FastLog(Reals x) {
    constexpr uint64_t kExponentField = uint64_t{0xFFF} << 52;
    constexpr uint64_t kLow21 = (uint64_t{1} << 21) - 1;
    constexpr uint64_t kLow27 = (uint64_t{1} << 27) - 1;
    constexpr uint64_t kBias = 1023;
    constexpr double kError = 0x1p-67;  // of high + low, relative to high
    const Bits offset = BitsOf(x) - BitsOf(Reals{} + kLogBegin);
    const Bits z = BitsOf(x) - (offset & kExponentField);
    const Bits index = offset >> 44 & (kLogEntries - 1);
    // The low bits of a double from 2^52 on are its integer.
    const Bits biased = (offset + (kBias << 52)) >> 52;
    const Reals m = RealsOf(biased | BitsOf(Reals{} + 0x1p52)) - (0x1p52 + double{kBias});
    const Reals inverse = LookUp<kLogMembers>(kLogTable, index, 0);
    const Reals zHead = RealsOf(z & ~kLow21);
    const Reals r = (zHead * inverse - 1.0) + (RealsOf(z) - zHead) * inverse;
    const Reals head = RealsOf(BitsOf(r) & ~kLow27);
    const Reals rest = r - head;
    const Reals start = m * kLn2High + LookUp<kLogMembers>(kLogTable, index, 1);
    const Reals sum = start + head;
    const Reals square = 0.5 * head * head;
    const Reals high = sum - square;
    const Reals low = ((start - sum) + head) + ((sum - high) - square);
    const Reals series =
        1.0 / 3 +
        r * (-1.0 / 4 +
             r * (1.0 / 5 + r * (-1.0 / 6 + r * (1.0 / 7 + r * (-1.0 / 8 + r * (1.0 / 9))))));
    const Reals cube = r * r * r * series;  // log(1 + r) - r + r^2/2
    const Reals tail = (rest - 0.5 * rest * (head + r)) +
                       (cube + (m * kLn2Low + LookUp<kLogMembers>(kLogTable, index, 2)));
    const Bits inRange = (Bits)(x >= 0x1p-1022) & (Bits)(x <= 0x1.fffffffffffffp1023);
    return Round(high, low + tail, high * kError, inRange);
}

template <Rounded (*kFunction)(Reals)>
static inline Bits Step(const double* x, double* result, size_t numBytes) {
    Reals argument = Reals{} + 1.0;
    __builtin_memcpy(&argument, x, numBytes);
    const Rounded rounded = kFunction(argument);
    const Bits bits = BitsOf(rounded.result) | ~rounded.decided;  // all ones are a NaN
    __builtin_memcpy(result, &bits, numBytes);
    return ~rounded.decided;
}

template <Rounded (*kFunction)(Reals)>
static bool Map(const double* xV, double* resultV, size_t count) {
    Bits undecided = {};
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        undecided |= Step<kFunction>(xV + i, resultV + i, sizeof(Reals));
    }
    if (i < count) {
        undecided |= Step<kFunction>(xV + i, resultV + i, (count - i) * sizeof(double));
    }
    uint64_t any = 0;
    for (int lane = 0; lane < kLanes; ++lane) any |= undecided[lane];
    return any != 0;
}
