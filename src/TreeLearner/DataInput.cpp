// Taking data sets into the learner's arrays, by copying vectors or by adopting arrays.
//
// A set may be given again; the new one replaces the old one. After a failure the set is
// incomplete, but everything allocated is in the learner's members, so Destroy frees it.
#include <algorithm>
#include <cerrno>
#include <locale>
#include <unordered_set>
#include <utility>

#include "../Node/SampledColumns.h"
#include "../Output/DirectOutput.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::Print;

namespace {

// The values of the parameter `type`. Any other is accepted and ignored.
enum SetType { kTraining = 0, kTest = 1, kDevelopment = 2 };

// Copies one row into a new array, which the caller owns, and frees the vector: at no time are all
// rows in memory twice.
int MoveRow(VecDle& row, double*& stored, const char* name) {
    if (AllocateArray(stored, static_cast<int>(row.size()), name) != 0) return -1;
    std::copy(row.begin(), row.end(), stored);
    VecDle().swap(row);
    return 0;
}

// Replaces `queries` by a copy of `q`, which the caller owns. Returns 0, or -1 after a message.
int CopyQueries(const VecInt& q, int*& queries, const char* name) {
    if (AllocateArray(queries, static_cast<int>(q.size()), name) != 0) return -1;
    std::copy(q.begin(), q.end(), queries);
    return 0;
}

bool IsSet(int type) {
    return type == kTraining || type == kTest || type == kDevelopment;
}

// The arrays that DataAdopt was given. Frees what was not handed over to the learner.
struct AdoptedArrays {
    double* labels;
    double** rows;
    int numRows;

    ~AdoptedArrays() {
        sylvora::FreeArray(labels);
        sylvora::FreeRows(rows, numRows);
    }
};

}  // namespace

// References to the learner's members for one set, and the names of their allocations in messages.
struct TreeLearner::SetPlace {
    bool fTraining;
    int& numData;
    int& numColumns;
    double*& labels;
    double**& rows;
    int*& queries;
    const char *labelsName, *rowsName, *rowName, *queriesName;
};

int TreeLearner::DataInput(VecDle l, VecVecDle f, int type, VecInt q, VecDle lvir) {
    return sylvora::Guarded([&] {
        if (RefuseAtWork("DataInput") != 0) return -1;
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
        dimFea = static_cast<int>(width);  // of the set given last; see DescribeWidth
        return StoreSet(type, static_cast<int>(l.size()), q,
                        [&](const SetPlace& place) { return CopyRows(place, l, f); });
    });
}

