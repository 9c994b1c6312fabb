// The learner: owner of the training data and of an ensemble of trees; trains it, saves and loads
// it, and scores feature vectors with it.
//
// Training                                   Scoring
//   CheckCfgCLS cfg; ReadCfg, CheckCfg         TreeLearner learner;
//   TreeLearner learner(cfg);                  learner.LoadModelFull("model.txt");
//   learner.DataInput(..., 1, ...);  // test   learner.OnlineTesting(row, result, dim, nullptr);
//   learner.DataInput(..., 0, ...);  // training
//   learner.ReadLabelTran(cfg.fileTran);  // optional; after the training data
//   learner.ParamInit();
//   gseed = -1;                      // the seed (claim.h), before every training: cfg's own
//                                    // tms_seed only serves the slots of a forest from 1 on
//   learner.Boosting();              // writes the model file
//
// A round adds one group of trees to the ensemble and one shrink (step length); a slot is a tree's
// index within its group. A query is a group of rows that are ranked against each other.
//
// docs/arrays.md: data in arrays (DataBorrow), trainings at the same time (trainingOptions).
// Statuses are 0 and -1; every failure writes one line first, to standard error or to its sink.
// Model file: see TreeLearner/ModelWriter.cpp for its grammar.
#ifndef SYLVORA_TREELEARNER_H
#define SYLVORA_TREELEARNER_H

#include <pthread.h>

#include <atomic>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CheckIn.h"
#include "DataBlock.h"
#include "DataSet.h"
#include "Libdef.h"
#include "ModelText.h"
#include "Output.h"
#include "TrainingOptions.h"
#include "Tree.h"

class TreeLearner;
namespace sylvora {
class EngineRun;
class EnsembleView;
class ModelParts;
class RowCopy;
class WorkerPool;
enum class PairLoss;
namespace engine {
struct CompiledEnsemble;
struct PackedTrees;
}  // namespace engine
}  // namespace sylvora

// Thread safety: a learner is trained by one thread, which starts workers of its own. Once trained
// or loaded, any number of threads may call OnlineTesting and OnlineTestingBatch at the same time.
// The user's functions (lossfunc, sampleFeaType, the progress function) are called during training.
// They must not call DataInput, DataAdopt, ParamInit, Boosting, Destroy, ReleaseTrees,
// LoadModelFull or the functions that grow trees or compute weights: these then fail. A call ends
// its own threads before it returns, also after a failure, so a process may fork between calls; the
// child may train and score with the learners that it inherits.
//
// Ownership: arrays are allocated with malloc or calloc and owned by the learner, as are the trees
// in TreeVV; TreeGroup borrows trees that TreeVV owns or will own. Not copyable.
class SYLVORA_API TreeLearner {
  public:
    // Data, one entry or row per sample. featureVV rows have dimFea values.
    double* labelV = nullptr;
    int* queryIdV = nullptr;
    double** featureVV = nullptr;
    double* labelVirV = nullptr;
    double* labelDevV = nullptr;
    int* queryIdDevV = nullptr;
    double** featureDevVV = nullptr;
    double* labelTestV = nullptr;
    int* queryIdTestV = nullptr;
    double** featureTestVV = nullptr;
    int* clsLabelEnum = nullptr;               // reserved
    double* featureMean = nullptr;             // dimFea entries; see DataInput
    double* labelTrV = nullptr;                // labels after the label map: what every loss uses
    std::map<double, double> tranMap;          // label as read to label as used
    std::vector<std::vector<TreeCR*>> TreeVV;  // the ensemble, one group per round
    VecFt StepLengthV;                         // one shrink per group
    std::string fileModel;
    std::string fileDebug;
    bool fDebug = false;
    CheckCfgCLS CfgInfo;
    LossFuncType lossfunc = nullptr;
    SamplingFeatureType sampleFeaType = nullptr;
    std::vector<TreeCR*> TreeGroup;  // the current round's trees, in slot order
    std::ofstream of_debug;
    fea_debuginfo_t* fea_debug = nullptr;
    double* predictV = nullptr;          // the ensemble's prediction per training sample
    double* gradientV = nullptr;         // the negative gradient per training sample
    long** randGenerators = nullptr;     // seed cell per slot; slots from 1 on share one
    VecInt numDocQueV;                   // per sample: number of samples in its query
    int* numPairDistinctQueV = nullptr;  // per sample: its weight; see ComputeDistinctPair
    double* devResV = nullptr;
    VecVecFt devResVV;
    double* testResV = nullptr;
    VecVecFt testResVV;
    // Reserved, as is all from generate_col_tree_mutex to predict_spin, which is not initialised.
    VecFt devGoodV, trnGoodV, tstGoodV, tstPairGoodV, trnPairGoodV, trnPairSuperV;
    int* IndexV = nullptr;  // reserved
    pthread_mutex_t generateTree_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t generate_col_tree_mutex;
    pthread_cond_t generate_col_tree_cond;
    pthread_spinlock_t predict_spin;
    bool fKeyAvailable = false;  // reserved
    VecVecInt distClsVV;
    int numThreadsubGroup = 0, numSubGroup = 0, selectNum = 0;  // reserved
    int dimFea = 0;
    int sampleSize = 0;
    int numClass = 0;  // 0 for regression
    int testSize = 0, devSize = 0;
    int fHomoWgt = 1;  // ParamInit's weights: 1: all are 1; 0: distinct-pair counts
    int sizeGroup = 0, numTree = 0;
    int numThread = 1;
    int GroupTreeCnt = 0;
    double valTau = 0.0, valShrink = 0.0;
    bool fDev = false;
    double valSmpRt = 0.0, temperature = 0.0;
    double dynShrink = 1.0;
    bool fSetDynStep = false;
    int pairMargin = 0;       // reserved
    double predMargin = 0.0;  // reserved
    std::string modelType;
    double predResult = 0.0;                 // reserved
    int avgPredTreeNum = 0, colTreeCnt = 0;  // reserved

