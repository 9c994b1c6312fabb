// Singleton's quicksort without branches on keys; see ReferenceOrder.h.
//
// The segments, their pivots and the pairs that change places are those of src/Sort/IndexSort.cpp.
// They depend on the ranks only. What differs is how the pairs are found: a kernel compares 64 keys
// with the pivot at a time. And segments behind the first `numFirst` keys are left alone: of the
// other segments, only those at the front affect the choice of pivots.
#include "ReferenceOrder.h"

#include <algorithm>

#include "KeySort.h"
#include "RowKernels.h"

namespace sylvora {
namespace engine {
namespace {

// As in src/Sort/IndexSort.cpp.
constexpr double kFirstFraction = 0.375;
constexpr double kFractionStep = 0.0390625;
constexpr double kFractionLimit = 0.5898437;
constexpr double kFractionDrop = 0.21875;
constexpr int kShortSegment = 10;
constexpr int kStackSize = 31;

constexpr int kWordKeys = 64;
static_assert(kWordKeys == kReferenceOrderSlack, "a word of marks is the most that is read");

// The keys i to j.
struct Segment {
    int i, j;
};

// The keys at which the cursors of a partition stop, marked in words of 64 keys. The left cursor
// stops at keys of the pivot's rank or above, the right one at keys of its rank or below. A word is
// computed when a cursor reaches it, so its marks are true of keys that have not changed places
// since: of all between the cursors.
class Stops {
  public:
    Stops(const RowKernels& rowKernels, const uint64_t* keys, uint32_t pivot)
        : kernels(rowKernels), keyV(keys), least(KeyOf(pivot, 0)), above(KeyOf(pivot + 1, 0)) {}

    // The first stop of the left cursor behind `at`. There is one.
    int Next(int at) {
        ++at;
        uint64_t word = at / kWordKeys == leftWord ? left : LoadLeft(at / kWordKeys);
        word &= ~uint64_t{0} << at % kWordKeys;
        while (word == 0) word = LoadLeft(leftWord + 1);
        return leftWord * kWordKeys + __builtin_ctzll(word);
    }

    // The last stop of the right cursor before `at`. There is one.
    int Previous(int at) {
        --at;
        uint64_t word = at / kWordKeys == rightWord ? right : LoadRight(at / kWordKeys);
        word &= ~uint64_t{0} >> (kWordKeys - 1 - at % kWordKeys);
        while (word == 0) word = LoadRight(rightWord - 1);
        return rightWord * kWordKeys + kWordKeys - 1 - __builtin_clzll(word);
    }

  private:
    uint64_t LoadLeft(int word) {
        leftWord = word;
        return left = kernels.markAtLeast(keyV + word * kWordKeys, least);
    }
    uint64_t LoadRight(int word) {
        rightWord = word;
        return right = ~kernels.markAtLeast(keyV + word * kWordKeys, above);
    }

    const RowKernels& kernels;
    const uint64_t* const keyV;
    const uint64_t least, above;
    int leftWord = -1;
    int rightWord = -1;
    uint64_t left = 0;
    uint64_t right = 0;
};

class Sorter {
  public:
    Sorter(uint64_t* keys, int num) : keyV(keys), numFirst(num) {}

    // The main loop of R_tsort_I. A segment behind the first keys is as good as sorted.
    void Sort(int count) {
        Segment stack[kStackSize];
        int numStacked = 0;
        double fraction = kFirstFraction;
        Segment s = {0, count - 1};
        bool fTop = true;
        for (;;) {
            if (!fTop && s.j - s.i <= kShortSegment && s.i == 0) fTop = true;
            if (fTop ? s.i >= s.j : IsSorted(s)) {
                if (numStacked == 0) return;
                s = stack[--numStacked];
                fTop = false;
                continue;
            }
            if (fTop) fraction += fraction < kFractionLimit ? kFractionStep : -kFractionDrop;
            Segment left, right;
            Partition(s, fraction, left, right);
            const bool fPushRight = left.j - left.i <= right.j - right.i;
            stack[numStacked++] = fPushRight ? right : left;
            s = fPushRight ? left : right;
            fTop = false;
        }
    }

  private:
    uint32_t Rank(int at) const { return RankOf(keyV[at]); }

    // Sorts a short segment, and one of equal keys that is not at the front.
    bool IsSorted(Segment s) {
        if (s.i >= numFirst) return true;
        if (s.j - s.i <= kShortSegment) {
            SortShort(s);
            return true;
        }
        if (s.i == 0 || !IsEqual(s)) return false;
        ReorderEqual(s);
        return true;
    }

    bool IsEqual(Segment s) const {
        const uint32_t rank = Rank(s.j);
        int at = s.i;
        while (Rank(at) == rank && at < s.j) ++at;
        return at == s.j;
    }

    // With equal keys both cursors stop at each key, so that the inner keys are reversed. No pivot
    // matters, nor the order of the segments.
    void ReorderEqual(Segment s) {
        while (s.j - s.i > kShortSegment) {
            std::reverse(keyV + s.i + 1, keyV + s.j);
            const int last = s.i + (s.j - s.i - 1) / 2;
            ReorderEqual({s.i, last});
            s.i = s.j - (last - s.i);
            if (s.i >= numFirst) return;
        }
    }

    // An insertion sort, stable as in R_tsort_I.
    void SortShort(Segment s) {
        for (int next = s.i + 1; next <= s.j; ++next) {
            const uint64_t key = keyV[next];
            int k = next;
            for (; k > s.i && Rank(k - 1) > RankOf(key); --k) keyV[k] = keyV[k - 1];
            keyV[k] = key;
        }
    }

    void Partition(Segment s, double fraction, Segment& left, Segment& right) {
        const int middle = s.i + static_cast<int>((s.j - s.i) * fraction);
        if (Rank(s.i) > Rank(middle)) std::swap(keyV[s.i], keyV[middle]);
        if (Rank(s.j) < Rank(middle)) {
            std::swap(keyV[s.j], keyV[middle]);
            if (Rank(s.i) > Rank(middle)) std::swap(keyV[s.i], keyV[middle]);
        }
        Stops stops(kernels, keyV, Rank(middle));
        int low = s.i;
        int high = s.j;
        for (;;) {
            // A cursor stops at the latest where the other exchanged its last key.
            const int l = std::max(stops.Previous(high), low);
            const int k = std::min(stops.Next(low), high);
            left = {s.i, l};
            right = {k, s.j};
            if (k > l) return;
            if (k == l) break;
            std::swap(keyV[l], keyV[k]);
            low = k;
            high = l;
        }
        --left.j;
        ++right.i;
    }

    const RowKernels& kernels = BestRowKernels();
    uint64_t* const keyV;
    const int numFirst;
};

}  // namespace

void SortFirst(uint64_t* keyV, int count, int numFirst) {
    Sorter(keyV, numFirst).Sort(count);
}

}  // namespace engine
}  // namespace sylvora
