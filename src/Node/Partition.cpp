// Partitions a node's rows by its split.
#include <cstdint>
#include <utility>

#include "../Node.h"

// The exchange of DataSplit. belongsLeft(position, fInLeftPart) says on which side a row belongs,
// given the part in which it lies.
template <typename IsLeft>
void NodeCR::ExchangeRows(int* indexV, const IsLeft& belongsLeft) {
    // Invariant: all rows in [startDoc, pl) belong left and all in [middle, pr) belong right. Each
    // swap corrects one misplaced row of either side. countL normally is the number of rows that
    // belong left, so both sides have equally many misplaced rows. A threshold that overflowed to
    // infinity breaks that; hence the check of both bounds.
    const int middle = startDoc + countL;
    const int end = startDoc + countDoc;
    int pl = startDoc;
    int pr = middle;
    for (;;) {
        while (pl < middle && belongsLeft(pl, true)) ++pl;
        while (pl < middle && pr < end && !belongsLeft(pr, false)) ++pr;
        if (pl == middle || pr == end) break;
        std::swap(indexV[pl++], indexV[pr++]);
    }
}

// NaN compares false, so a NaN left of the middle is misplaced, while one right of it stops the
// cursor and is swapped to the left.
int NodeCR::DataSplit(double** featureVV, int*& indexV) {
    if (splitFea == -1 || countL == 0 || countL == countDoc) {
        status = "TERMINAL";
        return 0;
    }
    ExchangeRows(indexV, [&](int position, bool fInLeftPart) {
        return BelongsLeft(featureVV[indexV[position]][splitFea], fInLeftPart);
    });
    status = "INTERMEDIATE";
    return 0;
}

void NodeCR::SidesOfRows(double** featureVV, const int* indexV, uint8_t* fLeftV) const {
    for (int i = 0; i < countDoc; ++i) {
        fLeftV[i] = BelongsLeft(featureVV[indexV[startDoc + i]][splitFea], i < countL);
    }
}

// No swap changes the part or the mark of a row that is still to be visited.
void NodeCR::SplitBySides(const uint8_t* fLeftV, int* indexV) {
    if (splitFea == -1 || countL == 0 || countL == countDoc) {
        status = "TERMINAL";
        return;
    }
    ExchangeRows(indexV, [&](int position, bool) { return fLeftV[position - startDoc] != 0; });
    status = "INTERMEDIATE";
}
