// Taking data sets, by copying vectors, by adopting arrays or by borrowing a coded set.
//
// A set may be given again; the new one replaces the old one. After a failure the set is
// incomplete, but everything allocated is in the learner's members, so Destroy frees it.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <locale>
#include <unordered_set>
#include <utility>

#include "../DataSet/CodedData.h"
#include "../Node/SampledColumns.h"
#include "../Output/DirectOutput.h"
#include "../Ranks.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/Truncation.h"
#include "Arrays.h"
#include "CallScope.h"

using sylvora::AllocateArray;
using sylvora::Fail;
using sylvora::FreeArray;
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

// References to the learner's members for one set, and the names of their allocations in messages.
struct SetPlace {
    bool fTraining;
    int& numData;
    int& numColumns;
    double*& labels;
    double**& rows;
    int*& queries;
    const char *labelsName, *rowsName, *rowName, *queriesName;
};

}  // namespace

// The steps of taking a set; each returns 0, or -1 after a message.
class TreeLearner::Intake {
  public:
    explicit Intake(TreeLearner& taker) : learner(taker) {}

    // Stores a set of `numData` rows with dimFea columns. `fill` stores the labels and the rows in
    // the given members.
    template <typename Fill>
    int Store(int type, int numData, const VecInt& q, Fill fill);
    // Copies labels and rows into the set's members, and frees each vector of `f` on the way.
    int CopyRows(const SetPlace& place, const VecDle& l, VecVecDle& f);
    void AddToMean(const double* row) {
        for (int j = 0; j < learner.dimFea; ++j) {
            double& mean = learner.featureMean[j];
            mean = sylvora::NextMean(mean, row[j], learner.sampleSize);
        }
    }

  private:
    SetPlace ClearPlace(int type);
    int Finish(const SetPlace& place, const VecInt& q);
    void CountClasses();
    void OpenDebugFile(int numData);

    TreeLearner& learner;
};

int TreeLearner::DataInput(VecDle l, VecVecDle f, int type, VecInt q, VecDle lvir) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        if (RefuseAtWork("DataInput") != 0) return -1;
        if (CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        if (l.size() != f.size() || !lvir.empty()) {
            return Fail("ERROR: Data transformed into Ranking Model is wrong!\n");
        }
        if (l.empty()) return Fail("ERROR: No training data for tree models!\n");
        const size_t width = f[0].size();
        if (l.size() > INT_MAX || width > INT_MAX) {
            return Fail("ERROR: The data have ", l.size(), " rows and ", width,
                        " features: neither may be more than ", INT_MAX, "!\n");
        }
        for (size_t i = 0; i < f.size(); ++i) {
            if (f[i].size() == width) continue;
            return Fail("ERROR: Row ", i, " has ", f[i].size(), " features, row 0 has ", width,
                        ": all rows must be of one length!\n");
        }
        dimFea = static_cast<int>(width);  // of the set given last; see DescribeWidth
        Intake intake(*this);
        return intake.Store(type, static_cast<int>(l.size()), q,
                            [&](const SetPlace& place) { return intake.CopyRows(place, l, f); });
    });
}

int TreeLearner::DataAdopt(double* labels, double** rows, int numData, int numColumn, VecInt q,
                           int type) {
    const CallScope scope(*this);
    AdoptedArrays arrays = {labels, rows, numData};
    return sylvora::Guarded([&] {
        if (RefuseAtWork("DataAdopt") != 0) return -1;
        if (CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        if (numData <= 0) return Fail("ERROR: No training data for tree models!\n");
        dimFea = numColumn;
        Intake intake(*this);
        return intake.Store(type, numData, q, [&](const SetPlace& place) {
            // The members are null here, so `arrays` has nothing left to free.
            std::swap(place.labels, arrays.labels);
            std::swap(place.rows, arrays.rows);
            for (int i = 0; place.fTraining && i < numData; ++i) intake.AddToMean(place.rows[i]);
            return 0;
        });
    });
}

int TreeLearner::DataBorrow(std::shared_ptr<const sylvora::DataSet> set, const double* labels,
                            int numLabels, const int* queries, int numQueries) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        if (RefuseAtWork("DataBorrow") != 0) return -1;
        if (CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        if (set == nullptr) return Fail("ERROR: There is no data set to borrow!\n");
        if (labels == nullptr) return Fail("ERROR: The labels of a data set are a null pointer!\n");
        if (fDebug && trainingOptions.ranks == nullptr) {
            return Fail(
                "ERROR: A debug report needs copied rows: use DataInput, or no fileDebug!\n");
        }
        const int numRows = set->NumRows();
        const bool fQueries = queries != nullptr && CfgInfo.modelType == "GBRank";
        if (numLabels != numRows || (fQueries && numQueries != numRows)) {
            return Fail("ERROR: The data set has ", numRows, " rows, but there are ", numLabels,
                        " labels", fQueries ? sylvora::Text(" and ", numQueries, " query ids") : "",
                        ": one per row is needed!\n");
        }
        const double* const wrong = std::find_if_not(
            labels, labels + numRows, [](double label) { return std::isfinite(label); });
        if (wrong != labels + numRows) {
            return Fail("ERROR: The label of row ", wrong - labels, " is ", *wrong,
                        ": labels must be finite numbers!\n");
        }
        const auto means = set->Shared()->Means();
        if (!means->fault.empty()) return Fail("ERROR: ", means->fault, "!\n");
        for (const int column : means->belowMissingV) {
            sylvora::Warn("Notice: column ", column,
                          " has missing values, which are read as -2147483648, and values below "
                          "that: a split may send missing values to the right\n");
        }
        dimFea = set->NumColumns();
        Intake intake(*this);
        return intake.Store(kTraining, numRows,
                            fQueries ? VecInt(queries, queries + numRows) : VecInt(),
                            [&](const SetPlace& place) {
                                if (AllocateArray(place.labels, numRows, place.labelsName) != 0)
                                    return -1;
                                std::copy_n(labels, numRows, place.labels);
                                borrowed = set;
                                std::copy(means->meanV.begin(), means->meanV.end(), featureMean);
                                return 0;
                            });
    });
}

