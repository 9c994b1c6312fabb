// The fast path of exp and log. It is included once per instruction set, into an unnamed namespace
// that defines kLanes, the number of doubles in a register.
//
// A result is computed as high + low with an error bound. If both ends of the error interval round
// to the same double, that double is the result. docs/exact-math.md derives the bounds. They hold
// only for these operations in this order: nothing may be contracted or reordered. All kernels
// perform the same operations, so their bits agree.
//
// Only functions with internal linkage may be used here. Of any other function the linker keeps
// one copy, which might be the one compiled for the newest processors.

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__)
#error "exact results need the arithmetic of IEEE 754: compile without -ffast-math"
#endif
#if __FLT_EVAL_METHOD__ != 0 && __FLT_EVAL_METHOD__ != 16  // 16 concerns only shorter types
#error "exact results need doubles that are rounded as doubles"
#endif

typedef double Reals __attribute__((vector_size(8 * kLanes)));
typedef uint64_t Bits __attribute__((vector_size(8 * kLanes)));  // also masks: all ones is true

// For each lane, whether the result is decided (a mask), and the result if so.
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

// For each lane, member `member` of the table entry `index`.
template <int kMembers>
static inline Reals LookUp(const double* table, Bits index, uint64_t member) {
    Reals value;
    for (int lane = 0; lane < kLanes; ++lane) {
        value[lane] = table[kMembers * index[lane] + member];
    }
    return value;
}

// A function value, times 2^-m: high + low. `scale` is m, moved to the exponent bits of a double.
struct Unrounded {
    Reals high;
    Reals low;
    Bits scale;
};

// The rounding test of A. Ziv (1991) for high + low with an error of at most `error`.
static inline Rounded Round(Reals high, Reals low, Reals error, Bits inRange) {
    const Reals below = high + (low - error);
    const Reals above = high + (low + error);
    return {below, (Bits)(below == above) & inRange};
}

// e^x = 2^m * 2^(j/128) * e^r with k = 128 * m + j and |r| < 2^-8.5. r = head + rest, where head
// has so few bits that products with it are exact. tableHigh and tableLow are T1 and T2 of
// docs/exact-math.md. (P. Tang, "Table-driven implementation of the exponential function in IEEE
// floating-point arithmetic", 1989.)
static inline Unrounded ExpSum(Reals x) {
    constexpr double kToInteger = 0x1.8p52;  // adding and subtracting it rounds to an integer
    constexpr double kToHead = 0x1.8p18;     // the same, to a multiple of 2^-34
    const Reals shifted = x * kExpStepsPerUnit + kToInteger;
    const Reals k = shifted - kToInteger;
    const Bits j = BitsOf(shifted) & (kExpEntries - 1);
    const Bits m = (BitsOf(shifted) ^ j) << 45;  // moved to the exponent bits of a double
    const Reals first = x - k * kExpStepHigh;
    const Reals second = k * kExpStepLow;
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
    return {high, low, m};
}

static inline Rounded FastExp(Reals x) {
    constexpr double kLargest = 708.0;  // up to this |x| the result is a normal number
    constexpr double kError = 0x1p-67;  // bound on the error of high + low, which is below 2
    const Unrounded sum = ExpSum(x);
    const Bits inRange = (Bits)(x <= kLargest) & (Bits)(x >= -kLargest);
    const Rounded rounded = Round(sum.high, sum.low, Reals{} + kError, inRange);
    return {RealsOf(BitsOf(rounded.result) + sum.scale), rounded.decided};
}

// log(x) = m * log(2) - log(c) + log(1 + r) with x = 2^m * z, r = z * c - 1, |r| <= 2^-8. c is
// `inverse` from the table. r is exact, and so is the square of its leading half. (P. Tang,
// "Table-driven implementation of the logarithm function in IEEE floating-point arithmetic", 1990.)
static inline Rounded FastLog(Reals x) {
    constexpr uint64_t kExponentField = uint64_t{0xFFF} << 52;
    constexpr uint64_t kLow21 = (uint64_t{1} << 21) - 1;
    constexpr uint64_t kLow27 = (uint64_t{1} << 27) - 1;
    constexpr uint64_t kBias = 1023;
    constexpr double kError = 0x1p-67;  // bound on the error of high + low, relative to high
    const Bits offset = BitsOf(x) - BitsOf(Reals{} + kLogBegin);
    const Bits z = BitsOf(x) - (offset & kExponentField);
    const Bits index = offset >> 44 & (kLogEntries - 1);
    // Converts to double: the low bits of a double in [2^52, 2^53) are its integer part.
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

// Applies kFunction to `numBytes` bytes of doubles, at most a register; unused lanes compute
// f(1.0). Undecided results become NaN. Returns the mask of undecided lanes.
template <Rounded (*kFunction)(Reals)>
static inline Bits Step(const double* x, double* result, size_t numBytes) {
    Reals argument = Reals{} + 1.0;
    __builtin_memcpy(&argument, x, numBytes);
    const Rounded rounded = kFunction(argument);
    const Bits bits = BitsOf(rounded.result) | ~rounded.decided;  // all bits set is a NaN
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

// SplitExpEach for `numBytes` bytes of doubles, at most a register.
static inline void SplitStep(const double* x, double* head, double* rest, size_t numBytes) {
    constexpr uint64_t kLow27 = (uint64_t{1} << 27) - 1;
    Reals argument = {};
    __builtin_memcpy(&argument, x, numBytes);
    const Unrounded sum = ExpSum(argument);
    const Bits nearest = BitsOf(sum.high + sum.low);
    const Reals first = RealsOf((nearest + (kLow27 + 1) / 2) & ~kLow27);
    const Reals second = ((sum.high - first) + sum.low) / first;
    const Bits scaled = BitsOf(first) + sum.scale;
    __builtin_memcpy(head, &scaled, numBytes);
    __builtin_memcpy(rest, &second, numBytes);
}

static void SplitExp(const double* xV, double* headV, double* restV, size_t count) {
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) SplitStep(xV + i, headV + i, restV + i, sizeof(Reals));
    if (i < count) SplitStep(xV + i, headV + i, restV + i, (count - i) * sizeof(double));
}