    // A learner to train, with a copy of `cfg`.
    explicit TreeLearner(CheckCfgCLS& cfg);
    // A learner to load a model into.
    TreeLearner();
    ~TreeLearner();
    TreeLearner(const TreeLearner&) = delete;
    TreeLearner& operator=(const TreeLearner&) = delete;

    // Takes one data set: labels `l`, rows `f` (all as long as the first), query ids `q` (one per
    // record, or empty; needed for "GBRank" training data, numbered 0, 1, 2, ... in order; the
    // rows of a query must be together, which ParamInit checks). `type`: 0 training, 1 test, 2
    // development; each once. `lvir` must be empty. Move the vectors in: each row is freed as soon
    // as it is copied.
    //
    // Each call sets dimFea to the width of its rows. A set that does not fit is refused when it is
    // first used: training fails if dimFea is not the width of the training rows, SaveModelFull if
    // it is not that of the model, FeatureAnalysis if test rows are narrower than the model.
    //
    // featureMean is deliberately divided by the number of records after every record, not once at
    // the end, so late records weigh most: existing models have it that way.
    [[nodiscard]] int DataInput(VecDle l, VecVecDle f, int type, VecInt q, VecDle lvir);

    // The same for a set in arrays like the learner's own: `numData` labels and `numData` rows of
    // `numColumn` values, all from malloc or calloc. The learner takes ownership of them, also
    // after a failure, and copies only `q`.
    [[nodiscard]] int DataAdopt(double* labels, double** rows, int numData, int numColumn, VecInt q,
                                int type);

    // Reads the label map: lines of two numbers, the label in the data and the label to use. A
    // missing file is no error. Call it after DataInput of the training set, whose classes bound
    // the new labels of a classification.
    [[nodiscard]] int ReadLabelTran(std::string file);

    // Prepares the arrays of a run; once, after all data and the label map.
    [[nodiscard]] int ParamInit();

    // Trains numTree rounds on numThread threads, then writes the model file fileModel. Writes the
    // debug report and the result files on the way, if they are configured. Leaves the trees in
    // TreeVV. An exception of a user's function ends the run with a line that has its text. Early
    // stopping (CheckCfgCLS::earlyStop) cuts the ensemble, but not predictV, to the best round.
    [[nodiscard]] int Boosting();

    // Frees data and trees. Called by the destructor. Returns 0, or -1 during training.
    int Destroy();

