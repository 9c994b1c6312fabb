/* Trainings under way: metrics of the program, the record and the model so far. Parts of models:
 * groups, leaves, votes, cuts. Columns of data sets. Functions of losses. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "cases.h"

/* What a progress function sees, and where it ends the training with its model. */
struct progress {
    sylvora_training* training;
    int last;
    int num_trees; /* of the last snapshot */
    char* text;    /* of the last snapshot */
};

static double mean_of(const double* values, int64_t count) {
    double sum = 0.0;
    int64_t i;
    for (i = 0; i < count; ++i) sum += values[i];
    return sum / (double)count;
}

/* Mean squared difference. Fails in the round that the context says. */
static int squared(void* context, const char* set, int64_t num_rows, const double* labels,
                   const double* scores, double* value) {
    double squares[ROWS];
    int64_t i;
    EXPECT(strcmp(set, "first") == 0 && num_rows == 100);
    for (i = 0; i < num_rows; ++i) squares[i] = pow(labels[i] - scores[i], 2);
    *value = mean_of(squares, num_rows);
    return --*(int*)context == 0 ? 9 : 0;
}

static int no_objective(void* context, int round, int64_t num_rows, const double* labels,
                        const double* scores, double* gradients, double* hessians) {
    (void)labels, (void)scores, (void)gradients, (void)hessians;
    return context != NULL && round > 0 && num_rows > 0;
}

/* All that sets up a training fails once it has run. */
static void refuse_changes(sylvora_training* training, const sylvora_dataset* data) {
    static const int32_t weights[ROWS];
    const sylvora_block block = block_of(100);
    int left = 0;
    EXPECT_ERROR(sylvora_training_set(training, "numTree", "1"), "has run");
    EXPECT_ERROR(sylvora_training_data(training, data, y, ROWS, NULL, 0), "has run");
    EXPECT_ERROR(sylvora_training_weights(training, weights, ROWS), "has run");
    EXPECT_ERROR(sylvora_training_objective(training, no_objective, NULL, 0), "has run");
    EXPECT_ERROR(sylvora_training_start(training, 0.0), "has run");
    EXPECT_ERROR(sylvora_training_evaluate(training, "x", &block, y, 100, NULL, 0), "has run");
    EXPECT_ERROR(sylvora_training_metric(training, "mae"), "has run");
    EXPECT_ERROR(sylvora_training_user_metric(training, "x", squared, &left, 0), "has run");
    EXPECT_ERROR(sylvora_training_stop_rule(training, NULL, NULL), "has run");
    EXPECT_ERROR(sylvora_training_on_progress(training, NULL, NULL), "has run");
    EXPECT_ERROR(sylvora_training_on_message(training, NULL, NULL), "has run");
}

/* The values of the round just done are recorded, and are those of the model so far. */
static int look(void* context, int done, int total) {
    struct progress* progress = context;
    const sylvora_block block = block_of(100);
    sylvora_model_facts facts = {sizeof facts, 0, 0, 0, 0, NULL, NULL};
    sylvora_model* model = NULL;
    const char *set = NULL, *metric = NULL;
    const double* values = NULL;
    int64_t num_values = 0;
    double scores[ROWS], value = 0.0;
    size_t size = 0;
    int left = 0;
    EXPECT(total == 30 && done <= progress->last);
    EXPECT(sylvora_training_snapshot(progress->training, &model) == 0);
    EXPECT(sylvora_model_score(model, &block, scores, 1) == 0);
    EXPECT(sylvora_model_facts_of(model, &facts) == 0);
    progress->num_trees = (int)facts.num_trees;
    if (sylvora_training_record(progress->training, 2, &set, &metric, &values, &num_values) == 0) {
        EXPECT(strcmp(metric, "mine") == 0 && num_values == done);
        EXPECT(squared(&left, "first", 100, y, scores, &value) == 0);
        EXPECT(values[done - 1] == value);
        EXPECT(sylvora_training_record(progress->training, 0, NULL, &metric, &values, NULL) == 0);
        EXPECT(strcmp(metric, "rmse") == 0 && fabs(values[done - 1] - sqrt(value)) < 1e-12);
        EXPECT(sylvora_training_best_round(progress->training) > 0);
    }
    sylvora_text_free(progress->text);
    EXPECT(sylvora_model_text(model, 17, 1, &progress->text, &size) == 0);
    sylvora_model_free(model);
    return done == progress->last ? SYLVORA_STOP_AND_KEEP : SYLVORA_GO_ON;
}

/* The last snapshot is the model that is returned, also once that was saved and loaded. There are
 * none outside of the run. */
