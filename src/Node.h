// One node of a tree: the record that models are made of, and the search for its best split. This
// is the reference implementation of the search; the engine must find the same splits, bit for bit.
//
// While a tree grows, the rows of a node are the slice [startDoc, startDoc + countDoc) of the
// tree's row index; the slices of its children divide it. The steps for a node are:
//   1. GetGradSum or GetGradSumCls computes the leaf value.
//   2. If the node is still "TOSPLIT", SamplingFeature samples columns. The k-th sampled column is
//      said to be in slot k.
//   3. One of the GetSplitPoint functions searches these columns for the best split.
//   4. DataSplit partitions the slice in place.
//
// Scores, larger is better. Regression: GL^2/WL + GR^2/WR, where G and W are the sums of gradients
// and of integer weights on the left and right. Classification: (sum of squared class counts) /
// rows, added over both sides; of equal scores the one with the smaller balance |left fraction of
// the rows - 0.5| wins. Remaining ties go to the lower slot and, within a slot, to the leftmost
// candidate. The result does not depend on the number of threads.
#ifndef SYLVORA_NODE_H
#define SYLVORA_NODE_H

#include <pthread.h>

#include <cstdint>
#include <string>

#include "Libdef.h"

// A node, while it grows and in a finished or loaded model. Members are public so that models can
// be built and inspected; those marked (growth) have no meaning in a loaded model. The node owns
// selFeaV, selFeaValue and statClassAll (malloc/free). Not copyable.
//
// Thread safety: a finished node may be read from any thread. All other calls change the node and
// need exclusive access. During a search, the node's own workers merge their results under
// split_node_mutex.
class SYLVORA_API NodeCR {
  public:
    std::string status;             // "INTERMEDIATE", "TERMINAL"; "TOSPLIT" while growing
    int startDoc = 0;               // (growth) first position of its slice of the tree's row index
    int countDoc = 0;               // (growth) number of rows
    int parent = -1;                // (growth) index of the parent, -1 for the root
    int depth = 0;                  // (growth) 0 for the root
    double bestCriteria = -1.0;     // (growth) best score of the threaded search
    int splitFea = -1;              // 0-based column of the split; -1: none
    int lson = -1;                  // index of the left child; -1: none
    int rson = -1;                  // index of the right child; -1: none
    int countL = 0;                 // (growth) rows that go left
    double boundElemFea = -1.0;     // (growth) best score of the single-threaded search
    double splitElemFea = -1.0;     // threshold: a row goes left when its value is at most this
    bool fRegCls = false;           // false: regression, true: classification
    int numBound = 0;               // a node below the root with at most this many rows is a leaf
    int depBound = 0;               // maximum depth
    double avgPredict = -1000.0;    // output: leaf value, or class label as a number
    int* selFeaV = nullptr;         // (growth) sampled columns, numSelFea entries, -1 = empty slot
    double* selFeaValue = nullptr;  // (growth) thresholds of a user sampler, numSelFea entries
    int* statClassAll = nullptr;    // (growth) rows per class
    int dimFeature = 0;             // columns of the data
    int numSelFea = 0;              // columns sampled per node, the number of slots
    int idBest = 0;                 // (growth) slot of the best split of the threaded search
    double imbr = 0.0;              // (growth) balance of the best classification split
    pthread_mutex_t split_node_mutex = PTHREAD_MUTEX_INITIALIZER;
    double ratio = 0.0;
    float* gradientV = nullptr;  // reserved
    int* weightV = nullptr;      // reserved
    double gradAll = 0.0;        // (growth) sum of gradients
    int wgtAll = 0;              // (growth) sum of weights
    bool fPrint = false;
    bool fSpecifySplitValue = false;  // (growth) a user sampler set selFeaValue
    // (growth) whether the threshold, if rounded to six digits, may no longer lie between the two
    // values that it separates
    bool fNarrowSplit = false;

    // A node over `dimFeature` columns that samples the fraction `ratio` of them: numSelFea becomes
    // trunc(dimFeature * ratio - 1e-10) + 1, which rounds the product up unless it is an integer.
    NodeCR(int dimFeature, double ratio, int numBound, int depBound);
    ~NodeCR();
    NodeCR(const NodeCR&) = delete;
    NodeCR& operator=(const NodeCR&) = delete;

    // Prepares growth: `n` rows from position `s` of the row index, parent `p`, depth `d`, print
    // flag `f`, model type `mt`, task `fRC`. The node becomes "TERMINAL" at once if it is below the
    // root and has at most numBound rows, or if its depth is at least depBound (ignored for
    // "RandomForest"); otherwise "TOSPLIT". Returns 0.
    int Init(int s, int n, int p, int d, bool f, std::string mt, std::string fRC);

    // Sets gradAll and wgtAll to the sums of gradients and weights, and avgPredict to their
    // quotient, which is not finite if the weights sum to zero. The gradients are added in the
    // order of the slice. Returns 0.
    int GetGradSum(const double*& gradV, const int*& indexV, const int*& numDocPairQueV);

    // Sets statClassAll to the number of rows per class, and avgPredict to the majority class; ties
    // go to the lower class. If all rows have the same class, the node becomes "TERMINAL". Returns
    // 0, or -1 after a message if memory runs out or a row's class is not in [0, numClass).
    [[nodiscard]] int GetGradSumCls(const double*& gradV, const int*& indexV, int numClass);

