// The partition of a node's rows by its cut.
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
    // Invariant: before pl all rows belong left, in [middle, pr) all belong right. Each swap moves
    // one misplaced row of either side. A threshold that overflowed to infinity may leave too few
    // misplaced rows on the right, hence the second bound.
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
