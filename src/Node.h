// One node of a tree: the record that models are made of, and the search for its best split.
//
// While a tree grows, a node owns the slice [startDoc, startDoc + countDoc) of the tree's row
// index. Per node: GetGradSum or GetGradSumCls gives the leaf value; a node that is still "TOSPLIT"
// then samples columns, searches the best cut over them, and DataSplit partitions the slice in
// place.
//
// Scores. Regression: GL^2/WL + GR^2/WR with the sums of gradients and of integer weights of both
// sides. Classification: (sum of squared class counts) / rows, added over both sides; equal scores
// go to the cut with the smaller balance |left share - 0.5|. Otherwise the lower slot, and within a
// slot the leftmost cut, wins a tie, however many threads search.
#ifndef SYLVORA_NODE_H
#define SYLVORA_NODE_H

#include <pthread.h>

#include <string>

#include "Libdef.h"

// A node as grown, loaded and scored. Members are public because models are built and inspected
// through them; those marked (growth) mean nothing in a loaded model. The node owns selFeaV,
// selFeaValue and statClassAll (malloc/free). Not copyable.
//
// Thread safety: reading a finished node is safe from any thread. A search changes the node; its
// own workers merge their results under split_node_mutex.
class SYLVORA_API NodeCR {
  public:
    std::string status;          // "INTERMEDIATE", "TERMINAL"; "TOSPLIT" while growing
    int startDoc = 0;            // (growth) first position in the tree's row index
    int countDoc = 0;            // (growth) number of rows
    int parent = -1;             // (growth) index of the parent, -1 for the root
    int depth = 0;               // (growth) 0 for the root
    double bestCriteria = -1.0;  // (growth) best score of the threaded search
    int splitFea = -1;           // 0-based column that is tested; -1: none
    int lson = -1;               // index of the left child; -1: none
    int rson = -1;               // index of the right child; -1: none
    int countL = 0;              // (growth) rows that go left
    double boundElemFea = -1.0;  // (growth) running best score of the single-threaded search
    double splitElemFea = -1.0;  // threshold: a row goes left when its value is at most this
    bool fRegCls = false;        // false: regression, true: classification
    int numBound = 0;
    int depBound = 0;
    double avgPredict = -1000.0;    // output: leaf value, or class label as a number
    int* selFeaV = nullptr;         // (growth) sampled columns, numSelFea entries, -1 = empty slot
    double* selFeaValue = nullptr;  // (growth) split values of a user sampler, numSelFea entries
    int* statClassAll = nullptr;    // (growth) rows per class
    int dimFeature = 0;
    int numSelFea = 0;  // columns sampled per node
    int idBest = 0;     // (growth) winning slot of the threaded search
    double imbr = 0.0;  // (growth) balance of the best classification cut
    pthread_mutex_t split_node_mutex = PTHREAD_MUTEX_INITIALIZER;
    double ratio = 0.0;
    float* gradientV = nullptr;  // reserved
    int* weightV = nullptr;      // reserved
    double gradAll = 0.0;        // (growth) sum of gradients
    int wgtAll = 0;              // (growth) sum of weights
    bool fPrint = false;
    bool fSpecifySplitValue = false;
    // (growth) whether the threshold, written with six digits, may no longer lie between the two
    // values that it separates
    bool fNarrowSplit = false;

    // A node over `dimFeature` columns of which `ratio` is sampled: numSelFea becomes
    // trunc(dimFeature * ratio - 1e-10) + 1, so that an exact product is not rounded up.
    NodeCR(int dimFeature, double ratio, int numBound, int depBound);
    ~NodeCR();
    NodeCR(const NodeCR&) = delete;
    NodeCR& operator=(const NodeCR&) = delete;

    // Makes the node grow: `n` rows from position `s`, parent `p`, depth `d`, print flag `f`, model
    // type `mt`, task `fRC`. It is born "TERMINAL" when it has at most numBound rows (below the
    // root) or has reached depBound (not in a "RandomForest"). Returns 0.
    int Init(int s, int n, int p, int d, bool f, std::string mt, std::string fRC);

    // Sum of gradients, sum of weights and their quotient as avgPredict. Not finite where the
    // weights sum to zero. Returns 0.
    int GetGradSum(const double*& gradV, const int*& indexV, const int*& numDocPairQueV);

    // Rows per class and the majority class as avgPredict; a node with rows of one class only
    // becomes "TERMINAL". Returns -1 with a message when memory runs out or when a row's class is
    // not in [0, numClass).
    [[nodiscard]] int GetGradSumCls(const double*& gradV, const int*& indexV, int numClass);

    // Samples numSelFea columns into selFeaV and copies them to selV; null samples without
    // replacement with the generator of `seed`. Returns 0 or -1; an exception of the user's sampler
    // is reported and becomes -1.
    [[nodiscard]] int SamplingFeature(SamplingFeatureType nodeSampleFeaType, int* selV, long* seed);

    // The built-in sampler: a partial Fisher-Yates draw of countSel out of dimF columns.
    [[nodiscard]] int SamplingFeatureWithoutReplacement(int dimF, int*& selF, double*& selFeaValue,
                                                        int countSel, int curdepth, bool& fspecify,
                                                        long* seed);

    // The searches. `featureVV` is row-major, indexed by row and column; `indexV` is the tree's row
    // index; `gradV` and `numDocPairQueV` are indexed by row. Each leaves the winning cut in
    // splitFea (-1: none), splitElemFea and countL, sets bestCri to its score (-1.0: none) and
    // frees selFeaV and selFeaValue. The threaded forms cut the slots into min(dimFeature,
    // numThread) ranges; splitNodeTids has room for as many. Return 0 or -1.
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

    // One worker's share of a threaded search: scans the slots beginId..endId (inclusive) and
    // merges the best cut into the node. Gradients (or classes) and weights are indexed by
    // position in the node. Returns 0, or -1 with a message when memory runs out.
    int SplitPointSearchReg(double** featureVV, int* indexV, double* gradientV, int* weightV,
                            int beginId, int endId);
    int SplitPointSearchCls(double** featureVV, int* indexV, double* gradientV, int numClass,
                            int beginId, int endId);

    // Moves the rows with a value of at most splitElemFea to the first countL places of the slice
    // with two cursors, which fixes the order inside each side; without a usable cut the node
    // becomes "TERMINAL". Returns 0.
    int DataSplit(double** featureVV, int*& indexV);

  private:
    friend class TreeCR;
    bool fSamplerThrew = false;  // (growth) the user's sampler threw an exception
    int FinishSearch(const double* const* featureVV, const int* indexV, int slot);
    void ApplyUserValue(const double* const* featureVV, const int* indexV, int slot);
    void ReleaseCandidates();
    void ReleaseClassCounts();
};

// What one split worker is given; the node and the arrays are borrowed until it is joined.
struct split_info_t {
    double** featureVV;  // row-major features
    int* indexV;         // the tree's row index
    int* weightV;        // node-local weights; unused in classification
    int numClass;        // unused in regression
    double* gradientV;   // node-local gradients, or class labels
    NodeCR* nodeCR;
    int feaIdBegin;  // inclusive range of slots in selFeaV
    int feaIdEnd;
};

// Thread entry points; `arg` is a split_info_t. Exit value 0, or -1 on failure.
SYLVORA_API void* NodeSplitThreadFunctionReg(void* arg);
SYLVORA_API void* NodeSplitThreadFunctionCls(void* arg);

#endif  // SYLVORA_NODE_H
