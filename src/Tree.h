// One decision tree: a vector of nodes that refer to each other by index, grown breadth-first.
#ifndef SYLVORA_TREE_H
#define SYLVORA_TREE_H

#include <pthread.h>

#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CheckIn.h"
#include "Libdef.h"
#include "Node.h"

class TreeLearner;
namespace sylvora {
class Ranks;
class EngineRun;
namespace engine {
struct GrownNode;
}
}  // namespace sylvora

// A tree, while it grows and in a finished or loaded model. Owns its nodes. Not copyable.
//
// To grow a tree, construct it, call Init and then once GrowHalf or GrowOne. Nodes are split in the
// order in which they were appended. So the tree grows breadth-first, children have larger indices
// than their parent, and the last node is one of the deepest.
//
// Thread safety: a finished tree may be read from any number of threads. Growing changes only the
// tree, the caller's row index and seed word, the shared state of the random generator, and the
// debug totals. So several trees may grow at the same time if none of these arguments is shared;
// their draws then mix in the order of the scheduler.
class SYLVORA_API TreeCR {
  public:
    std::vector<NodeCR*> NodeV;  // owned; index 0 is the root
    int numData = 0;             // rows of the training data
    int numNode = 0;             // reserved
    int numThreadNode = 1;       // threads that search each node in GrowHalf
    int depth = 0;     // of the deepest node, 0 for a single leaf; not loaded from a model
    int numBound = 0;  // a node below the root with at most this many rows is a leaf
    int maxLeaf = 0;   // maximum number of leaves; ignored for "RandomForest"
    int numLeaf = 0;   // leaves of the grown tree
    int maxDepth = 0;  // maximum depth; ignored for "RandomForest"
    int numClass = 0;  // 0 for regression
    unsigned int currNodeId = 0;  // reserved
    int countInter = 0;           // reserved
    int numFeaSel = 0;            // columns sampled per node
    int stopDepth = 0;            // reserved
    bool fSetDepth = false;       // reserved
    bool fDebug = false;          // debug records are written
    std::vector<int> splitCanV;   // reserved, as are the next three
    std::vector<int> splitIdV;
    std::vector<double> splitValV;
    std::vector<int> canNumV;
    single_tree_debuginfo_t* singleTreeDebug = nullptr;
    SamplingFeatureType treeSFT = nullptr;  // null: the built-in sampler
    double ratio = 0.0;                     // fraction of the columns that each node samples
    int dimFeature = 0;                     // columns of the data
    bool fPrint = false;                    // report the finished tree on standard output
    bool fGrowing = false;                  // reserved, as are the next three
    bool fReachTerminal = false;
    unsigned int minActiveNodeId = 0;
    unsigned int minSampledNodeId = 0;
    std::string modelType;
    CheckCfgCLS CfgInfo;
    std::string fRegCls;              // "REG" or "CLS"
    pthread_mutex_t grow_tree_mutex;  // reserved, as are the next two; never initialised
    pthread_cond_t grow_tree_cond;
    long* seedTree = nullptr;

    // A tree with the settings of `c`, which is copied. `sft` samples the columns of each node;
    // null selects the built-in sampler.
    TreeCR(CheckCfgCLS& c, SamplingFeatureType sft);
    ~TreeCR();
    TreeCR(const TreeCR&) = delete;
    TreeCR& operator=(const TreeCR&) = delete;

    // Prepares growth on `selectnum` sampled rows out of `num`, with `dimfea` columns, and appends
    // the root. Returns 0, or -1 after a message.
    [[nodiscard]] int Init(int dimfea, int selectnum, int num);

    // Grows the tree.
    //   featureVV        values of all training rows, indexed by row, then column
    //   gradV            gradient of each row, or its class label for "CLS"
    //   numDocPairQueV   integer weight of each row; for "REG" the absolute weights of the sampled
    //                    rows must add up to at most INT_MAX
    //   indexV           the sampled rows; permuted so that the rows of each node are a slice
    //   opt_debug        if open, receives the debug records of the tree
    //   fea_debug        per-column totals to add to; may be null
    //   seed             state word that the built-in column sampler draws with
    // All arguments belong to the caller. Returns 0, or -1 after a message; the tree may then only
    // be destroyed.
    //
    // GrowHalf searches each node with numThreadNode threads, GrowOne with the calling thread. Both
    // grow the same tree.
    [[nodiscard]] int GrowHalf(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                               bool fPrintLeafDis, std::ofstream& opt_debug,
                               fea_debuginfo_t*& fea_debug, long* seed);
    [[nodiscard]] int GrowOne(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                              bool fPrintLeafDis, std::ofstream& opt_debug,
                              fea_debuginfo_t*& fea_debug, long* seed);

    // The output of the leaf that the row `feaV` (indexed by 0-based column) reaches. A value equal
    // to the threshold goes left, NaN goes right. The tree must be well formed; nothing is checked.
    double Predict(double* feaV);

    // Predict for feature analysis. At each split on the way, adds to feaw[f] of its column f the
    // decrease of the absolute error |output - label_exp| from node to child, times `stepsize`, and
    // adds 1 to feaf[f]. Deliberately, a value equal to the threshold goes right here.
    double FeatureAnalPredict(double* feaV, VecFt& feaw, VecInt& feaf, double label_exp,
                              double stepsize);

  private:
    friend class sylvora::EngineRun;
    friend class TreeLearner;
    // Replaces the nodes by those of a tree that the engine grew.
    void Adopt(const std::vector<sylvora::engine::GrownNode>& grownV);
    std::unique_ptr<NodeCR> MakeRecord(const sylvora::engine::GrownNode& grown) const;

    // The steps of growth; each returns 0, or -1 after a message. See Growth.cpp.
    struct Growth;
    int GrowAndReport(Growth& growth, std::ofstream& opt_debug, fea_debuginfo_t* fea_debug);
    int Grow(Growth& growth, int& numSplit);
    int ComputeLeafValue(Growth& growth, NodeCR& node);
    int SplitNode(Growth& growth, NodeCR& node, double& criteria);
    int SearchNode(Growth& growth, NodeCR& node, double& criteria);
    int SplitByRanks(Growth& growth, NodeCR& node, double& criteria);
    int AppendChildren(NodeCR& node, int idxNode);
    int CheckWeights(const Growth& growth) const;

    bool fSamplerThrew = false;       // the user's sampler threw an exception, which ends the run
    sylvora::Ranks* ranks = nullptr;  // set: each rank searches its own columns
    // Called once the tree has grown, with its row index, to set the values of all nodes by the
    // loss; empty: they stay the means of the gradients.
    std::function<void(const int* rowV)> setNodeValues;
    // Takes the nodes that the engine grew, instead of NodeV, which is then empty; empty: NodeV
    // gets records of them.
    std::function<void(const std::vector<sylvora::engine::GrownNode>& grownV)> takeNodes;
};

#endif  // SYLVORA_TREE_H