int TreeLearner::DataAdopt(double* labels, double** rows, int numData, int numColumn, VecInt q,
                           int type) {
    AdoptedArrays arrays = {labels, rows, numData};
    return sylvora::Guarded([&] {
        if (RefuseAtWork("DataAdopt") != 0) return -1;
        if (CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        if (numData <= 0) return Fail("ERROR: No training data for tree models!\n");
        dimFea = numColumn;
        return StoreSet(type, numData, q, [&](const SetPlace& place) {
            // The members are null here, so `arrays` has nothing left to free.
            std::swap(place.labels, arrays.labels);
            std::swap(place.rows, arrays.rows);
            for (int i = 0; place.fTraining && i < numData; ++i) AddToMean(place.rows[i]);
            return 0;
        });
    });
}

// Stores a set of `numData` rows with dimFea columns. `fill` stores the labels and the rows in the
// given members and returns 0, or -1 after a message.
template <typename Fill>
int TreeLearner::StoreSet(int type, int numData, const VecInt& q, Fill fill) {
    if (dimFea <= 0) return Fail("ERROR: None features for training data!\n");
    if (IsSet(type)) {
        const SetPlace place = ClearPlace(type);
        place.numData = numData;
        place.numColumns = dimFea;
        if (place.fTraining) {
            meanDim = dimFea;
            const size_t numColumns = static_cast<size_t>(dimFea);
            featureMean = static_cast<double*>(std::calloc(numColumns, sizeof(double)));
            if (featureMean == nullptr) {
                return Fail("ERROR: Failed to allocate memory for featureMean!\n");
            }
        }
        if (fill(place) != 0 || FinishSet(place, q) != 0) return -1;
    }
    if (CfgInfo.fPrint) {
        Print("Data Input Complete, numData: ", numData, ", dimFea:", dimFea, "\n");
    }
    if (fDebug) OpenDebugFile(numData);
    return 0;
}

// The members of a set, after the set of an earlier call was freed.
TreeLearner::SetPlace TreeLearner::ClearPlace(int type) {
    if (type == kTraining) {
        FreeTrainingData();
        numClass = 0;
        return {true,
                sampleSize,
                trainDim,
                labelV,
                featureVV,
                queryIdV,
                "allocating labelV",
                "allocating featureVV",
                "allocating featureVV[]",
                "allocating queryIdV"};
    }
    if (type == kTest) {
        FreeTestData();
        return {false,
                testSize,
                testDim,
                labelTestV,
                featureTestVV,
                queryIdTestV,
                "allocating labelTestV",
                "allocating featureTestVV",
                "allocating featureTestVV[]",
                "allocating queryIdTestV"};
    }
    FreeDevelopmentData();
    return {false,
            devSize,
            devDim,
            labelDevV,
            featureDevVV,
            queryIdDevV,
            "allocating labelDevV",
            "allocating featureDevVV",
            "allocating featureDevVV[]",
            "allocating queryIdDevV"};
}

// Copies labels and rows into the set's members, and frees each vector of `f` on the way.
int TreeLearner::CopyRows(const SetPlace& place, const VecDle& l, VecVecDle& f) {
    if (AllocateArray(place.labels, place.numData, place.labelsName) != 0 ||
        AllocateArray(place.rows, place.numData, place.rowsName) != 0) {
        return -1;
    }
    std::copy(l.begin(), l.end(), place.labels);
    for (size_t i = 0; i < f.size(); ++i) {
        if (MoveRow(f[i], place.rows[i], place.rowName) != 0) return -1;
        if (place.fTraining) AddToMean(place.rows[i]);
    }
    return 0;
}

// Counts the classes of training data and stores the query ids. Only ranking needs them for
// training. Test and development sets keep them if there is one per row.
int TreeLearner::FinishSet(const SetPlace& place, const VecInt& q) {
    const bool fComplete = q.size() == static_cast<size_t>(place.numData);
    if (place.fTraining) {
        CountClasses();
        if (CfgInfo.modelType != "GBRank") return 0;
        if (!fComplete) return Fail("ERROR: Size of qid does not match the data!\n");
    }
    return fComplete ? CopyQueries(q, place.queries, place.queriesName) : 0;
}

// Deliberately divides after every row, not once at the end; see DataInput in the header. The order
// of rows is part of the result.
void TreeLearner::AddToMean(const double* row) {
    for (int j = 0; j < dimFea; ++j) featureMean[j] = (featureMean[j] + row[j]) / sampleSize;
}

// Sets numClass to the number of distinct labels, truncated to integers; 0 for a regression.
void TreeLearner::CountClasses() {
    std::unordered_set<int> classes;
    for (int i = 0; CfgInfo.fRegCls == "CLS" && i < sampleSize; ++i) {
        classes.insert(sylvora::Truncate<int>(labelV[i]));
    }
    CfgInfo.numClass = numClass = static_cast<int>(classes.size());
}

// Opens the debug report and writes its first line. Every set truncates the report, so the line
// describes the set given last. A failure is recorded in debugError and does not end the run.
void TreeLearner::OpenDebugFile(int numData) {
    if (of_debug.is_open()) of_debug.close();
    of_debug.clear();
    const bool fOpened = sylvora::OpenDirectly(
        fileDebug, [this] { return AskUser() != 0; }, of_debug);
    debugError = fOpened ? 0 : errno;
    of_debug.imbue(std::locale::classic());
    const int numSampled = sylvora::NumSampledColumns(dimFea, CfgInfo.ratio);
    of_debug << numTree << ' ' << CfgInfo.maxLeaf << ' ' << numData << ' ' << numSampled << '\n';
}
