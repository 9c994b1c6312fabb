// The types that every unit of the library shares: the vector shorthands, the two kinds of user
// callbacks, and plain records.
#ifndef SYLVORA_LIBDEF_H
#define SYLVORA_LIBDEF_H

#include <vector>

// Marks a name that the shared library exports; everything else stays hidden.
#if defined(__GNUC__)
#define SYLVORA_API __attribute__((visibility("default")))
#else
#define SYLVORA_API
#endif

typedef std::vector<float> VecFt;
typedef std::vector<int> VecInt;
typedef std::vector<double> VecDle;
typedef std::vector<VecFt> VecVecFt;
typedef std::vector<VecDle> VecVecDle;
typedef std::vector<VecInt> VecVecInt;

// A user loss ("USER"): reads `count` labels and `count` current predictions and writes `count`
// negative gradients to *gradientV. Returns 0 on success. An exception ends the run; it must not
// end the thread.
//
// The library calls it once per worker range and round, one call at a time, with the arrays from
// their first sample and the length of the range as `count`; only a run with one thread therefore
// passes every sample. It owns nothing that it is given.
typedef int (*LossFuncType)(double* labelV, double* predictV, double** gradientV, int count);

// A user sampler of split candidates, called once per node that is to be split.
//   dimF           number of feature columns
//   selF           to fill: countSel column ids in [0, dimF), no id twice; -1 ends the list early
//   selFeaValue    to fill when fspecify is set: one split value per entry of selF
//   countSel       entries of selF and of selFeaValue
//   curdepth       depth of the node, 0 for the root
//   fspecify       to set: whether the values in selFeaValue replace the computed split points
// Returns 0 on success. An exception ends the run; it must not end the thread. Several trees of a
// forest may call it from several threads.
typedef int (*SamplingFeatureType)(int dimF, int*& selF, double*& selFeaValue, int countSel,
                                   int curdepth, bool& fspecify);

// Told about progress after each round of boosting, or after each tree of a forest: `done` of
// `total`. Returns 0 to go on; anything else ends the run there, also when all is grown (Boosting
// returns -1 and writes no model), as does an exception. Also asked several times a second, with
// the numbers of last time (in a run before the first time: 0 of `total`; without a run: 0 of 1),
// while an output file of a learner's method is a FIFO that nobody reads: then anything but 0 ends
// the waiting, and the file is not written.
typedef int (*ProgressFuncType)(void* context, int done, int total);

// How rounding the thresholds of an ensemble to six digits changes what its training rows score.
struct rounding_effect_t {
    int numRows = 0;             // rows that reach another leaf of some tree
    double largestChange = 0.0;  // of a row's score, in absolute value
    // A rounded threshold no longer lies between the two values that the split separates. Otherwise
    // only rows that a tree did not sample change their leaf.
    bool fCrossed = false;
    bool fAtLeast = false;  // both are lower bounds: a large forest of sampled rows
};

// What one tree remembers of its split nodes, in the order in which they were split. The arrays
// are owned by the tree that grows (malloc/free) and live only while it does.
struct single_tree_debuginfo_t {
    int* selected_fea_list;          // chosen column of each split node
    double* selected_feaValue_list;  // its threshold
    double* avg_predict;             // the node's own output
    int* count_doc;                  // rows of the node
    int* candidate_fea_list;         // sampled columns, numFeaSel per split node
    double* sqr_crit_list;           // score of the chosen cut
};

// Per-column totals over a training run, indexed by column; owned by the learner.
struct fea_debuginfo_t {
    int* candidate_num_list;  // times the column was sampled at a split node
    int* selected_num_list;   // times it was chosen
    double* crit_sum_list;    // sum of the scores of the cuts it won
};

#endif  // SYLVORA_LIBDEF_H
