// The output of a node: the weighted mean of its rows' gradients, or their majority class.
#include <cstdlib>

#include "../Node.h"
#include "../god/Report.h"
#include "../god/Truncation.h"

int NodeCR::GetGradSum(const double*& gradV, const int*& indexV, const int*& numDocPairQueV) {
    double sum = 0.0;
    // TreeCR refuses weights whose sum exceeds an int, but direct callers may pass such weights.
    long long weight = 0;
    // Sums in the order of the slice; the bits of the leaf value depend on it.
    for (int i = startDoc; i < startDoc + countDoc; ++i) {
        sum += gradV[indexV[i]];
        weight += numDocPairQueV[indexV[i]];
    }
    gradAll = sum;
    wgtAll = static_cast<int>(weight);
    avgPredict = gradAll / wgtAll;
    return 0;
}

// On failure the counts stay allocated; the node owns and later frees them.
int NodeCR::GetGradSumCls(const double*& gradV, const int*& indexV, int numClass) {
    ReleaseClassCounts();
    // At least one entry, because calloc(0) may return null.
    const size_t numCounts = numClass > 0 ? static_cast<size_t>(numClass) : 1;
    statClassAll = static_cast<int*>(std::calloc(numCounts, sizeof(int)));
    if (statClassAll == nullptr) {
        return sylvora::Fail("ERROR: Failed allocate memory when allocating statClassAll!\n");
    }
    for (int i = startDoc; i < startDoc + countDoc; ++i) {
        const double label = gradV[indexV[i]];
        const int cls = sylvora::Truncate<int>(label);
        if (cls < 0 || cls >= numClass) {
            return sylvora::Fail("ERROR: Class id must be consecutive integers from 0, ", numClass,
                                 " classes but label: ", label, " found!\n");
        }
        ++statClassAll[cls];
    }
    // The first class with the largest count. A class with more than half of the rows ends the
    // search early.
    int best = -1;
    for (int cls = 0; cls < numClass; ++cls) {
        if (best < 0 || statClassAll[cls] > statClassAll[best]) best = cls;
        if (statClassAll[cls] > countDoc * 0.5) break;
    }
    avgPredict = best;
    // A pure node is not searched, so it needs no class counts any more.
    if (best >= 0 && countDoc > 0 && statClassAll[best] == countDoc) {
        status = "TERMINAL";
        ReleaseClassCounts();
    }
    return 0;
}
