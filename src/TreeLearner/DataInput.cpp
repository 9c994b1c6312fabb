// Data sets on their way into the learner's arrays.
#include <algorithm>
#include <locale>
#include <unordered_set>
#include <utility>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::Print;

namespace {

enum SetType { kTraining = 0, kTest = 1, kDevelopment = 2 };

// Copies one row into an array of its own and frees the vector.
int MoveRow(VecDle& row, double*& stored, const char* name) {
    if (AllocateArray(stored, static_cast<int>(row.size()), name) != 0) return -1;
    std::copy(row.begin(), row.end(), stored);
    VecDle().swap(row);
    return 0;
}

int CopyQueries(const VecInt& q, int*& queries, const char* name) {
    if (AllocateArray(queries, static_cast<int>(q.size()), name) != 0) return -1;
    std::copy(q.begin(), q.end(), queries);
    return 0;
}

}  // namespace

int TreeLearner::DataInput(VecDle l, VecVecDle f, int type, VecInt q, VecDle lvir) {
    return sylvora::Guarded([&] {
        if (CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        if (l.size() != f.size() || !lvir.empty()) {
            return Fail("ERROR: Data transformed into Ranking Model is wrong!\n");
        }
        if (l.empty()) return Fail("ERROR: No training data for tree models!\n");
        const size_t width = f[0].size();
        for (size_t i = 0; i < f.size(); ++i) {
            if (f[i].size() == width) continue;
            return Fail("ERROR: Row ", i, " has ", f[i].size(), " features, row 0 has ", width,
                        ": all rows must be of one length!\n");
        }
        const int numData = static_cast<int>(l.size());
        dimFea = static_cast<int>(width);
        if (dimFea == 0) return Fail("ERROR: None features for training data!\n");
        if (CopySet(l, f, q, type) != 0) return -1;
        if (CfgInfo.fPrint) {
            Print("Data Input Complete, numData: ", numData, ", dimFea:", dimFea, "\n");
        }
        if (fDebug) OpenDebugFile(numData);
        return 0;
    });
}

int TreeLearner::CopySet(const VecDle& l, VecVecDle& f, const VecInt& q, int type) {
    if (type == kTraining) return CopyTrainingSet(l, f, q);
    if (type != kTest && type != kDevelopment) return 0;
    const bool fTest = type == kTest;
    if (fTest) {
        FreeTestData();
    } else {
        FreeDevelopmentData();
    }
    double*& labels = fTest ? labelTestV : labelDevV;
    double**& rows = fTest ? featureTestVV : featureDevVV;
    const int numData = (fTest ? testSize : devSize) = static_cast<int>(l.size());
    if (AllocateArray(labels, numData, fTest ? "allocating labelTestV" : "allocating labelDevV") !=
            0 ||
        AllocateArray(rows, numData,
                      fTest ? "allocating featureTestVV" : "allocating featureDevVV") != 0) {
        return -1;
    }
    std::copy(l.begin(), l.end(), labels);
    if (fTest) testDim = dimFea;
    for (size_t i = 0; i < f.size(); ++i) {
        const char* name = fTest ? "allocating featureTestVV[]" : "allocating featureDevVV[]";
        if (MoveRow(f[i], rows[i], name) != 0) return -1;
    }
    if (q.size() != l.size()) return 0;
    return CopyQueries(q, fTest ? queryIdTestV : queryIdDevV,
                       fTest ? "allocating queryIdTestV" : "allocating queryIdDevV");
}

int TreeLearner::CopyTrainingSet(const VecDle& l, VecVecDle& f, const VecInt& q) {
    FreeTrainingData();
    sampleSize = static_cast<int>(l.size());
    numClass = 0;
    if (AllocateArray(labelV, sampleSize, "allocating labelV") != 0 ||
        AllocateArray(featureVV, sampleSize, "allocating featureVV") != 0) {
        return -1;
    }
    featureMean = static_cast<double*>(std::calloc(static_cast<size_t>(dimFea), sizeof(double)));
    if (featureMean == nullptr) {
        return Fail("ERROR: Failed to allocate memory for featureMean!\n");
    }
    const bool fClasses = CfgInfo.fRegCls == "CLS";
    std::unordered_set<int> classes;
    for (size_t i = 0; i < f.size(); ++i) {
        if (MoveRow(f[i], featureVV[i], "allocating featureVV[]") != 0) return -1;
        labelV[i] = l[i];
        if (fClasses) classes.insert(sylvora::Truncate<int>(l[i]));
        // Deliberately divided after every record; see the header.
        for (int j = 0; j < dimFea; ++j) {
            featureMean[j] = (featureMean[j] + featureVV[i][j]) / sampleSize;
        }
    }
    numClass = static_cast<int>(classes.size());
    CfgInfo.numClass = numClass;
    if (CfgInfo.modelType != "GBRank") return 0;
    if (q.size() != l.size()) return Fail("ERROR: Size of qid does not match the data!\n");
    return CopyQueries(q, queryIdV, "allocating queryIdV");
}

// Every set opens the report anew; its header tells of the last one. A report that cannot be
// opened is left out.
void TreeLearner::OpenDebugFile(int numData) {
    if (of_debug.is_open()) of_debug.close();
    of_debug.clear();
    of_debug.open(fileDebug);
    of_debug.imbue(std::locale::classic());
    const int numSampled = sylvora::Truncate<int>(dimFea * CfgInfo.ratio - 1e-10) + 1;
    of_debug << numTree << ' ' << CfgInfo.maxLeaf << ' ' << numData << ' ' << numSampled << '\n';
}