template <typename Fill>
int TreeLearner::Intake::Store(int type, int numData, const VecInt& q, Fill fill) {
    if (learner.dimFea <= 0) return Fail("ERROR: None features for training data!\n");
    if (IsSet(type)) {
        const SetPlace place = ClearPlace(type);
        place.numData = numData;
        place.numColumns = learner.dimFea;
        if (place.fTraining) {
            learner.meanDim = learner.dimFea;
            const size_t numColumns = static_cast<size_t>(learner.dimFea);
            learner.featureMean = static_cast<double*>(std::calloc(numColumns, sizeof(double)));
            if (learner.featureMean == nullptr) {
                return Fail("ERROR: Failed to allocate memory for featureMean!\n");
            }
        }
        if (fill(place) != 0 || Finish(place, q) != 0) return -1;
    }
    if (learner.CfgInfo.fPrint) {
        Print("Data Input Complete, numData: ", numData, ", dimFea:", learner.dimFea, "\n");
    }
    if (learner.fDebug) OpenDebugFile(numData);
    return 0;
}

// The members of a set, after the set of an earlier call was freed.
SetPlace TreeLearner::Intake::ClearPlace(int type) {
    if (type == kTraining) {
        learner.FreeTrainingData();
        FreeArray(learner.featureMean);
        learner.meanDim = 0;
        learner.numClass = 0;
        return {true,
                learner.sampleSize,
                learner.trainDim,
                learner.labelV,
                learner.featureVV,
                learner.queryIdV,
                "allocating labelV",
                "allocating featureVV",
                "allocating featureVV[]",
                "allocating queryIdV"};
    }
    if (type == kTest) {
        learner.FreeTestData();
        return {false,
                learner.testSize,
                learner.testDim,
                learner.labelTestV,
                learner.featureTestVV,
                learner.queryIdTestV,
                "allocating labelTestV",
                "allocating featureTestVV",
                "allocating featureTestVV[]",
                "allocating queryIdTestV"};
    }
    learner.FreeDevelopmentData();
    return {false,
            learner.devSize,
            learner.devDim,
            learner.labelDevV,
            learner.featureDevVV,
            learner.queryIdDevV,
            "allocating labelDevV",
            "allocating featureDevVV",
            "allocating featureDevVV[]",
            "allocating queryIdDevV"};
}

int TreeLearner::Intake::CopyRows(const SetPlace& place, const VecDle& l, VecVecDle& f) {
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
int TreeLearner::Intake::Finish(const SetPlace& place, const VecInt& q) {
    const bool fComplete = q.size() == static_cast<size_t>(place.numData);
    if (place.fTraining) {
        CountClasses();
        if (learner.CfgInfo.modelType != "GBRank") return 0;
        if (!fComplete) return Fail("ERROR: Size of qid does not match the data!\n");
    }
    return fComplete ? CopyQueries(q, place.queries, place.queriesName) : 0;
}

// Sets numClass to the number of distinct labels, truncated to integers; 0 for a regression.
void TreeLearner::Intake::CountClasses() {
    std::unordered_set<int> classes;
    for (int i = 0; learner.CfgInfo.fRegCls == "CLS" && i < learner.sampleSize; ++i) {
        classes.insert(sylvora::Truncate<int>(learner.labelV[i]));
    }
    learner.CfgInfo.numClass = learner.numClass = static_cast<int>(classes.size());
}

// Opens the debug report and writes its first line. Every set truncates the report, so the line
// describes the set given last. Of several ranks, rank 0 writes it. A failure is recorded in
// debugError and does not end the run.
void TreeLearner::Intake::OpenDebugFile(int numData) {
    sylvora::Ranks* const ranks = learner.trainingOptions.ranks;
    if (ranks != nullptr && ranks->Rank() != 0) return;
    std::ofstream& report = learner.of_debug;
    if (report.is_open()) report.close();
    report.clear();
    const bool fOpened = sylvora::OpenDirectly(
        learner.fileDebug, [this] { return learner.AskUser() != 0; }, report);
    learner.debugError = fOpened ? 0 : errno;
    report.imbue(std::locale::classic());
    const int numSampled = sylvora::NumSampledColumns(learner.dimFea, learner.CfgInfo.ratio);
    report << learner.numTree << ' ' << learner.CfgInfo.maxLeaf << ' ' << numData << ' '
           << numSampled << '\n';
}