static void train_looking(sylvora_training* training, int last) {
    struct progress progress = {NULL, 0, 0, NULL};
    sylvora_model *model = NULL, *other = NULL;
    char* text = NULL;
    size_t size = 0;
    progress.training = training;
    progress.last = last;
    EXPECT(sylvora_training_on_progress(training, look, &progress) == 0);
    EXPECT_ERROR(sylvora_training_snapshot(training, &other), "progress function");
    EXPECT(sylvora_training_run(training, &model) == 0);
    EXPECT_ERROR(sylvora_training_snapshot(training, &other), "progress function");
    EXPECT(sylvora_model_text(model, 17, 1, &text, &size) == 0);
    EXPECT(progress.text != NULL && strcmp(text, progress.text) == 0);
    EXPECT(other == NULL && sylvora_model_parse(text, size, 1, &other) == 0);
    sylvora_text_free(text);
    EXPECT(sylvora_model_text(other, 17, 1, &text, &size) == 0);
    EXPECT(strcmp(text, progress.text) == 0);
    sylvora_text_free(text);
    sylvora_text_free(progress.text);
    sylvora_training_free(training);
    sylvora_model_free(other);
    sylvora_model_free(model);
}

/* The last snapshot of a run that ends with its model is that model, covers and settings included:
 * of boosting with a start value and a metric of the program, and of forests. */
void test_progress(const sylvora_dataset* data) {
    static const char* const losses[] = {"Square", "Huber"};
    static const char* const tasks[] = {"REG", "CLS"};
    const sylvora_block block = block_of(100);
    sylvora_training* training = NULL;
    sylvora_model* model = NULL;
    const double* values = NULL;
    int64_t num_values = 0;
    int i, left = -1;
    for (i = 0; i < 2; ++i) {
        training = training_on(data, y, losses[i]);
        EXPECT(sylvora_training_evaluate(training, "first", &block, y, 100, NULL, 0) == 0);
        EXPECT(sylvora_training_user_metric(training, "mine", squared, &left, 0) == 0);
        EXPECT(sylvora_training_stop_rule(training, NULL, "mine") == 0);
        EXPECT(sylvora_training_set(training, "earlyStop", "20") == 0);
        train_looking(training, 6);
        training = training_on(data, classes, "Label");
        EXPECT(sylvora_training_set(training, "modelType", "RandomForest") == 0);
        EXPECT(sylvora_training_set(training, "fRegCls", tasks[i]) == 0);
        train_looking(training, 7);
    }
    training = training_on(data, y, "Square");
    left = 4;
    EXPECT(sylvora_training_evaluate(training, "first", &block, y, 100, NULL, 0) == 0);
    EXPECT(sylvora_training_user_metric(training, "mine", squared, &left, 0) == 0);
    EXPECT_ERROR(sylvora_training_user_metric(training, "mine", NULL, &left, 0), "null");
    EXPECT_ERROR(sylvora_training_run(training, &model),
                 "metric \"mine\" failed for the set \"first\" in round 4 with status 9");
    EXPECT(sylvora_training_record(training, 2, NULL, NULL, &values, &num_values) == 0);
    EXPECT(num_values == 3 && model == NULL && sylvora_out_of_memory() == 0);
    refuse_changes(training, data);
    sylvora_training_free(training);
    training = training_on(data, y, "Square");
    EXPECT(sylvora_training_evaluate(training, "first", &block, y, 100, NULL, 0) == 0);
    EXPECT(sylvora_training_user_metric(training, "mae", squared, &left, 0) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "\"mae\" has the name of a built-in");
    sylvora_training_free(training);
}

/* Leaves are nodes of sylvora_model_tree, and their outputs make the scores. */
static void expect_leaves(const sylvora_model* model, int64_t num_trees) {
    const sylvora_block block = block_of(ROWS);
    int32_t* leaves = malloc(sizeof *leaves * (size_t)(ROWS * num_trees));
    double scores[ROWS], sums[ROWS];
    sylvora_node nodes[200];
    int64_t t, i, num_nodes = 0, group = 0;
    double shrink = 0.0;
    memset(sums, 0, sizeof sums);
    EXPECT(sylvora_model_leaves(model, &block, leaves, 2) == 0);
    EXPECT(sylvora_model_score(model, &block, scores, 1) == 0);
    for (t = 0; t < num_trees; ++t) {
        EXPECT(sylvora_model_tree(model, t, nodes, 200, &num_nodes, &group, &shrink) == 0);
        for (i = 0; i < ROWS; ++i) {
            const sylvora_node* leaf = &nodes[leaves[i * num_trees + t]];
            EXPECT(leaf->column == -1);
            sums[i] += shrink * leaf->output;
        }
    }
    EXPECT(memcmp(scores, sums, sizeof sums) == 0);
    free(leaves);
}

