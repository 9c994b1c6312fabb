/* Sylvora for C, and for languages that call C: data sets, trainings and models as opaque handles.
 *
 *   sylvora_dataset* data;   sylvora_training* training;   sylvora_model* model;
 *   sylvora_block block = SYLVORA_BLOCK;
 *   block.values = x;  block.num_rows = n;  block.num_columns = d;
 *   block.row_stride = d * sizeof(double);  block.column_stride = sizeof(double);
 *   if (sylvora_dataset_new(&block, &data) != 0 || sylvora_training_new(&training) != 0 ||
 *       sylvora_training_set(training, "modelType", "GBDT") != 0 ||
 *       sylvora_training_data(training, data, y, n, NULL, 0) != 0 ||
 *       sylvora_training_run(training, &model) != 0) puts(sylvora_error());
 *
 * Functions that return int return 0, or -1 after an error, whose text sylvora_error returns. After
 * an error nothing was changed and *out is as it was, except where a function says otherwise. No
 * exception leaves the library. Texts are NUL-terminated UTF-8; numbers have a decimal point.
 * Handles are freed by their _free function, which ignores null.
 *
 * Thread safety: any number of threads may use a data set, or score with a model, at the same time.
 * Trainings may run at the same time, each in a thread of its own. Any other use of one handle
 * needs exclusive access.
 *
 * Random numbers come from the parameter randomSeed (1 by default), never from process-wide state.
 */
#ifndef SYLVORA_C_H
#define SYLVORA_C_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define SYLVORA_C_API __attribute__((visibility("default")))
#else
#define SYLVORA_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this interface that a program was compiled for. A library takes programs of the
 * same SYLVORA_C_MAJOR and the same or a lower SYLVORA_C_MINOR. */
#define SYLVORA_C_MAJOR 0
#define SYLVORA_C_MINOR 3

/* Returns 0 if the library takes programs of this version. */
SYLVORA_C_API int sylvora_check_version(int major, int minor);
/* The version of the library, such as "0.1.0". */
SYLVORA_C_API const char* sylvora_version(void);
/* The number of processors that the process may use: those of its affinity mask, or the limit of
 * its control group (as containers set it) if that is lower; at least 1. Reads files. */
SYLVORA_C_API int sylvora_usable_processors(void);
/* The text of the last error of the calling thread: one line or more, without a final line feed;
 * empty before any. Valid until the thread's next call of the library. */
SYLVORA_C_API const char* sylvora_error(void);
/* Whether the last error of the calling thread was that memory ran out, or that a model needs more
 * than there is. */
SYLVORA_C_API int sylvora_out_of_memory(void);

/* ---- Data ---------------------------------------------------------------------------------- */

enum sylvora_type {
    SYLVORA_FLOAT64,
    SYLVORA_FLOAT32,
    SYLVORA_INT64,
    SYLVORA_INT32,
    SYLVORA_INT16,
    SYLVORA_INT8,
    SYLVORA_UINT64,
    SYLVORA_UINT32,
    SYLVORA_UINT16,
    SYLVORA_UINT8
};

enum sylvora_layout {
    SYLVORA_DENSE,         /* values, type, row_stride, column_stride */
    SYLVORA_COLUMNS,       /* columns */
    SYLVORA_SPARSE_ROWS,   /* CSR: values and type, begins, indices; an absent value is 0 */
    SYLVORA_SPARSE_COLUMNS /* CSC: the same */
};

/* One column; a stride of 0 means contiguous values. `validity` has one bit per row, least
 * significant first, from bit number validity_offset on: 0 is a missing value; null: none is. */
typedef struct sylvora_column {
    const void* values;
    int32_t type;
    int64_t stride;
    const uint8_t* validity;
    int64_t validity_offset;
} sylvora_column;

/* A table of numbers that belongs to the caller. Begin with SYLVORA_BLOCK. Strides are in bytes and
 * may be negative; cells must not overlap; nothing needs to be aligned. Sparse indices must ascend
 * within a row (CSR) or column (CSC). Begins and indices are int32_t, or int64_t if long_begins or
 * long_indices is not 0. */