    // Samples numSelFea columns into selFeaV and copies them to selV, an array of the caller with
    // numSelFea entries. Calls the user's sampler, or if that is null the built-in one, which draws
    // with the state word `seed`. Returns 0, or -1 after a message, also if the user's sampler
    // throws an exception.
    [[nodiscard]] int SamplingFeature(SamplingFeatureType nodeSampleFeaType, int* selV, long* seed);

    // The built-in sampler: draws countSel of dimF columns without replacement, by a partial
    // Fisher-Yates shuffle. Holds the generator's lock meanwhile.
    [[nodiscard]] int SamplingFeatureWithoutReplacement(int dimF, int*& selF, double*& selFeaValue,
                                                        int countSel, int curdepth, bool& fspecify,
                                                        long* seed);

    // The searches; ...Cls for classification. `featureVV` is indexed by row, then column; `indexV`
    // is the tree's row index; `gradV` (gradients, or classes) and `numDocPairQueV` (weights) are
    // indexed by row. All arrays are only read. Each search stores the best split in splitFea (-1:
    // none), splitElemFea and countL, sets bestCri to its score (-1.0: none), and frees selFeaV and
    // selFeaValue. Returns 0, or -1 after a message.
    //
    // GetSplitPoint and GetSplitPointCls divide the slots among min(dimFeature, numThread) workers,
    // whose ids they store in splitNodeTids, an array of the caller with as many entries. The
    // ...One functions search in the calling thread.
    [[nodiscard]] int GetSplitPoint(const double**& featureVV, const int*& indexV,
                                    const int*& numDocPairQueV, const double*& gradV,
                                    double& bestCri, int numThread, pthread_t* splitNodeTids);
    [[nodiscard]] int GetSplitPointOne(const double**& featureVV, const int*& indexV,
                                       const int*& numDocPairQueV, const double*& gradV,
                                       double& bestCri);
    [[nodiscard]] int GetSplitPointCls(const double**& featureVV, const int*& indexV, int numClass,
                                       const double*& gradV, double& bestCri, int numThread,
                                       pthread_t* splitNodeTids);
    [[nodiscard]] int GetSplitPointClsOne(const double**& featureVV, const int*& indexV,
                                          int numClass, const double*& gradV, double& bestCri);

    // One worker's part of a threaded search: scans the slots beginId..endId (inclusive) and merges
    // the best split into the node, under the mutex. Gradients (or classes) and weights are indexed
    // by position in the node's slice, not by row. Returns 0, or -1 after a message if memory runs
    // out.
    int SplitPointSearchReg(double** featureVV, int* indexV, double* gradientV, int* weightV,
                            int beginId, int endId);
    int SplitPointSearchCls(double** featureVV, int* indexV, double* gradientV, int numClass,
                            int beginId, int endId);

    // Partitions the slice: the rows with a value of at most splitElemFea move to its first countL
    // positions. The order within each side follows from the exchange of two cursors; models depend
    // on it. A node without a split, or with an empty side, becomes "TERMINAL", any other
    // "INTERMEDIATE". Returns 0.
    int DataSplit(double** featureVV, int*& indexV);

  private:
    friend class TreeCR;
    bool fSamplerThrew = false;  // (growth) the user's sampler threw an exception
    // Ends a search whose best split is in `slot`: applies a user's threshold, frees the sample.
    int FinishSearch(const double* const* featureVV, const int* indexV, int slot);
    void ApplyUserValue(const double* const* featureVV, const int* indexV, int slot);
    void ReleaseCandidates();   // frees selFeaV and selFeaValue
    void ReleaseClassCounts();  // frees statClassAll
    // Whether a row with this value belongs left, given the part of the slice in which it lies.
    bool BelongsLeft(double value, bool fInLeftPart) const {
        return fInLeftPart ? value <= splitElemFea : !(value > splitElemFea);
    }
    template <typename IsLeft>
    void ExchangeRows(int* indexV, const IsLeft& belongsLeft);
    // DataSplit in two steps: marks each row of the slice, 1 if it belongs left, and partitions the
    // slice by such marks.
    void SidesOfRows(double** featureVV, const int* indexV, std::uint8_t* fLeftV) const;
    void SplitBySides(const std::uint8_t* fLeftV, int* indexV);
};

// The arguments of one search worker. The node and the arrays are borrowed until it is joined.
struct split_info_t {
    double** featureVV;  // row-major features
    int* indexV;         // the tree's row index
    int* weightV;        // weights by position in the slice; unused in classification
    int numClass;        // unused in regression
    double* gradientV;   // gradients, or class labels, by position in the slice
    NodeCR* nodeCR;      // the node, shared by all its workers
    int feaIdBegin;      // first slot to scan
    int feaIdEnd;        // last slot to scan, inclusive
};

// Thread entry points of the search workers. `arg` is a split_info_t*. The exit value is 0, or -1
// on failure.
SYLVORA_API void* NodeSplitThreadFunctionReg(void* arg);
SYLVORA_API void* NodeSplitThreadFunctionCls(void* arg);

#endif  // SYLVORA_NODE_H