static sylvora_model* forest_on(const sylvora_dataset* data) {
    sylvora_training* training = training_on(data, classes, "Label");
    sylvora_model* model = NULL;
    EXPECT(sylvora_training_set(training, "modelType", "RandomForest") == 0);
    EXPECT(sylvora_training_set(training, "fRegCls", "CLS") == 0);
    EXPECT(sylvora_training_run(training, &model) == 0);
    sylvora_training_free(training);
    return model;
}

void test_parts(const sylvora_dataset* data) {
    sylvora_block block = block_of(ROWS);
    sylvora_training* training = training_on(data, y, "Huber");
    sylvora_model_facts facts = {sizeof facts, 0, 0, 0, 0, NULL, NULL};
    sylvora_model *model = NULL, *votes, *again = NULL;
    sylvora_node node;
    double scores[ROWS], sums[ROWS], shares[ROWS][2], shrink = 0.0;
    int64_t num_nodes = 0, group = 0;
    char* text = NULL;
    size_t size = 0;
    int i;
    EXPECT(sylvora_training_run(training, &model) == 0);
    sylvora_training_free(training);
    votes = forest_on(data);
    expect_leaves(model, 31);
    EXPECT(sylvora_model_score(model, &block, scores, 1) == 0);
    memset(sums, 0, sizeof sums);
    EXPECT(sylvora_model_add_groups(model, &block, 0, 1, sums, 1) == 0);
    EXPECT(sums[0] == sums[ROWS - 1]); /* the start value */
    EXPECT(sylvora_model_add_groups(model, &block, 1, 12, sums, 2) == 0);
    EXPECT(sylvora_model_add_groups(model, &block, 12, 31, sums, 0) == 0);
    EXPECT(memcmp(scores, sums, sizeof sums) == 0);
    EXPECT_ERROR(sylvora_model_add_groups(model, &block, 12, 32, sums, 0), "has 31");
    EXPECT_ERROR(sylvora_model_add_groups(votes, &block, 0, 1, sums, 0), "classification");
    EXPECT_ERROR(sylvora_model_votes(model, &block, shares[0], 0), "regression");
    EXPECT_ERROR(sylvora_model_votes(votes, &block, NULL, 0), "null");
    EXPECT_ERROR(sylvora_model_leaves(NULL, &block, NULL, 0), "null");
    block.refuse_nan = 1;
    EXPECT_ERROR(sylvora_model_add_groups(model, &block, 0, 1, sums, 0), "row 7, column 2");
    EXPECT(memcmp(scores, sums, sizeof sums) == 0);

    /* The share is above a half for the class that the forest chooses. */
    block.refuse_nan = 0;
    EXPECT(sylvora_model_votes(votes, &block, shares[0], 2) == 0);
    EXPECT(sylvora_model_score(votes, &block, scores, 1) == 0);
    for (i = 0; i < ROWS; ++i) {
        EXPECT(fabs(shares[i][0] + shares[i][1] - 1.0) < 1e-12);
        EXPECT(shares[i][0] == 0.5 || scores[i] == (shares[i][1] > 0.5));
    }

    /* A model that is cut has covers for what is left, also once it was saved. */
    EXPECT_ERROR(sylvora_model_cut(model, 0), "0 groups");
    EXPECT_ERROR(sylvora_model_cut(model, 32), "32 groups");
    EXPECT(sylvora_model_cut(model, 31) == 0);
    EXPECT(sylvora_model_cut(model, 9) == 0);
    EXPECT(sylvora_model_facts_of(model, &facts) == 0);
    EXPECT(facts.num_groups == 9 && facts.num_trees == 9);
    expect_leaves(model, 9);
    EXPECT(sylvora_model_text(model, 17, 1, &text, &size) == 0);
    EXPECT(sylvora_model_parse(text, size, 1, &again) == 0);
    sylvora_text_free(text);
    expect_same_scores(model, again, __LINE__);
    EXPECT(sylvora_model_tree(again, 8, &node, 1, &num_nodes, &group, &shrink) == 0);
    EXPECT(node.cover == 280);
    sylvora_model_free(model);
    sylvora_model_free(again);
    sylvora_model_free(votes);
}

/* The residuals; the context is the round that is expected next. */
static int residuals(void* context, int round, int64_t num_rows, const double* labels,
                     const double* scores, double* gradients, double* hessians) {
    (void)hessians;
    EXPECT(round == (*(int*)context)++);
    for (int64_t i = 0; i < num_rows; ++i) gradients[i] = labels[i] - scores[i];
    return 0;
}

