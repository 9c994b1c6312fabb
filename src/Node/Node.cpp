// Construction of a node, the start of its growth, and its memory. The search is in
// SplitSearch.cpp.
#include "../Node.h"

#include <cstdlib>
#include <string>

#include "SampledColumns.h"

NodeCR::NodeCR(int dim, double r, int b, int d)
    : numBound(b),
      depBound(d),
      dimFeature(dim),
      numSelFea(sylvora::NumSampledColumns(dim, r)),
      ratio(r) {}

NodeCR::~NodeCR() {
    ReleaseCandidates();
    ReleaseClassCounts();
    pthread_mutex_destroy(&split_node_mutex);
}

int NodeCR::Init(int s, int n, int p, int d, bool f, std::string mt, std::string fRC) {
    // A node may be initialised again: what an earlier growth left is freed below.
    status = "TOSPLIT";
    startDoc = s;
    countDoc = n;
    parent = p;
    depth = d;
    splitFea = -1;
    splitElemFea = -1.0;
    lson = rson = -1;
    avgPredict = -1000.0;
    fPrint = f;
    fSpecifySplitValue = false;
    ReleaseCandidates();
    ReleaseClassCounts();
    fRegCls = fRC != "REG";
    // The root may be split whatever its size. A RandomForest has no limit on depth.
    const bool fTooSmall = n <= numBound && d >= 1;
    const bool fTooDeep = d >= depBound && mt != "RandomForest";
    if (fTooSmall || fTooDeep) status = "TERMINAL";
    return 0;
}

// The lists live from SamplingFeature to the end of the search.
void NodeCR::ReleaseCandidates() {
    std::free(selFeaV);
    std::free(selFeaValue);
    selFeaV = nullptr;
    selFeaValue = nullptr;
}

void NodeCR::ReleaseClassCounts() {
    std::free(statClassAll);
    statClassAll = nullptr;
}
