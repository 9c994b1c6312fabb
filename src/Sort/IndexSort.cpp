// Singleton's quicksort with an index array carried along; see Sort.h.
//
// Elements are numbered from 1, as in the published algorithm. Do not change any detail: the choice
// of the pivot, which segment is pushed and when a segment counts as short all affect the
// permutation of equal values, and so the models.
#include <utility>

#include "../Sort.h"

namespace {

constexpr double kFirstFraction = 0.375;
constexpr double kFractionStep = 0.0390625;
constexpr double kFractionLimit = 0.5898437;
constexpr double kFractionDrop = 0.21875;
constexpr int kShortSegment = 10;  // insertion sort finishes segments with j - i at most this
constexpr int kStackSize = 31;     // enough for 2^31 elements, as the larger segment is pushed

struct Segment {
    int i, j;
};

// Both arrays, with elements numbered from 1. Borrowed.
struct Items {
    double* v;
    int* I;

    double& Value(int k) const { return v[k - 1]; }
    void Swap(int a, int b) const {
        std::swap(v[a - 1], v[b - 1]);
        std::swap(I[a - 1], I[b - 1]);
    }
};

// Partitions the segment around a pivot, the median of its first and last elements and the one at
// `fraction` of its length. Afterwards all elements of [i, left.j] are at most the pivot and all of
// [right.i, j] at least the pivot.
std::pair<Segment, Segment> Partition(const Items& items, Segment s, double fraction) {
    const int middle = s.i + static_cast<int>((s.j - s.i) * fraction);
    if (items.Value(s.i) > items.Value(middle)) items.Swap(s.i, middle);
    if (items.Value(s.j) < items.Value(middle)) {
        items.Swap(s.j, middle);
        if (items.Value(s.i) > items.Value(middle)) items.Swap(s.i, middle);
    }
    const double pivot = items.Value(middle);
    int l = s.j;
    int k = s.i;
    for (;;) {
        do --l;
        while (items.Value(l) > pivot);
        do ++k;
        while (items.Value(k) < pivot);
        if (k > l) break;
        items.Swap(l, k);
    }
    return {{s.i, l}, {k, s.j}};
}

// Insertion sort of a segment. For ordered values the inner loop needs no lower bound: R_tsort_I
// calls this only for segments that do not start at `first`, so an element that is not larger than
// any of the segment stands before it. The bound `first` is for NaN, which compares false.
void InsertionSort(const Items& items, Segment s, int first) {
    for (int next = s.i + 1; next <= s.j; ++next) {
        const double value = items.v[next - 1];
        const int index = items.I[next - 1];
        if (items.Value(next - 1) <= value) continue;
        int k = next - 1;
        do {
            items.v[k] = items.v[k - 1];
            items.I[k] = items.I[k - 1];
            --k;
        } while (k >= first && value < items.Value(k));
        items.v[k] = value;
        items.I[k] = index;
    }
}

}  // namespace

void R_tsort_I(double* v, int* I, int i, int j) {
    const Items items = {v, I};
    const int first = i;
    Segment stack[kStackSize];
    int numStacked = 0;
    double fraction = kFirstFraction;
    Segment s = {i, j};
    // Invariant: only s and the segments on the stack are still unsorted. They do not overlap, and
    // ordered values never have to move from one to another.
    bool fTop = true;  // at the top of the published main loop, where the fraction changes
    for (;;) {
        if (!fTop && s.j - s.i <= kShortSegment && s.i == first) fTop = true;
        const bool fDone = fTop ? s.i >= s.j : s.j - s.i <= kShortSegment;
        if (fDone) {
            if (!fTop) InsertionSort(items, s, first);
            if (numStacked == 0) return;
            s = stack[--numStacked];
            fTop = false;
            continue;
        }
        if (fTop) fraction += fraction < kFractionLimit ? kFractionStep : -kFractionDrop;
        const auto [left, right] = Partition(items, s, fraction);
        const bool fPushRight = left.j - left.i <= right.j - right.i;
        stack[numStacked++] = fPushRight ? right : left;
        s = fPushRight ? left : right;
        fTop = false;
    }
}
