// The kernel of the forces of pairs. It is included once per instruction set, into an unnamed
// namespace that defines kLanes, the number of doubles in a register, and Mask with its functions
// (PairMasks.inl or intrinsics).
//
// A tile has the pairs of kLanes rows, one at a time, with kLanes other rows, all at once. Each
// row's sum has to add its forces in the order of the partners. The gradients of the second rows
// take the forces of one first row after the other; those of the first rows take the transposed
// tile, again one column after the other.
//
// Only functions with internal linkage may be defined here; see ExpLogKernels.inl.

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__)
#error "exact results need the arithmetic of IEEE 754: compile without -ffast-math"
#endif

// A row in every lane, or a row per lane.
struct Rows {
    Reals label, score, place, upHead, upRest, downHead, downRest;
};

static inline Reals Load(const double* valueV) {
    Reals value;
    __builtin_memcpy(&value, valueV, sizeof value);
    return value;
}

static inline void Store(double* valueV, Reals value) {
    __builtin_memcpy(valueV, &value, sizeof value);
}

static inline Reals Spread(double value) {
    return value - Reals{};
}

static inline Rows LoadRows(const PairBlock& block, int at) {
    return {Load(block.labelV + at),   Load(block.scoreV + at),  Load(block.placeV + at),
            Load(block.upHeadV + at),  Load(block.upRestV + at), Load(block.downHeadV + at),
            Load(block.downRestV + at)};
}

static inline Rows SpreadRow(const PairBlock& block, int at) {
    return {Spread(block.labelV[at]),   Spread(block.scoreV[at]),  Spread(block.placeV[at]),
            Spread(block.upHeadV[at]),  Spread(block.upRestV[at]), Spread(block.downHeadV[at]),
            Spread(block.downRestV[at])};
}

static inline Rows SelectRows(Mask mask, const Rows& a, const Rows& b) {
    return {Select(mask, a.label, b.label),      Select(mask, a.score, b.score),
            Select(mask, a.place, b.place),      Select(mask, a.upHead, b.upHead),
            Select(mask, a.upRest, b.upRest),    Select(mask, a.downHead, b.downHead),
            Select(mask, a.downRest, b.downRest)};
}

// 1 / (1 + e^x) or -1 / (1 + e^x); see CrossEntropyForce.
//
// e^x is the product of the larger label's e^place, the smaller one's e^-place and e^r, where r is
// what rounding made of places and differences: at most 2^-42.9. If both ends of the error interval
// give the same 1 + e^x, that is the result; docs/exact-math.md derives the bound.
struct CrossEntropy {
    Reals tau;

    // For each lane the argument x if the first row has the larger label, otherwise -x.
    static inline Reals Argument(Reals tauV, const Rows& first, const Rows& second) {
        return (first.score - second.score) - tauV * (first.label - second.label);
    }

    inline Reals Force(const Rows& first, const Rows& second, Mask& undecided) const {
        constexpr double kError = 0x1.6p-66;  // relative bound on the error of e^x
        const Mask fSecond = IsLess(first.label, second.label);
        const Mask fPair = Either(fSecond, IsLess(second.label, first.label));
        const Reals r =
            FlipSign(fSecond, Argument(tau, first, second) - (first.place - second.place));
        const Reals high =
            Select(fSecond, second.upHead * first.downHead, first.upHead * second.downHead);
        const Reals upRest = Select(fSecond, second.upRest, first.upRest);
        const Reals downRest = Select(fSecond, first.downRest, second.downRest);
        const Reals rest = r + (upRest + (downRest + upRest * downRest));
        const Reals below = 1.0 + (high + high * (rest - kError));
        const Reals above = 1.0 + (high + high * (rest + kError));
        undecided = Either(undecided, Both(fPair, IsUnequal(below, above)));
        return KeepOnly(fPair, FlipSign(fSecond, 1.0 / below));
    }

    // The same with correctly rounded exponentials.
    static Reals Decide(double tau, const Rows& first, const Rows& second) {
        const Mask fSecond = IsLess(first.label, second.label);
        const Mask fPair = Either(fSecond, IsLess(second.label, first.label));
        const Reals x = KeepOnly(fPair, FlipSign(fSecond, Argument(Spread(tau), first, second)));
        double argumentV[kLanes], exponentialV[kLanes];
        Store(argumentV, x);
        ExpEach(argumentV, exponentialV, kLanes);
        return KeepOnly(fPair, FlipSign(fSecond, 1.0 / (1.0 + Load(exponentialV))));
    }
};

// See HingeSquareForce.
struct HingeSquare {
    Reals tau;