static int stop_at_17(void* context, int done, int total) {
    (void)context, (void)total;
    return done == 17 ? SYLVORA_STOP : SYLVORA_GO_ON;
}

/* A training that is stopped goes on with the next round. */
void test_checkpoint(const sylvora_dataset* data) {
    char path[] = "/tmp/sylvora-XXXXXX";
    sylvora_model *whole = NULL, *resumed = NULL;
    const int descriptor = mkstemp(path);
    EXPECT(descriptor >= 0 && close(descriptor) == 0 && unlink(path) == 0);
    for (int run = 0; run < 3; ++run) {
        const sylvora_block block = block_of(100);
        sylvora_training* training = training_on(data, y, "USER");
        int next = run < 2 ? 1 : 18;
        EXPECT(sylvora_training_objective(training, residuals, &next, 0) == 0);
        EXPECT(sylvora_training_evaluate(training, "first", &block, y, 100, NULL, 0) == 0);
        EXPECT(sylvora_training_set(training, "fileModel", path) == -1);
        if (run > 0) EXPECT(sylvora_training_set(training, "checkpoint", path) == 0);
        EXPECT(sylvora_training_set(training, "checkpointEvery", "5") == 0);
        if (run == 0) EXPECT(sylvora_training_run(training, &whole) == 0);
        if (run == 1) {
            EXPECT(sylvora_training_on_progress(training, stop_at_17, NULL) == 0);
            EXPECT_ERROR(sylvora_training_run(training, &resumed), "stopped after 17 of 30");
        }
        if (run == 2) {
            int64_t num_values = 0;
            EXPECT(sylvora_training_set(training, "numThread", "3") == 0);
            EXPECT(sylvora_training_run(training, &resumed) == 0);
            EXPECT(sylvora_training_record(training, 0, NULL, NULL, NULL, &num_values) == 0);
            EXPECT(num_values == 30);
        }
        sylvora_training_free(training);
    }
    expect_same(whole, resumed, __LINE__);
    EXPECT(unlink(path) == 0);
    sylvora_model_free(whole);
    sylvora_model_free(resumed);
}

/* Of the whole set and of a subset; missing values are -2147483648. */
void test_column(const sylvora_dataset* data) {
    const int32_t rows[] = {9, 7, 0, 9};
    sylvora_dataset* subset = NULL;
    double values[ROWS];
    int i;
    EXPECT(sylvora_dataset_column(data, 2, values) == 0);
    for (i = 0; i < ROWS; ++i) EXPECT(values[i] == (i == 7 ? -2147483648.0 : x[i][2]));
    EXPECT(sylvora_dataset_subset(data, rows, 4, &subset) == 0);
    EXPECT(sylvora_dataset_column(subset, 2, values) == 0);
    EXPECT(values[0] == x[9][2] && values[1] == -2147483648.0 && values[2] == x[0][2]);
    EXPECT(values[3] == x[9][2] && values[4] == x[4][2]);
    sylvora_dataset_free(subset);
    EXPECT_ERROR(sylvora_dataset_column(data, COLUMNS, values), "no column 4");
    EXPECT_ERROR(sylvora_dataset_column(data, -1, values), "no column -1");
    EXPECT_ERROR(sylvora_dataset_column(data, 0, NULL), "null");
    EXPECT_ERROR(sylvora_dataset_column(NULL, 0, values), "null");
}

void test_log_odds(void) {
    const double labels[4] = {1, -1, 1, 1};
    const int32_t weights[4] = {1, 3, 0, 2}, none[4] = {1, 0, 1, 1};
    double odds = 0.0;
    EXPECT(sylvora_log_odds(labels, NULL, 4, &odds) == 0 && fabs(odds - log(3.0)) < 1e-15);
    EXPECT(sylvora_log_odds(labels, weights, 4, &odds) == 0 && odds == 0.0);
    EXPECT_ERROR(sylvora_log_odds(labels, none, 4, &odds), "both");
    EXPECT_ERROR(sylvora_log_odds(labels, NULL, 0, &odds), "both");
}

void test_expit(void) {
    double scores[600];
    for (int i = 0; i < 600; ++i) scores[i] = (i - 300) * 4.0;
    EXPECT(sylvora_expit(scores, 600, scores) == 0);
    EXPECT(scores[300] == 0.5 && scores[0] == 0.0 && !signbit(scores[0]) && scores[599] == 1.0);
    for (int i = 0; i < 600; ++i) {
        EXPECT(fabs(scores[i] - 1 / (1 + exp((300 - i) * 4.0))) <= 4e-16 * scores[i]);
    }
    EXPECT_ERROR(sylvora_expit(NULL, 1, scores), "null");
}