    // Writes the ensemble to `fileMout`, which is replaced as a whole or left as it was. Refused
    // after a load that failed.
    [[nodiscard]] int SaveModelFull(std::string fileMout);
    // The same with 6 or 17 significant digits; the overload above uses CfgInfo.digits. With 17, a
    // model that is loaded again has every number bit for bit.
    [[nodiscard]] int SaveModelFull(std::string fileMout, int digits);

    // Reads a model into this learner, which must be fresh. After a failure it is unusable.
    [[nodiscard]] int LoadModelFull(std::string fileM);

    // Scores one row of `n` >= dimFea values with the ensemble; `result` is 0.0 on failure.
    // Regression: the sum over groups of shrink times the mean of the group's trees.
    // Classification: the trees vote, and a group adds shrink times its winner.
    //
    // `fullResult` may be null. Otherwise it is a buffer of at least as many doubles as the model
    // has trees, or groups if some are empty; it gets one value per group (regression) or per slot
    // (classification). Without it a group's vote ends at an absolute majority, so the results of a
    // classification with several groups can differ with and without it. Allocates nothing.
    //
    // Uses a compiled copy of the ensemble, made when a model is loaded or trained. The copy is no
    // longer used once TreeVV, StepLengthV, dimFea or numClass have changed; changes inside a node
    // have no effect until the model is saved and loaded again.
    [[nodiscard]] int OnlineTesting(double* line, double& result, int n, double* fullResult);

    // Scores `n` rows, of which row i begins at rows[i * stride], into results[0..n), with the
    // results of `n` calls of OnlineTesting that pass a fullResult. `stride` is the number of
    // values from one row to the next, at least dimFea. Uses at most `numThread` threads, the
    // caller's included; 0 or less: as many as the process has processors. A failure leaves
    // `results` as it was. More rows than an address space can hold are refused.
    [[nodiscard]] int OnlineTestingBatch(const double* rows, size_t n, size_t stride,
                                         double* results, int numThread);

    // Scores the test set and writes to `file`, whole or not at all, what each column contributed.
    [[nodiscard]] int FeatureAnalysis(std::string file);

    // The steps of a run, public for workers and tests. Sample and slot ranges are inclusive at
    // both ends; an empty range does nothing.

    // Sets each weight to 1 or, if fHomoWgt is 0, to the number of rows of the same query with
    // another label. Weights may be changed afterwards, also between two trees: no tree is grown on
    // rows of weight 0 or less, and a regression weights its rows. Refused if the weights of the
    // rows that a tree can draw may add up to more than an int holds.
    [[nodiscard]] int ComputeDistinctPair();
    int ComputeGradientSquare(int idBegin, int idEnd);
    int ComputeGradientLabel(int idBegin, int idEnd);
    int ComputeGradientLogistic(int idBegin, int idEnd);
    int ComputeGradientHingeSquare(int idBegin, int idEnd);
    int ComputeGradientExponential(int idBegin, int idEnd);
    int ComputeGradientCrossEntropy(int idBegin, int idEnd);
    int ComputeGradientHingeSquareRank(int idBegin, int idEnd);
    [[nodiscard]] int ComputeGradientUser(int idBegin, int idEnd);
    // Grows one tree in slot 0, or the trees of the given slots, into TreeGroup.
    [[nodiscard]] int GenerateTree();
    [[nodiscard]] int GenerateRowTree(int treeIdBegin, int treeIdEnd);
    // Adds the first tree of TreeGroup, times dynShrink and valShrink, to predictV.
    int UpdatePrediction(int idBegin, int idEnd);
    // Row samples: `selected` (new[]; the caller's to delete[]) receives `count` row numbers drawn
    // with the state word `seed`, by single rows in draw order, or by whole queries in row order.
    // Rows of weight 0 or less are left out.
    [[nodiscard]] int RandomSelectURL(int*& selected, int& count, long* seed);
    [[nodiscard]] int RandomSelectQuery(int*& selected, int& count, long* seed);

    void setLossFunction(LossFuncType lossFunction) { lossfunc = lossFunction; }
    LossFuncType getLossFunction() const { return lossfunc; }
    void setNodeSamplingFeaType(SamplingFeatureType sampler) { sampleFeaType = sampler; }
    SamplingFeatureType getNodeSamplingFeaType() const { return sampleFeaType; }
    void setProgress(ProgressFuncType function, void* context);
    void setConfig(CheckCfgCLS& cfg) { CfgInfo = cfg; }
    int getFeatureDim() const { return dimFea; }
    int getClassNum() const { return numClass; }
    int getTreeNum() const;  // trees in all groups
    // The first result file that the last run opened but could not write in full, and reported;
    // empty: none.
    const std::string& getLostResult() const { return lostResult; }
    // Why the debug report of the last run could not be written in full, as in errno; 0: it could.
    int getDebugError() const { return debugError; }

