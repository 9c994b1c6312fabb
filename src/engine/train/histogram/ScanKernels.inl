// The kernels of ScanKernels.h, written with the registers of one instruction set. Included within
// the namespace of each, so that every object has functions of its own.
//
// The including file defines, for registers of kLanes doubles or of the words of kLanes cells:
//
//   Doubles, Words            the registers; Doubles has the operators + - * /
//   Set, Max, Min, Abs        of doubles
//   IfPositive(x, yes, no)    by lane: yes where x > 0, else no
//   AtLeast(x, y)             bit i: whether lane i of x is y's or more
//   Store(to, x)
//   Load(cells), Minus(a, b)  the words of consecutive cells
//   SumOf, WeightOf, AbsOf    the fields of cells as doubles, correctly rounded

// Covers the rounding of a bound many times over.
static constexpr double kInflate = 1.0 + 1e-9;
static constexpr double kTiny = 1e-300;  // avoids 0 / 0 in a term whose numerator is 0

// The sums and weights of both sides of a split, or at a corner of the region inside a run.
struct Sides {
    Doubles left, leftWeight, right, rightWeight;
};

// The score, with weights below `leastWeight` raised to that.
static inline Doubles ScoreOf(const Sides& at, Doubles leastWeight) {
    return at.left * at.left / Max(at.leftWeight, leastWeight) +
           at.right * at.right / Max(at.rightWeight, leastWeight);
}

// Bit i: whether the score, inflated, is at least minScore. Multiplied by both weights, so there is
// no division. If one of them is 0, so is its sum, and the result is true.
static inline unsigned Reaches(const Sides& at, Doubles minScore) {
    const Doubles sums = at.left * at.left * at.rightWeight + at.right * at.right * at.leftWeight;
    return AtLeast(sums * Set(kInflate), minScore * (at.leftWeight * at.rightWeight));
}

static inline Sides SidesAfter(const ScanFigures& figures, const Cell* prefix) {
    const Words words = Load(prefix);
    const Doubles sum = SumOf(words) * Set(figures.unit);
    const Doubles weight = WeightOf(words, figures.weightBits);
    return {sum, weight, Set(figures.sum) - sum, Set(figures.weight) - weight};
}

// The two corners that bound the splits inside a run, and its weight. The variables are named as in
// docs/engine-training.md: the rows before the run have the sums (g0, w0), the run itself (s, c),
// and h bounds |gradient| / weight.
struct Corners {
    Sides top, bottom;
    Doubles weight;
};

static inline Corners CornersOf(const ScanFigures& figures, const Cell* prefix) {
    const Words before = Load(prefix);
    const Words inside = Minus(Load(prefix + 1), before);
    const Doubles g0 = SumOf(before) * Set(figures.unit);
    const Doubles w0 = WeightOf(before, figures.weightBits);
    const Doubles c = WeightOf(inside, figures.weightBits);
    const Doubles s = SumOf(inside) * Set(figures.unit);
    const Doubles a = Min(AbsOf(inside, figures.weightBits) * Set(figures.absUnit),
                          Set(figures.maxAbsGradPerWeight) * c);
    const Doubles p = Set(0.5) * (a + s);
    const Doubles n = Set(0.5) * (a - s);
    const Doubles r0 = Set(figures.sum) - g0;
    const Doubles v0 = Set(figures.weight) - w0 - c;
    const Doubles leastOfP = p * Set(figures.weightPerAbsGrad);
    const Doubles leastOfN = n * Set(figures.weightPerAbsGrad);
    return {{g0 + p, w0 + leastOfP, r0 - p, v0 + leastOfN},
            {g0 - n, w0 + leastOfN, r0 + n, v0 + leastOfP},
            c};
}

// Positive if the run weighs 2 or more.
static inline Doubles HasTwoRows(const Corners& corners) {
    return corners.weight - Set(1.5);
}

// The first `count` of 64 bits.
static inline uint64_t FirstBits(int count) {
    return count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
}

static inline double Highest(Doubles values) {
    double valueV[kLanes];
    Store(valueV, values);
    double highest = valueV[0];
    for (int i = 1; i < kLanes; ++i) highest = valueV[i] > highest ? valueV[i] : highest;
    return highest;
}

static double Best(const ScanFigures& figures, const Cell* prefixV, int count, double* maxAbsSum) {
    const Doubles none = Set(-1.0);
    Doubles best = none;
    Doubles largest = Set(0.0);
    for (int i = 0; i < count; i += kLanes) {
        const Sides at = SidesAfter(figures, prefixV + i);
        best =
            Max(best, IfPositive(Min(at.leftWeight, at.rightWeight), ScoreOf(at, Set(1.0)), none));
        largest = Max(largest, Abs(at.left));
    }
    *maxAbsSum = Highest(largest);
    return Highest(best);
}

static uint64_t Reachable(const ScanFigures& figures, const Cell* prefixV, int count,
                          double minScore) {
    uint64_t mask = 0;
    for (int i = 0; i < count; i += kLanes) {
        const Sides at = SidesAfter(figures, prefixV + i);
        const unsigned fSplit = AtLeast(Min(at.leftWeight, at.rightWeight), Set(1.0));
        mask |= static_cast<uint64_t>(fSplit & Reaches(at, Set(minScore))) << i;
    }
    return mask & FirstBits(count);
}

static void Bounds(const ScanFigures& figures, const Cell* prefixV, int count, double* boundV) {
    for (int i = 0; i < count; i += kLanes) {
        const Corners at = CornersOf(figures, prefixV + i);
        const Doubles bound =
            Max(ScoreOf(at.top, Set(kTiny)), ScoreOf(at.bottom, Set(kTiny))) * Set(kInflate);
        Store(boundV + i, IfPositive(HasTwoRows(at), bound, Set(-1.0)));
    }
}

static uint64_t MayReach(const ScanFigures& figures, const Cell* prefixV, int count,
                         double minScore) {
    uint64_t mask = 0;
    for (int i = 0; i < count; i += kLanes) {
        const Corners at = CornersOf(figures, prefixV + i);
        const unsigned fReaches =
            Reaches(at.top, Set(minScore)) | Reaches(at.bottom, Set(minScore));
        mask |= static_cast<uint64_t>(fReaches & AtLeast(HasTwoRows(at), Set(0.0))) << i;
    }
    return mask & FirstBits(count);
}