    inline Reals Force(const Rows& first, const Rows& second, Mask&) const {
        const Reals difference = first.score - second.score;
        const Reals margin = tau * Absolute(first.label - second.label);
        const Mask fFirst = IsLess(second.label, first.label);
        const Mask fSecond = IsLess(first.label, second.label);
        // With equal labels, the margin is tau and each of the two may be violated.
        const Reals bound = Select(Either(fFirst, fSecond), margin, tau);
        const Reals up = 0.5 * (bound - difference);
        const Reals upEqual = 0.5 * (-bound - difference);
        const Reals down = -0.5 * (bound + difference);
        const Reals downEqual = -0.5 * (difference - bound);
        const Mask fBelow = IsLess(difference, bound);
        const Mask fAbove = IsLess(-bound, difference);
        const Mask fAboveEqual = IsLess(bound, difference);
        const Mask fBelowEqual = IsLess(difference, -bound);
        const Reals equal = Select(fAboveEqual, downEqual, KeepOnly(fBelowEqual, upEqual));
        return Select(fFirst, KeepOnly(fBelow, up), Select(fSecond, KeepOnly(fAbove, down), equal));
    }

    static Reals Decide(double, const Rows&, const Rows&) { return Reals{}; }
};

// One step of a transposition: exchanges the blocks off the diagonal, of kStep lanes, of two rows.
template <int kStep, int... kLane>
static inline void Exchange(Reals& a, Reals& b, std::integer_sequence<int, kLane...>) {
    const Reals low =
        __builtin_shufflevector(a, b, ((kLane & kStep) != 0 ? kLanes + kLane - kStep : kLane)...);
    b = __builtin_shufflevector(a, b, ((kLane & kStep) != 0 ? kLanes + kLane : kLane + kStep)...);
    a = low;
}

template <int kStep>
static inline void TransposeFrom(Reals* rowV) {
    if constexpr (kStep < kLanes) {
        for (int i = 0; i < kLanes; ++i) {
            if ((i & kStep) != 0) continue;
            Exchange<kStep>(rowV[i], rowV[i + kStep], std::make_integer_sequence<int, kLanes>());
        }
        TransposeFrom<2 * kStep>(rowV);
    }
}

// Computes the tile again. Called for one tile in a hundred, so it may be slow.
template <typename Loss>
__attribute__((noinline, cold)) static void DecideTile(const PairBlock& first, int i,
                                                       const PairBlock& second, int j, double tau,
                                                       Reals* forceV) {
    const Rows columns = LoadRows(second, j);
    for (int row = 0; row < kLanes; ++row) {
        forceV[row] = Loss::Decide(tau, SpreadRow(first, i + row), columns);
    }
}

template <typename Loss>
static inline void AddTile(PairBlock& first, int i, PairBlock& second, int j, double tau) {
    const Loss loss = {Spread(tau)};
    const Rows columns = LoadRows(second, j);
    Reals forceV[kLanes];
    Mask undecided = {};
    for (int row = 0; row < kLanes; ++row) {
        forceV[row] = loss.Force(SpreadRow(first, i + row), columns, undecided);
    }
    if (__builtin_expect(IsAny(undecided), false)) {
        DecideTile<Loss>(first, i, second, j, tau, forceV);
    }
    Reals sum = Load(second.gradientV + j);
    for (int row = 0; row < kLanes; ++row) sum -= forceV[row];
    Store(second.gradientV + j, sum);
    TransposeFrom<1>(forceV);
    sum = Load(first.gradientV + i);
    for (int row = 0; row < kLanes; ++row) sum += forceV[row];
    Store(first.gradientV + i, sum);
}

// The pairs among kLanes rows. In the lanes before a row, that row is the second of the pair.
template <typename Loss>
static inline void AddDiagonalTile(PairBlock& block, int at, double tau) {
    const Loss loss = {Spread(tau)};
    const Rows columns = LoadRows(block, at);
    Reals lane;
    for (int i = 0; i < kLanes; ++i) lane[i] = i;
    Reals sum = Load(block.gradientV + at);
    for (int row = 0; row < kLanes && at + row < block.count; ++row) {
        const Mask fBefore = IsLess(lane, Spread(row));
        const Mask fAfter = IsLess(Spread(row), lane);
        const Rows same = SpreadRow(block, at + row);
        const Rows earlier = SelectRows(fBefore, columns, same);
        const Rows later = SelectRows(fBefore, same, columns);
        Mask undecided = {};
        Reals force = loss.Force(earlier, later, undecided);
        if (__builtin_expect(IsAny(undecided), false)) force = Loss::Decide(tau, earlier, later);
        sum += KeepOnly(Either(fBefore, fAfter), FlipSign(fAfter, force));
    }
    Store(block.gradientV + at, sum);
}

template <typename Loss>
static void AddAll(PairBlock& first, PairBlock& second, double tau) {
    for (int i = 0; i < first.count; i += kLanes) {
        int j = 0;
        if (&first == &second) {
            AddDiagonalTile<Loss>(first, i, tau);
            j = i + kLanes;
        }
        for (; j < second.count; j += kLanes) AddTile<Loss>(first, i, second, j, tau);
    }
}
