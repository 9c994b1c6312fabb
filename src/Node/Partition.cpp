// Partitions a node's rows by its split.
#include <utility>

#include "../Node.h"

int NodeCR::DataSplit(double** featureVV, int*& indexV) {
    if (splitFea == -1 || countL == 0 || countL == countDoc) {
        status = "TERMINAL";
        return 0;
    }
    const auto value = [this, featureVV, indexV](int position) {
        return featureVV[indexV[position]][splitFea];
    };
    // Invariant: all rows in [startDoc, pl) belong left and all in [middle, pr) belong right. Each
    // swap corrects one misplaced row of either side. countL normally is the number of rows that
    // belong left, so both sides have equally many misplaced rows. A threshold that overflowed to
    // infinity breaks that; hence the check of both bounds. NaN compares false, so a NaN left of
    // `middle` is misplaced, while one right of it stops the cursor and is swapped to the left.
    const int middle = startDoc + countL;
    const int end = startDoc + countDoc;
    int pl = startDoc;
    int pr = middle;
    for (;;) {
        while (pl < middle && value(pl) <= splitElemFea) ++pl;
        while (pl < middle && pr < end && value(pr) > splitElemFea) ++pr;
        if (pl == middle || pr == end) break;
        std::swap(indexV[pl++], indexV[pr++]);
    }
    status = "INTERMEDIATE";
    return 0;
}
