// The output of a node: a weighted mean of its rows, or their majority class.
#include <cstdlib>

#include "../Node.h"
#include "../god/Report.h"
#include "../god/Truncation.h"

int NodeCR::GetGradSum(const double*& gradV, const int*& indexV, const int*& numDocPairQueV) {
    double sum = 0.0;
    long long weight = 0;  // by hand, a node can get weights that no int holds
    for (int i = startDoc; i < startDoc + countDoc; ++i) {
        sum += gradV[indexV[i]];
        weight += numDocPairQueV[indexV[i]];
    }
    gradAll = sum;
    wgtAll = static_cast<int>(weight);
    avgPredict = gradAll / wgtAll;
    return 0;
}

int NodeCR::GetGradSumCls(const double*& gradV, const int*& indexV, int numClass) {
    ReleaseClassCounts();
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
    int best = -1;
    for (int cls = 0; cls < numClass; ++cls) {
        if (best < 0 || statClassAll[cls] > statClassAll[best]) best = cls;
        if (statClassAll[cls] > countDoc * 0.5) break;
    }
    avgPredict = best;
    if (best >= 0 && countDoc > 0 && statClassAll[best] == countDoc) {
        status = "TERMINAL";
        ReleaseClassCounts();
    }
    return 0;
}
