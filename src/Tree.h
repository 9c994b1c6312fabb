// One decision tree: a flat vector of nodes linked by index, grown level by level.
#ifndef SYLVORA_TREE_H
#define SYLVORA_TREE_H

#include <pthread.h>

#include <fstream>
#include <string>
#include <vector>

#include "CheckIn.h"
#include "Libdef.h"
#include "Node.h"

class TreeLearner;
namespace sylvora {
class EngineRun;
namespace engine {
struct GrownNode;
}
}  // namespace sylvora

// A tree as grown, loaded and scored. Owns its nodes. Not copyable.
//
// To grow one: construct, Init, then GrowHalf or GrowOne once. Nodes are split in the order in
// which they were appended, so the tree grows breadth-first and its last node is its deepest.
//
// Thread safety: a finished tree may be read from any number of threads. Growing changes the tree,
// the row index and the seed word it is given, and nothing else that is shared, except the debug
// counters.
class SYLVORA_API TreeCR {
  public:
    std::vector<NodeCR*> NodeV;  // index 0 is the root
    int numData = 0;
    int numNode = 0;        // reserved
    int numThreadNode = 1;  // threads of a node's search in GrowHalf
    int depth = 0;          // of the deepest node; not restored from a model file
    int numBound = 0;       // a node below the root with at most so many rows is a leaf
    int maxLeaf = 0;
    int numLeaf = 0;
    int maxDepth = 0;
    int numClass = 0;             // 0 for regression
    unsigned int currNodeId = 0;  // reserved
    int countInter = 0;           // reserved
    int numFeaSel = 0;            // columns sampled per node
    int stopDepth = 0;            // reserved
    bool fSetDepth = false;       // reserved
    bool fDebug = false;
    std::vector<int> splitCanV;  // reserved, as are the next three
    std::vector<int> splitIdV;
    std::vector<double> splitValV;
    std::vector<int> canNumV;
    single_tree_debuginfo_t* singleTreeDebug = nullptr;
    SamplingFeatureType treeSFT = nullptr;  // null: the built-in sampler
    double ratio = 0.0;
    int dimFeature = 0;
    bool fPrint = false;
    bool fGrowing = false;  // reserved, as are the next three
    bool fReachTerminal = false;
    unsigned int minActiveNodeId = 0;
    unsigned int minSampledNodeId = 0;
    std::string modelType;
    CheckCfgCLS CfgInfo;
    std::string fRegCls;              // "REG" or "CLS"
    pthread_mutex_t grow_tree_mutex;  // reserved, as are the next two; never initialised
    pthread_cond_t grow_tree_cond;
    long* seedTree = nullptr;

    // A tree with the settings of `c`; `sft` chooses the columns tried at each node.
    TreeCR(CheckCfgCLS& c, SamplingFeatureType sft);
    ~TreeCR();
    TreeCR(const TreeCR&) = delete;
    TreeCR& operator=(const TreeCR&) = delete;

    // Prepares growth on `selectnum` sampled rows out of `num`, with `dimfea` columns.
    [[nodiscard]] int Init(int dimfea, int selectnum, int num);

    // Grows the tree. `featureVV` is row-major (all training rows), `gradV` and `numDocPairQueV`
    // hold each row's gradient (class label for "CLS") and integer weight, `indexV` the sampled
    // rows, which are reordered in place; all stay the caller's. In a regression, weights whose
    // absolute values add up to more than an int holds are refused. Debug records are kept when
    // `opt_debug` is open, with per-column totals in `fea_debug` where that is not null. `seed` is
    // the state word that column sampling draws from. Return 0, or -1 after a message; the tree is
    // then only good for destruction.
    //
    // GrowHalf searches each node with numThreadNode threads, GrowOne in the calling thread. Both
    // grow the same tree.
    [[nodiscard]] int GrowHalf(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                               bool fPrintLeafDis, std::ofstream& opt_debug,
                               fea_debuginfo_t*& fea_debug, long* seed);
    [[nodiscard]] int GrowOne(double** featureVV, double* gradV, int* numDocPairQueV, int*& indexV,
                              bool fPrintLeafDis, std::ofstream& opt_debug,
                              fea_debuginfo_t*& fea_debug, long* seed);

    // The output of the leaf that `feaV` (indexed by 0-based column) reaches. A value equal to the
    // threshold goes left, NaN goes right. The tree must be well formed: nothing is checked.
    double Predict(double* feaV);

    // The same for feature analysis: walks the tree for one row and credits each tested column f
    // with the drop of the absolute error against `label_exp`, times `stepsize`, in feaw[f], and
    // counts it in feaf[f]. Deliberately, a value equal to the threshold goes right here.
    double FeatureAnalPredict(double* feaV, VecFt& feaw, VecInt& feaf, double label_exp,
                              double stepsize);

  private:
    friend class sylvora::EngineRun;
    friend class TreeLearner;
    // Takes over a tree that the engine grew.
    void Adopt(const std::vector<sylvora::engine::GrownNode>& grownV);

    struct Growth;
    int GrowAndReport(Growth& growth, std::ofstream& opt_debug, fea_debuginfo_t* fea_debug);
    int Grow(Growth& growth, int& numSplit);
    int ComputeLeafValue(Growth& growth, NodeCR& node);
    int SplitNode(Growth& growth, NodeCR& node, double& criteria);
    int SearchNode(Growth& growth, NodeCR& node, double& criteria);
    int AppendSons(NodeCR& node, int idxNode);
    int CheckWeights(const Growth& growth) const;

    bool fSamplerThrew = false;  // the user's sampler threw an exception
};

#endif  // SYLVORA_TREE_H