    // Whether Boosting verifies its results; off by default. If a tree is missing or a number is
    // not finite, the run then ends with -1 and a line that names the round, and writes no model.
    // The model file is read back and compared with the ensemble before it replaces an older one
    // or, for a FIFO or a device, before its first byte is sent. SaveModelFull never verifies.
    void setVerification(bool fWanted) { fVerify = fWanted; }
    // Whether trees that are trained or loaded from now on are kept packed, at 32 bytes a node
    // instead of 240; off by default. TreeVV then stays empty, and TreeGroup has the tree of a
    // round of boosting, and of a forest none. Call it before Boosting or LoadModelFull: existing
    // trees do not change.
    void setPackedTrees(bool fWanted) { fPacked = fWanted; }
    // Trees that the last Boosting should have grown but did not; 0 before any.
    int getMissingTreeNum() const { return numMissing; }
    int getGroupNum() const;  // in TreeVV or packed
    // Scores the training rows of the last run with the ensemble in memory and with its thresholds
    // rounded to six digits, whatever CfgInfo.digits is. `maxThreads` as for OnlineTestingBatch.
    // Returns 0, or -1 when there are no such rows or trees or memory runs out.
    [[nodiscard]] int MeasureRounding(rounding_effect_t& effect, int maxThreads) const;
    // Frees the ensemble and leaves the data; scoring fails until there are trees again. Or frees
    // the training data and leaves the ensemble. Return 0, or -1 during a run.
    int ReleaseTrees();
    int ReleaseTrainingData();

    // Functions, streams and sets to evaluate. Change them between calls only.
    sylvora::TrainingOptions trainingOptions;

    // Takes borrowed training data, instead of DataInput, with a label and, for "GBRank", a query
    // id per row (`queries` may otherwise be null), which are copied. featureVV stays null.
    // ParamInit and Boosting then give the bytes that they give after DataInput of the same values;
    // Boosting writes no file if fileModel is empty. fDebug needs ranks. A user's sampler, or
    // gradients beyond 1e100, make the learner copy the rows as doubles, once per run.
    [[nodiscard]] int DataBorrow(std::shared_ptr<const sylvora::DataSet> set, const double* labels,
                                 int numLabels, const int* queries, int numQueries);
    // Sets the weights of the training rows, 0 or more, for regressions other than "GBRank"; after
    // ParamInit. A row of weight w counts as w rows, but is drawn as one. See docs/losses.md.
    [[nodiscard]] int setWeights(const int* weights, int count);
    // Scores a block, read as DataBorrow reads it, missing values included. It needs at least as
    // many columns as the model.
    [[nodiscard]] int OnlineTestingBatch(const sylvora::DataBlock& block, double* results,
                                         int maxThreads);
    // The set that DataBorrow was given, or null.
    const sylvora::DataSet* BorrowedData() const { return borrowed.get(); }
    const sylvora::EvaluationRecord& getEvaluation() const { return evaluationRecord; }
    // Column-wise tree generation is reserved; both report so and return -1.
    int Sampling();
    int GenerateColTree();

  private:
    struct Run;
    class AtWork;
    class CallScope;
    class RunCheckpoint;
    void FreeTrainingData();
    void FreeDevelopmentData();
    void FreeTestData();
    void FreeDebugCounters();
    void FreeTrees();
    void RetireTrees();

    class Intake;
    template <typename Gradient>
    int FillGradient(int idBegin, int idEnd, Gradient gradient);
    int ComputePairGradients(int idBegin, int idEnd, sylvora::PairLoss loss);
    int ComputeGradient(int idBegin, int idEnd);
    friend void* CalLossThreadFunction(void* arg);