typedef struct sylvora_block {
    size_t size;    /* sizeof(sylvora_block) */
    int32_t layout; /* enum sylvora_layout */
    int32_t type;   /* enum sylvora_type */
    int64_t num_rows;
    int64_t num_columns;
    const void* values;
    int64_t row_stride;
    int64_t column_stride;
    const sylvora_column* columns;
    const void* begins;
    const void* indices;
    int32_t long_begins;
    int32_t long_indices;
    double missing; /* a value that is read as missing, if has_missing is not 0 */
    int32_t has_missing;
    int32_t refuse_nan; /* otherwise NaN is missing, too */
    int32_t refuse_infinite;
} sylvora_block;

#define SYLVORA_BLOCK \
    { sizeof(sylvora_block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0.0, 0, 0, 0 }

/* Training data that are coded once, by the first training, and used by any number of trainings.
 * The block's memory must stay valid and unchanged until the set and its subsets are freed. */
typedef struct sylvora_dataset sylvora_dataset;

SYLVORA_C_API int sylvora_dataset_new(const sylvora_block* block, sylvora_dataset** out);
/* The given rows of `whole`, in this order; rows may occur more than once. `whole` may be freed. */
SYLVORA_C_API int sylvora_dataset_subset(const sylvora_dataset* whole, const int32_t* rows,
                                         int64_t num_rows, sylvora_dataset** out);
SYLVORA_C_API int64_t sylvora_dataset_rows(const sylvora_dataset* data);
SYLVORA_C_API int64_t sylvora_dataset_columns(const sylvora_dataset* data);
/* Writes a column to values[0, number of rows), as trainings read it: a missing value is
 * -2147483648. */
SYLVORA_C_API int sylvora_dataset_column(const sylvora_dataset* data, int64_t column,
                                         double* values);
SYLVORA_C_API void sylvora_dataset_free(sylvora_dataset* data);

/* ---- Training ------------------------------------------------------------------------------ */

typedef struct sylvora_training sylvora_training;
typedef struct sylvora_model sylvora_model;

/* One round of a training with lossFunc USER. Fills gradients[0, num_rows) with negative gradients
 * and, unless it is null, hessians with second derivatives. Returns 0 to go on. */
typedef int (*sylvora_objective)(void* context, int round, int64_t num_rows, const double* labels,
                                 const double* scores, double* gradients, double* hessians);
/* Called after `done` of `total` rounds, or trees of a forest. Of those that a checkpoint has, only
 * after the last one, when the training goes on. Returns one of the values below. */
typedef int (*sylvora_progress)(void* context, int done, int total);
#define SYLVORA_GO_ON 0
#define SYLVORA_STOP 1                   /* the training fails: "Training was stopped" */
#define SYLVORA_STOP_AND_KEEP 0x6b656570 /* it ends with the model that there is */
/* A message of a training: `stream` is 1 for progress, 2 for notices, warnings and errors. Called
 * by one thread at a time. The function must not call the library. */
typedef void (*sylvora_message)(void* context, int stream, const char* text);

/* A training with default parameters. It runs once; from the start of the run on, the functions
 * that set it up fail. */
SYLVORA_C_API int sylvora_training_new(sylvora_training** out);
/* Sets a parameter of docs/parameters.md; the values are checked together when the training runs.
 * Those of the command only are refused: file names but for checkpoint, mode, absent, pathOutput,
 * fTestRealTime, sizeGroup. A checkpoint belongs to one training: the program's functions must be
 * the same ones when it goes on. */
SYLVORA_C_API int sylvora_training_set(sylvora_training* training, const char* parameter,
                                       const char* value);
/* The data, which the training shares, labels and, for GBRank, query ids, which are copied. Query
 * ids may be any numbers; rows of one query must be together. */
SYLVORA_C_API int sylvora_training_data(sylvora_training* training, const sylvora_dataset* data,
                                        const double* labels, int64_t num_labels,
                                        const int32_t* queries, int64_t num_queries);
/* Integer row weights, 0 or more, one per row of the data, which must have been set; copied. */
SYLVORA_C_API int sylvora_training_weights(sylvora_training* training, const int32_t* weights,
                                           int64_t num_weights);
/* Sets lossFunc to USER and its function. With `hessians` not 0, it fills second derivatives. */
SYLVORA_C_API int sylvora_training_objective(sylvora_training* training, sylvora_objective function,
                                             void* context, int hessians);
/* The score at which lossFunc USER starts, instead of 0. */
SYLVORA_C_API int sylvora_training_start(sylvora_training* training, double value);
/* A named set to evaluate after every round. The block is borrowed until the training has run; the
 * rest is copied. */
SYLVORA_C_API int sylvora_training_evaluate(sylvora_training* training, const char* name,
                                            const sylvora_block* block, const double* labels,
                                            int64_t num_labels, const int32_t* queries,
                                            int64_t num_queries);
/* Adds a metric to record for every set: rmse, mae, pinball, logloss, auc, accuracy, ndcg@K, pairs.
 * Without any, those that suit the loss are recorded. */
SYLVORA_C_API int sylvora_training_metric(sylvora_training* training, const char* metric);
/* A metric of the program's own: sets *value for the scores of a set after a round or, of a model
 * without rounds, at the end. Called by the thread that trains. The arrays are the training's. NaN
 * is never better. Returns 0 to go on; any other status ends the training, which fails. */
typedef int (*sylvora_metric)(void* context, const char* set, int64_t num_rows,
                              const double* labels, const double* scores, double* value);
/* Adds it under a name that no other metric has. It is recorded for every set, behind the other
 * metrics of the set, and may be that of sylvora_training_stop_rule. */
SYLVORA_C_API int sylvora_training_user_metric(sylvora_training* training, const char* name,
                                               sylvora_metric function, void* context,
                                               int larger_is_better);
/* The set and the metric that decide about the parameter earlyStop; null: the last set, the metric
 * that suits the loss. */
SYLVORA_C_API int sylvora_training_stop_rule(sylvora_training* training, const char* set,
                                             const char* metric);
SYLVORA_C_API int sylvora_training_on_progress(sylvora_training* training,
                                               sylvora_progress function, void* context);
/* Without a function, messages are dropped, except for the text of an error. */
SYLVORA_C_API int sylvora_training_on_message(sylvora_training* training, sylvora_message function,
                                              void* context);
/* Trains, in the calling thread and, with numThread above 1, threads that end with the call. A
 * training runs once, with success or not; only if its parameters were refused before it began,
 * they may be set again. */
SYLVORA_C_API int sylvora_training_run(sylvora_training* training, sylvora_model** out);
/* What was recorded, also after a failed run and, in the progress function of this training, so
 * far: metric number i, from 0, as its set, its name and its values by round. The training owns
 * them; what the progress function gets stays in place until it returns. Returns -1 without an
 * error text past the last one. */
SYLVORA_C_API int sylvora_training_record(const sylvora_training* training, int i, const char** set,
                                          const char** metric, const double** values,
                                          int64_t* num_values);
/* In the progress function of this training only: a copy of the model so far, of a forest the trees
 * so far, with a description. It is the caller's, and the model that saving with 17 digits and
 * loading gives. */
SYLVORA_C_API int sylvora_training_snapshot(sylvora_training* training, sylvora_model** out);
/* The best round of earlyStop, counted from 1, in the progress function so far; 0: it was not set.
 */
SYLVORA_C_API int sylvora_training_best_round(const sylvora_training* training);
/* Whether earlyStop ended the training before its last round. */
SYLVORA_C_API int sylvora_training_stopped_early(const sylvora_training* training);
SYLVORA_C_API void sylvora_training_free(sylvora_training* training);

/* ---- Models -------------------------------------------------------------------------------- */

/* Reads a model file, or the text of one. With `described` not 0 its description, too, if it has
 * one: one that is cut, damaged or of another model is an error. With 0 it is ignored. */
SYLVORA_C_API int sylvora_model_load(const char* file, int described, sylvora_model** out);
SYLVORA_C_API int sylvora_model_parse(const char* text, size_t size, int described,
                                      sylvora_model** out);
/* Writes a model with 6 or 17 digits and, with `described` not 0, its description: to a file, which
 * is replaced as a whole or left as it was, or to memory that sylvora_text_free frees. */
SYLVORA_C_API int sylvora_model_save(const sylvora_model* model, const char* file, int digits,
                                     int described);
SYLVORA_C_API int sylvora_model_text(const sylvora_model* model, int digits, int described,
                                     char** text, size_t* size);
SYLVORA_C_API void sylvora_text_free(char* text);
SYLVORA_C_API void sylvora_model_free(sylvora_model* model);

/* Scores a block into scores[0, num_rows). Uses at most `max_threads` threads, the caller's
 * included; 0: all usable processors. The block's description is used in the call only. */
SYLVORA_C_API int sylvora_model_score(const sylvora_model* model, const sylvora_block* block,
                                      double* scores, int max_threads);
/* Scores one row of doubles, in which NaN is missing. Allocates nothing, unless there is a NaN. */
SYLVORA_C_API int sylvora_model_score_row(const sylvora_model* model, const double* row,
                                          int64_t num_values, double* score);

/* Adds the outputs of the groups [first, end) of a regression to scores[0, num_rows), in order: the
 * mean of a group's trees times its shrink. From scores of 0 and over all groups, in one call or in
 * several, this gives the scores of sylvora_model_score bit for bit. `max_threads` as there, also
 * in the functions below. A failure changes no results. */
SYLVORA_C_API int sylvora_model_add_groups(const sylvora_model* model, const sylvora_block* block,
                                           int64_t first, int64_t end, double* scores,
                                           int max_threads);
/* The leaf that each row reaches in each tree, as a node number of sylvora_model_tree, into
 * leaves[row * num_trees + tree]; num_trees is that of the model. */
SYLVORA_C_API int sylvora_model_leaves(const sylvora_model* model, const sylvora_block* block,
                                       int32_t* leaves, int max_threads);
/* Of a classification: the share of the trees of all groups that vote for each class, into
 * shares[row * num_classes + class]. */
SYLVORA_C_API int sylvora_model_votes(const sylvora_model* model, const sylvora_block* block,
                                      double* shares, int max_threads);
/* Keeps the first num_groups groups, at least one, and drops the others with their covers. The rest
 * of the description stays, bestRound and settings as well. */
SYLVORA_C_API int sylvora_model_cut(sylvora_model* model, int64_t num_groups);

/* The probability of the larger of two labels at each score of a model with this loss, for LogLoss,
 * Logistic and Exponential. `probabilities` may be `scores`. */
SYLVORA_C_API int sylvora_probabilities(const char* loss, const double* scores, int64_t num_scores,
                                        double* probabilities);
/* out[i] = 1 / (1 + exp(-scores[i])), with a correctly rounded exponential: the probability p of
 * the gradients y - p of LogLoss, bit for bit, for objectives like it. `out` may be `scores`. */
SYLVORA_C_API int sylvora_expit(const double* scores, int64_t num_scores, double* out);
/* The start value of LogLoss: the log-odds of the labels above 0, each counted with its weight;
 * null: all weights are 1. Labels on one side only are an error. */
SYLVORA_C_API int sylvora_log_odds(const double* labels, const int32_t* weights, int64_t num_labels,
                                   double* log_odds);

typedef struct sylvora_model_facts {
    size_t size; /* sizeof(sylvora_model_facts), set by the caller */
    int64_t num_columns;
    int64_t num_classes; /* 0 for regression */
    int64_t num_groups;  /* rounds, and the start value if there is one */
    int64_t num_trees;
    const char* type; /* GBDT, ...; owned by the model, as the texts below */
    const char* loss;
} sylvora_model_facts;

SYLVORA_C_API int sylvora_model_facts_of(const sylvora_model* model, sylvora_model_facts* facts);

/* A node of a tree, numbered from 0, the root. A row goes left if its value is at most the
 * threshold. A leaf has column, left and right -1. `cover` is the number of training rows, or -1 if
 * it is not known. */
typedef struct sylvora_node {
    double threshold;
    double output;
    int32_t column;
    int32_t left;
    int32_t right;
    int32_t cover;
} sylvora_node;

/* The nodes of tree number `tree`, from 0, over all groups: copies at most `capacity` of them to
 * nodes and sets *num_nodes to their number, *group and *shrink to those of the tree. */
SYLVORA_C_API int sylvora_model_tree(const sylvora_model* model, int64_t tree, sylvora_node* nodes,
                                     int64_t capacity, int64_t* num_nodes, int64_t* group,
                                     double* shrink);

/* The description: a list of texts by key. Keys: "column" (names, one per column), "class" (names),
 * "link" (from score to probability: logit, half-logit, softplus-share, or none), "missing" (nan, a
 * number, or both), "bestRound", and "setting" (parameter=value). `i` counts from 0. Returns null
 * past the last one, and for other keys; the text is owned by the model. A training sets all but
 * names. */
SYLVORA_C_API const char* sylvora_model_describe(const sylvora_model* model, const char* key,
                                                 int64_t i);
/* Replaces the texts of a key; all are copied. No text removes what was there. */
SYLVORA_C_API int sylvora_model_set_description(sylvora_model* model, const char* key,
                                                const char* const* texts, int64_t num_texts);

/* ---- Several ranks ------------------------------------------------------------------------- */

/* How the ranks of a training, numbered from 0, exchange bytes: functions of the program. A rank is
 * a process, or a thread. All ranks have the same num_ranks.
 *
 * The three exchanges are collective: all ranks make the same calls in the same order. An exchange
 * returns 0 or, if a rank has left or the program cancels the training, another number; from then
 * on, all exchanges do. It must not wait for a rank that is gone: whoever notices that a rank has
 * failed (a collective function below returned -1 there) makes the waiting exchanges of the others
 * return. Sizes may exceed 2^31 bytes. The bytes are those of this machine: all ranks must run on
 * machines with the same data layout.
 *
 * Thread safety: of each rank, one thread at a time calls the exchanges; any thread may call
 * `cancelled`, which says, with another number than 0, to leave now. The functions must not call
 * the library with a handle of the same rank. */
typedef struct sylvora_communicator {
    size_t size; /* sizeof(sylvora_communicator) */
    void* context;
    int32_t rank;
    int32_t num_ranks;
    /* Every rank gives `bytes` bytes, and gets those of all ranks, in rank order, in `all`. */
    int (*allgather)(void* context, const void* mine, size_t bytes, void* all);
    /* Copies data[0, bytes) of rank `root` to all ranks. */
    int (*broadcast)(void* context, void* data, size_t bytes, int root);
    /* Every rank gives `bytes` bytes to each rank, in rank order, and gets `bytes` from each. */
    int (*alltoall)(void* context, const void* mine, size_t bytes, void* all);
    int (*cancelled)(void* context);
} sylvora_communicator;

#define SYLVORA_COMMUNICATOR \
    { sizeof(sylvora_communicator), 0, 0, 1, 0, 0, 0, 0 }

/* Makes one data set of the rows that the ranks have, those of rank 0 first: each rank gets the
 * values of some columns, and no rank ever holds all. Collective. Trainings on it, and on its
 * subsets, are collective as well: all ranks set them up alike, with the labels of all rows, and
 * get the model that one process would train on all rows, byte for byte. Sets to evaluate are given
 * in full at every rank. Only rank 0 writes messages and files. sylvora_dataset_column is
 * collective for such a set, and gives the values that all ranks have of the column.
 *
 * `share` has the rows of this rank, perhaps none; labels, queries and weights are those of its
 * rows, or null if no rank has any. They are only read during the call; the struct is copied, but
 * its context must stay valid until the set, its subsets and their trainings are freed. Fails at
 * all ranks with the same error if one of them cannot use its share (its row in the whole is
 * named), or if their columns differ in number; with an error of its own if an exchange fails. */
SYLVORA_C_API int sylvora_dataset_gather(const sylvora_communicator* communicator,
                                         const sylvora_block* share, const double* labels,
                                         const int32_t* queries, const int32_t* weights,
                                         sylvora_dataset** out);
/* What was gathered with the rows: arrays of one item per row, owned by the set; null: nothing. An
 * argument may be null. An error for sets that were made otherwise, also for subsets. */
SYLVORA_C_API int sylvora_dataset_gathered(const sylvora_dataset* data, const double** labels,
                                           const int32_t** queries, const int32_t** weights);

#ifdef __cplusplus
}
#endif

#endif /* SYLVORA_C_H */
