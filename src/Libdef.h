// Types shared by the whole library: vector shorthands, user callbacks and plain records.
#ifndef SYLVORA_LIBDEF_H
#define SYLVORA_LIBDEF_H

#include <vector>

// Marks a name that the shared library exports; everything else stays hidden.
#if defined(__GNUC__)
#define SYLVORA_API __attribute__((visibility("default")))
#else
#define SYLVORA_API
#endif

class TreeLearner;

typedef std::vector<float> VecFt;
typedef std::vector<int> VecInt;
typedef std::vector<double> VecDle;
typedef std::vector<VecFt> VecVecFt;
typedef std::vector<VecDle> VecVecDle;
typedef std::vector<VecInt> VecVecInt;

// A user loss ("USER"): reads `count` labels and `count` current predictions and writes `count`
// negative gradients to *gradientV. Returns 0 on success. An exception ends the run. The function
// must not end its thread.
//
// In each round the library calls it once per worker, one call at a time. Every call passes the
// arrays from their first sample and, as `count`, the number of samples in that worker's range. So
// only a run with one thread passes all samples. The arrays belong to the library.
typedef int (*LossFuncType)(double* labelV, double* predictV, double** gradientV, int count);

// A user sampler: chooses the columns that a node may split on. Called once per node to be split.
//   dimF           in: number of columns
//   selF           out: countSel distinct columns in [0, dimF); -1 ends the list early
//   selFeaValue    out, if fspecify is set: one threshold per entry of selF
//   countSel       in: number of entries of selF and of selFeaValue
//   curdepth       in: depth of the node, 0 for the root
//   fspecify       out: whether the values in selFeaValue replace the computed thresholds
// Returns 0 on success. An exception ends the run. The function must not end its thread. The trees
// of a forest may call it from several threads at the same time.
typedef int (*SamplingFeatureType)(int dimF, int*& selF, double*& selFeaValue, int countSel,
                                   int curdepth, bool& fspecify);

// A progress callback: `done` of `total` rounds of boosting, or trees of a forest, are complete.
// Called after each of them. Returns 0 to go on, or kStopAndKeep. Any other value, or an exception,
// ends the run, even after the last round: Boosting then returns -1 and writes no model.
//
// It is also called several times a second while a learner waits for a reader of an output file
// that is a FIFO. It then receives the numbers of the previous call, or 0 of `total` before the
// first round, or 0 of 1 outside a run. A value other than 0 ends the wait, and the file is not
// written.
typedef int (*ProgressFuncType)(void* context, int done, int total);

// A progress function that returns this value ends the run after the current round, or tree of a
// forest: the rest is done as if no more had been asked for, so the model is written and Boosting
// returns 0. Early stopping still cuts the model to its best round. Later calls, while the model is
// written, may return it again to go on; only a wait for the reader of a FIFO ends with any value
// other than 0.
constexpr int kStopAndKeep = 0x6b656570;

// A sink of messages. `text` is one whole message, line feeds included; `stream` is the stream that
// it would go to otherwise: 1 for standard output, 2 for standard error. The calls for one learner
// come one at a time, but from any of its threads, and none after the learner's call has returned.
// A learner without a sink uses the standard streams, also inside another learner's user functions.
//
// The sink must not call its learner, nor end its thread. A message that arises in a sink goes to
// the standard stream. Exceptions are ignored. When memory runs out, text after the first 1023
// bytes of a message can be missing.
typedef void (*MessageSinkType)(void* context, int stream, const char* text);

// What an objective is given: all training rows of one round. The arrays belong to the library and
// have numRows entries.
struct objective_round_t {
    int round;  // from 1
    int numRows;
    const double* labelV;  // after the label map
    const double* scoreV;  // the ensemble's prediction so far, start value included
    double* gradientV;     // out: the negative gradients
    double* hessianV;      // out: second derivatives, at least 0; null if not asked for
};

// A user objective; see TrainingOptions. Called once per round with all rows, by the
// thread that trains. Returns 0 on success; any other value, or an exception, ends the run. Weights
// are multiplied in afterwards.
typedef int (*ObjectiveType)(void* context, const objective_round_t& round);

// The effect on the training rows of rounding an ensemble's thresholds to six digits.
struct rounding_effect_t {
    int numRows = 0;             // rows that reach another leaf in at least one tree
    double largestChange = 0.0;  // the largest absolute change of a row's score
    // Whether a rounded threshold no longer lies between the two values that its split separates.
    // Otherwise only rows that a tree did not sample reach another leaf of it.
    bool fCrossed = false;
    bool fAtLeast = false;  // both figures are lower bounds: a large forest of sampled rows
};

// Debug data of one tree: one entry per split node, in the order of the splits. The arrays belong
// to the growing tree (malloc/free), which frees them when it has grown.
struct single_tree_debuginfo_t {
    int* selected_fea_list;          // column of the split
    double* selected_feaValue_list;  // threshold of the split
    double* avg_predict;             // output of the node itself
    int* count_doc;                  // rows in the node
    int* candidate_fea_list;         // sampled columns, numFeaSel per split node
    double* sqr_crit_list;           // score of the split
};

// Totals over a training run, indexed by column. The arrays belong to the learner.
struct fea_debuginfo_t {
    int* candidate_num_list;  // split nodes that sampled the column
    int* selected_num_list;   // split nodes that split on it
    double* crit_sum_list;    // sum of the scores of those splits
};

// One worker's share of the training samples; sIdBegin to sIdEnd, inclusive.
struct boosting_info_t {
    TreeLearner* treeLearner;
    int sIdBegin;
    int sIdEnd;
};

// One worker's share of the tree slots of a forest; inclusive.
struct generate_tree_info_t {
    TreeLearner* treeLearner;
    int treeIdBegin;
    int treeIdEnd;
};

// Thread entry points of the three phases of a round; `arg` is one of the records above. Exit value
// 0, or -1 on failure, which a run reports but survives.
SYLVORA_API void* CalLossThreadFunction(void* arg);
SYLVORA_API void* GenerateTreeThreadFunction(void* arg);
SYLVORA_API void* PredictionThreadFunction(void* arg);

#endif  // SYLVORA_LIBDEF_H