    int DrawRows(const int* weightV, int*& selected, int& count, long* seed);
    void ReportRows(const char* notice, int count, int numQueries);
    long* SeedOf(int treeId);
    int SelectRows(const int* weightV, int*& selected, int& count, long* seed);
    double** ReferenceRows();
    bool IsPacking() const { return packedTrees != nullptr && workers != nullptr; }
    int GrowTree(int treeId, bool fThreaded);
    int GrowSlots(int treeIdBegin, int treeIdEnd);

    int PrepareRun(Run& run);
    void ShareOut(Run& run);
    int AllocateDebugCounters();
    int PlaceSeeds();
    std::vector<boosting_info_t> ShareSamples();
    std::vector<boosting_info_t> ShareQueries();
    int RunRounds(Run& run);
    int BoostRound(Run& run, int idxTree);
    int GenerateForest(Run& run);
    void WriteRoundResult(int idxTree);
    int FinishRun();
    bool IsStopped(int done, int total);
    void KeepTree(std::unique_ptr<TreeCR> tree);
    void EndGroup();
    void ClearGroup();
    struct Verification;
    int WriteModel(const std::string& fileMout, int digits, bool fCheck,
                   const sylvora::ModelDescription* description = nullptr);
    int CheckSaving(int digits, const sylvora::ModelDescription* description) const;
    int LoadFrom(const sylvora::ModelOrigin& origin, sylvora::ModelDescription* description);
    class RunEvaluation;
    void MakeRecords(const sylvora::engine::PackedTrees& trees, int numUnfilled);

    int RefuseAtWork(const char* operation) const;
    std::string DescribeWidth() const;
    int CheckTrainingWidth() const;
    int CheckModelWidth() const;
    int AskUser();
    struct ScoringForm;
    void CompileEnsemble(std::shared_ptr<const sylvora::engine::PackedTrees> trees = nullptr);
    int CheckScoring(int n) const;
    int CheckBlock(const sylvora::DataBlock& block) const;
    const sylvora::engine::CompiledEnsemble* Compiled() const;

    ProgressFuncType progressFunction = nullptr;
    void* progressContext = nullptr;
    std::mutex lossMutex;                           // a user loss is called by one worker at a time
    std::vector<TreeCR*> retiredV;                  // trees of earlier runs, freed by Destroy
    long sharedSeed = 0;                            // the seed cell of slots 1 and up
    std::unique_ptr<sylvora::WorkerPool> workers;   // during a run: all its threads
    std::unique_ptr<sylvora::EngineRun> engineRun;  // during a run: grows the trees; may be null
    std::string lostResult;
    bool fStopped = false;           // the progress function ended the run
    std::atomic<bool> fKept{false};  // it returned kStopAndKeep
    bool fVerify = false, fPacked = false, fLoadFailed = false;  // the last load failed
    int numMissing = 0, numGrown = 0;                            // trees of the last run
    int numDrawn = 0;                                            // rows of the tree grown last
    friend class sylvora::EnsembleView;
    friend class sylvora::ModelText;
    friend class sylvora::ModelParts;
    std::shared_ptr<sylvora::engine::PackedTrees> packedTrees;  // null: the trees are in TreeVV
    int modelDim = 0, testDim = 0;  // columns of the ensemble, 0: made by hand; of the test rows
    std::string walkFault;          // why a loaded ensemble cannot be scored; empty: it can
    std::shared_ptr<const ScoringForm> scoringForm;  // null: the trees are walked one by one

    // Columns of the training and the development rows, and entries of featureMean; 0: set by hand.
    int trainDim = 0, devDim = 0, meanDim = 0;
    std::atomic<int> numAtWork{0};        // calls under way that may call the user's functions
    std::atomic<bool> fUserThrew{false};  // one of the user's functions threw an exception
    int debugError = 0;
    std::atomic<int> progressDone{0}, progressTotal{1};  // as told last to the progress function
    std::shared_ptr<const sylvora::DataSet> borrowed;    // null: the training data are in featureVV
    std::shared_ptr<sylvora::RowCopy> rowCopy;           // of `borrowed`, if a run needed it
    sylvora::EvaluationRecord evaluationRecord;
    mutable std::mutex sinkMutex;  // held while trainingOptions.sink runs
    struct LossRun;
    std::unique_ptr<LossRun> lossRun;  // from ParamInit on
    class RankRun;
    std::unique_ptr<RankRun> rankRun;  // during a run by several ranks
};

#endif  // SYLVORA_TREELEARNER_H
