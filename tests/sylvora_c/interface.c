/* Uses the functions of the C interface, from C: results that must agree, and errors. parts.c has
 * those on trainings under way and on parts of models. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cases.h"

static int square(void* context, int round, int64_t num_rows, const double* labels,
                  const double* scores, double* gradients, double* hessians) {
    int64_t i;
    ++*(int*)context;
    EXPECT(round == *(int*)context && num_rows == ROWS && hessians == NULL);
    for (i = 0; i < num_rows; ++i) gradients[i] = labels[i] - scores[i];
    return 0;
}

/* The gradients of Square, with second derivatives that make a node's value their mean. */
static int square_with_hessians(void* context, int round, int64_t num_rows, const double* labels,
                                const double* scores, double* gradients, double* hessians) {
    int64_t i;
    EXPECT(hessians != NULL);
    for (i = 0; i < num_rows; ++i) {
        gradients[i] = labels[i] - scores[i];
        hessians[i] = 1.0;
    }
    return round == *(int*)context ? 7 : 0;
}

static int keep_ten(void* context, int done, int total) {
    EXPECT(total == 30);
    return done == 10 ? *(int*)context : SYLVORA_GO_ON;
}

static void count_messages(void* context, int stream, const char* text) {
    if (stream == 2 && text[0] != '\0') ++*(int*)context;
}

static void test_objective_and_progress(const sylvora_dataset* data, const sylvora_model* model) {
    sylvora_training* training = training_on(data, y, "USER");
    sylvora_model* user = NULL;
    sylvora_model_facts facts = {sizeof facts, 0, 0, 0, 0, NULL, NULL};
    int calls = 0, answer = SYLVORA_STOP_AND_KEEP, messages = 0;
    EXPECT(sylvora_training_objective(training, square, &calls, 0) == 0);
    EXPECT(sylvora_training_set(training, "numThread", "3") == 0);
    EXPECT(sylvora_training_run(training, &user) == 0);
    EXPECT(calls == 30);
    expect_same(model, user, __LINE__);
    EXPECT_ERROR(sylvora_training_run(training, &user), "has run");
    EXPECT_ERROR(sylvora_training_set(training, "numTree", "1"), "has run");
    sylvora_training_free(training);
    sylvora_model_free(user);

    /* One group more: the start value. A status other than 0 ends the run. */
    calls = 3;
    training = training_on(data, y, "USER");
    EXPECT(sylvora_training_objective(training, square_with_hessians, &calls, 1) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &user), "round 3 with status 7");
    sylvora_training_free(training);
    calls = 0;
    training = training_on(data, y, "USER");
    EXPECT(sylvora_training_objective(training, square_with_hessians, &calls, 1) == 0);
    EXPECT(sylvora_training_start(training, 0.0) == 0);
    EXPECT_ERROR(sylvora_training_start(training, NAN), "finite");
    EXPECT(sylvora_training_run(training, &user) == 0);
    EXPECT(sylvora_model_facts_of(user, &facts) == 0 && facts.num_groups == 31);
    expect_same_scores(model, user, __LINE__);
    sylvora_training_free(training);
    sylvora_model_free(user);

    training = training_on(data, y, "Square");
    EXPECT(sylvora_training_on_progress(training, keep_ten, &answer) == 0);
    EXPECT(sylvora_training_run(training, &user) == 0);
    EXPECT(sylvora_model_facts_of(user, &facts) == 0 && facts.num_trees == 10);
    EXPECT(strcmp(facts.type, "GBDT") == 0 && strcmp(facts.loss, "Square") == 0);
    sylvora_training_free(training);
    sylvora_model_free(user);

    training = training_on(data, y, "Square");
    answer = SYLVORA_STOP;
    user = NULL;
    EXPECT(sylvora_training_on_progress(training, keep_ten, &answer) == 0);
    EXPECT(sylvora_training_on_message(training, count_messages, &messages) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &user), "stopped after 10 of 30");
    EXPECT(user == NULL && messages == 1);
    sylvora_training_free(training);
}

/* The same values as CSR, and weights of 1: both give the model of the dense block. */
static void test_sparse_and_weights(const sylvora_dataset* data, const sylvora_model* model) {
    static float values[ROWS * COLUMNS];
    static int32_t indices[ROWS * COLUMNS];
    static int64_t begins[ROWS + 1];
    int32_t weights[ROWS];
    sylvora_block block = SYLVORA_BLOCK;
    sylvora_dataset* sparse = NULL;
    sylvora_training* training;
    sylvora_model* other = NULL;
    int i, j;
    for (i = 0; i < ROWS; ++i) {
        weights[i] = 1;
        begins[i + 1] = begins[i];
        for (j = 0; j < COLUMNS; ++j) {
            if (x[i][j] == 0.0) continue;
            values[begins[i + 1]] = (float)x[i][j];
            indices[begins[i + 1]++] = j;
        }
    }
    block.layout = SYLVORA_SPARSE_ROWS;
    block.type = SYLVORA_FLOAT32;
    block.num_rows = ROWS;
    block.num_columns = COLUMNS;
    block.values = values;
    block.begins = begins;
    block.long_begins = 1;
    block.indices = indices;
    EXPECT(sylvora_dataset_new(&block, &sparse) == 0);
    training = training_on(sparse, y, "Square");
    EXPECT(sylvora_training_weights(training, weights, ROWS) == 0);
    EXPECT(sylvora_training_run(training, &other) == 0);
    expect_same(model, other, __LINE__);
    sylvora_training_free(training);
    sylvora_model_free(other);
    sylvora_dataset_free(sparse);
    indices[1] = indices[0];
    EXPECT_ERROR(sylvora_dataset_new(&block, &sparse), "ascend");
    for (i = 0; i < ROWS; ++i) weights[i] = i % 3;
    training = training_on(data, y, "Square");
    EXPECT_ERROR(sylvora_training_weights(training, weights, 3), "3 weights");
    EXPECT(sylvora_training_weights(training, weights, ROWS) == 0);
    EXPECT(sylvora_training_run(training, &other) == 0);
    sylvora_training_free(training);
    sylvora_model_free(other);
}

static void test_best_round(sylvora_model* model) {
    const char *round = "17", *wrong[] = {"0", "-1", "1.5", "x", "", "99999999999"};
    EXPECT(sylvora_model_set_description(model, "bestRound", &round, 1) == 0);
    for (int i = 0; i < 6; ++i) {
        EXPECT_ERROR(sylvora_model_set_description(model, "bestRound", &wrong[i], 1), "best round");
    }
    EXPECT(strcmp(sylvora_model_describe(model, "bestRound", 0), "17") == 0);
    EXPECT(sylvora_model_set_description(model, "bestRound", NULL, 0) == 0);
    EXPECT(sylvora_model_describe(model, "bestRound", 0) == NULL);
}

static void test_evaluation(const sylvora_dataset* data) {
    const sylvora_block block = block_of(100);
    sylvora_training* training = training_on(data, classes, "LogLoss");
    sylvora_model* model = NULL;
    const char *set = NULL, *metric = NULL;
    const double* values = NULL;
    int64_t num_values = 0;
    double scores[ROWS];
    int best;
    EXPECT(sylvora_training_evaluate(training, "first", &block, classes, 100, NULL, 0) == 0);
    EXPECT_ERROR(sylvora_training_evaluate(training, "x", &block, classes, 99, NULL, 0),
                 "99 labels");
    EXPECT(sylvora_training_metric(training, "auc") == 0);
    EXPECT(sylvora_training_metric(training, "logloss") == 0);
    EXPECT(sylvora_training_stop_rule(training, "first", "logloss") == 0);
    EXPECT(sylvora_training_set(training, "earlyStop", "3") == 0);
    EXPECT(sylvora_training_set(training, "valShrink", "0.9") == 0);
    EXPECT(sylvora_training_set(training, "numTree", "200") == 0);
    EXPECT(sylvora_training_run(training, &model) == 0);
    best = sylvora_training_best_round(training);
    EXPECT(sylvora_training_record(training, 1, &set, &metric, &values, &num_values) == 0);
    EXPECT(strcmp(set, "first") == 0 && strcmp(metric, "logloss") == 0);
    EXPECT(best >= 1 && num_values >= best && values[best - 1] <= values[0]);
    EXPECT(sylvora_training_stopped_early(training) == (num_values < 200));
    EXPECT(sylvora_training_record(training, 2, &set, &metric, &values, &num_values) == -1);
    EXPECT(strcmp(sylvora_model_describe(model, "link", 0), "logit") == 0);
    EXPECT(atoi(sylvora_model_describe(model, "bestRound", 0)) == best);
    EXPECT(sylvora_model_score(model, &block, scores, 0) == 0);
    EXPECT(sylvora_probabilities("LogLoss", scores, 100, scores) == 0);
    EXPECT(scores[0] > 0 && scores[0] < 1);
    EXPECT_ERROR(sylvora_probabilities("Square", scores, 100, scores), "no probabilities");
    sylvora_training_free(training);
    sylvora_model_free(model);
}

static void test_models(sylvora_model* model) {
    const char* const names[] = {"a", "b\n", "\"c\"", ""};
    const char* const setting = "by=hand";
    const sylvora_block block = block_of(ROWS);
    sylvora_model *again = NULL, *parsed = NULL, *other = NULL;
    sylvora_node nodes[100];
    int64_t num_nodes = 0, group = -1;
    double scores[ROWS], others[ROWS], shrink = 0.0;
    char* text = NULL;
    size_t size = 0;
    EXPECT(sylvora_model_set_description(model, "column", names, COLUMNS) == 0);
    EXPECT(sylvora_model_set_description(model, "setting", &setting, 1) == 0);
    EXPECT_ERROR(sylvora_model_set_description(model, "column", names, 3), "3 names for 4");
    EXPECT_ERROR(sylvora_model_set_description(model, "colour", names, 1), "colour");
    EXPECT_ERROR(sylvora_model_set_description(model, "column", names, -1), "-1 texts");
    EXPECT_ERROR(sylvora_model_set_description(model, "setting", names, 1), "parameter=value");
    EXPECT(sylvora_model_save(model, "c-interface.model", 17, 1) == 0);
    EXPECT(sylvora_model_load("c-interface.model", 1, &again) == 0);
    EXPECT(sylvora_model_text(model, 17, 1, &text, &size) == 0);
    EXPECT(sylvora_model_parse(text, size, 1, &parsed) == 0);
    EXPECT_ERROR(sylvora_model_parse(text, size - 3, 1, &other), "");
    EXPECT(sylvora_model_parse(text, size - 3, 0, &other) == 0);
    expect_text(again, 17, 1, text, __LINE__);
    expect_text(parsed, 17, 1, text, __LINE__);
    sylvora_text_free(text);
    EXPECT(sylvora_model_text(model, 6, 0, &text, &size) == 0);
    expect_text(again, 6, 0, text, __LINE__);
    expect_text(other, 6, 0, text, __LINE__);
    EXPECT_ERROR(sylvora_model_parse("", 0, 1, &parsed), "empty model");
    EXPECT_ERROR(sylvora_model_load("no such file", 1, &parsed), "Cannot open model file");
    EXPECT_ERROR(sylvora_model_parse("no model", 8, 1, &parsed), "no model");
    sylvora_text_free(text);
    remove("c-interface.model");
    EXPECT(sylvora_model_score(model, &block, scores, 2) == 0);
    EXPECT(sylvora_model_score(again, &block, others, 1) == 0);
    EXPECT(memcmp(scores, others, sizeof scores) == 0);
    EXPECT(sylvora_model_score_row(parsed, x[7], COLUMNS, others) == 0 && others[0] == scores[7]);
    EXPECT_ERROR(sylvora_model_score_row(parsed, x[7], 3, others), "dimension");
    EXPECT(strcmp(sylvora_model_describe(again, "column", 1), "b\n") == 0);
    EXPECT(sylvora_model_describe(again, "column", 4) == NULL);
    EXPECT(strcmp(sylvora_model_describe(parsed, "setting", 0), "by=hand") == 0);
    EXPECT(strcmp(sylvora_model_describe(parsed, "missing", 0), "nan") == 0);
    EXPECT(sylvora_model_tree(again, 3, nodes, 100, &num_nodes, &group, &shrink) == 0);
    EXPECT(group == 3 && num_nodes > 2 && num_nodes < 100 && fabs(shrink - 0.09) < 1e-7);
    EXPECT(nodes[0].cover == 280 &&
           nodes[nodes[0].left].cover + nodes[nodes[0].right].cover == 280);
    EXPECT_ERROR(sylvora_model_tree(again, 30, nodes, 100, &num_nodes, &group, &shrink), "30");
    sylvora_model_free(again);
    sylvora_model_free(parsed);
    sylvora_model_free(other);
}

/* Other model types, sparse data, and settings that read back exactly. */
static void test_model_types(const sylvora_dataset* data) {
    static const char* const types[] = {"RandomForest", "CART", "GBRank"};
    int32_t queries[ROWS];
    int i, t;
    for (i = 0; i < ROWS; ++i) queries[i] = 1000 - i / 20;
    for (t = 0; t < 3; ++t) {
        sylvora_training* training = NULL;
        sylvora_model* model = NULL;
        sylvora_model_facts facts = {sizeof facts, 0, 0, 0, 0, NULL, NULL};
        const int fRanking = t == 2;
        EXPECT(sylvora_training_new(&training) == 0);
        EXPECT(sylvora_training_set(training, "modelType", types[t]) == 0);
        EXPECT(sylvora_training_set(training, "fRegCls", fRanking ? "REG" : "CLS") == 0);
        EXPECT(sylvora_training_set(training, "numTree", t == 1 ? "1" : "12") == 0);
        EXPECT(sylvora_training_set(training, "valShrink", "0.12345678901") == 0);
        EXPECT(sylvora_training_set(training, "ratio", "7") == 0);
        EXPECT(sylvora_training_data(training, data, classes, ROWS, fRanking ? queries : NULL,
                                     ROWS) == 0);
        EXPECT_ERROR(sylvora_training_run(training, &model), "ratio");
        EXPECT(sylvora_training_set(training, "ratio", "0.5") == 0);
        EXPECT(sylvora_training_run(training, &model) == 0);
        EXPECT(sylvora_model_facts_of(model, &facts) == 0);
        EXPECT(facts.num_trees == (t == 1 ? 1 : 12) && facts.num_classes == (fRanking ? 0 : 2));
        EXPECT(strcmp(sylvora_model_describe(model, "setting", 3),
                      t == 1 ? "numTree=1" : "numTree=12") == 0);
        EXPECT(strcmp(sylvora_model_describe(model, "setting", 4),
                      fRanking ? "valShrink=0.12345678901" : "valShrink=1") == 0);
        EXPECT(sylvora_model_describe(model, "link", 0) == NULL);
        sylvora_training_free(training);
        sylvora_model_free(model);
    }
}

static void test_errors(const sylvora_dataset* data) {
    sylvora_block block = block_of(ROWS);
    sylvora_dataset* wrong = NULL;
    sylvora_training* training = NULL;
    sylvora_model* model = NULL;
    const int32_t rows[] = {0, ROWS};
    int32_t queries[ROWS] = {0, 1, 0};
    int32_t weights[ROWS] = {-1};
    EXPECT_ERROR(sylvora_check_version(SYLVORA_C_MAJOR, SYLVORA_C_MINOR + 1), "version");
    EXPECT_ERROR(sylvora_check_version(SYLVORA_C_MAJOR + 1, 0), "version");
    EXPECT_ERROR(sylvora_dataset_new(NULL, &wrong), "null");
    block.size = 8;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "SYLVORA_BLOCK");
    block = block_of(ROWS);
    block.refuse_nan = 1;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "NaN in row 7, column 2");
    block.row_stride = 8;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "overlap");
    block.values = NULL;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "null");
    block.layout = 7;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "layout");
    block.layout = SYLVORA_COLUMNS;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "null");
    block.num_rows = (int64_t)1 << 40;
    EXPECT_ERROR(sylvora_dataset_new(&block, &wrong), "more than");
    EXPECT_ERROR(sylvora_dataset_subset(data, rows, 2, &wrong), "does not exist");
    EXPECT_ERROR(sylvora_dataset_subset(data, rows, -1, &wrong), "no rows");
    EXPECT_ERROR(sylvora_dataset_subset(data, rows, 2 - ((int64_t)1 << 32), &wrong), "no rows");
    EXPECT_ERROR(sylvora_dataset_subset(data, rows, (int64_t)1 << 32, &wrong), "too many rows");
    EXPECT(wrong == NULL);

    EXPECT(sylvora_training_new(&training) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "no data");
    EXPECT_ERROR(sylvora_training_set(training, "numTrees", "5"), "numTrees");
    EXPECT_ERROR(sylvora_training_set(training, "numTree", "five"), "five");
    EXPECT_ERROR(sylvora_training_set(training, "numTree", "1e3"), "1e3");
    EXPECT_ERROR(sylvora_training_set(training, "numTree", "4294967298"), "4294967298");
    EXPECT_ERROR(sylvora_training_set(training, "valShrink", "1e400"), "1e400");
    EXPECT_ERROR(sylvora_training_set(training, "fileModel", "x"), "command only");
    EXPECT_ERROR(sylvora_training_data(training, data, y, 5, NULL, 0), "5 labels");
    EXPECT_ERROR(sylvora_training_data(training, data, x[7], ROWS, NULL, 0), "row 2");
    EXPECT_ERROR(sylvora_training_data(training, data, y, ROWS, queries, ROWS), "not together");
    EXPECT(sylvora_training_data(training, data, y, ROWS, NULL, 0) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "modelType");
    EXPECT(sylvora_training_set(training, "modelType", "GBRank") == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "query id");
    EXPECT(sylvora_training_set(training, "modelType", "GBDT") == 0);
    EXPECT(sylvora_training_set(training, "lossFunc", "USER") == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "needs a function");
    EXPECT(sylvora_training_set(training, "lossFunc", "Square") == 0);
    EXPECT_ERROR(sylvora_training_weights(training, weights, -1), "-1 weights");
    EXPECT(sylvora_training_weights(training, weights, ROWS) == 0);
    EXPECT_ERROR(sylvora_training_run(training, &model), "weight");
    sylvora_training_free(training);

    training = training_on(data, y, "LogLoss");
    EXPECT_ERROR(sylvora_training_run(training, &model), "label");
    EXPECT(model == NULL);
    sylvora_training_free(training);
    sylvora_training_free(NULL);
    sylvora_dataset_free(NULL);
    sylvora_model_free(NULL);
}

int main(void) {
    float floats[COLUMNS][ROWS];
    double doubles[ROWS][COLUMNS];
    int32_t all[ROWS];
    sylvora_column columns[COLUMNS];
    sylvora_block block;
    sylvora_dataset *data = NULL, *subset = NULL;
    sylvora_training* training;
    sylvora_model *model = NULL, *other = NULL;
    int i, j;
    EXPECT(sylvora_check_version(SYLVORA_C_MAJOR, SYLVORA_C_MINOR) == 0);
    EXPECT(strlen(sylvora_version()) >= 5 && sylvora_error()[0] == '\0');
    fill();
    memset(columns, 0, sizeof columns);
    for (j = 0; j < COLUMNS; ++j) {
        for (i = 0; i < ROWS; ++i) {
            floats[j][i] = (float)x[i][j];
            x[i][j] = doubles[i][j] = floats[j][i];
        }
        columns[j].values = floats[j];
        columns[j].type = SYLVORA_FLOAT32;
    }
    for (i = 0; i < ROWS; ++i) all[i] = i;
    block = block_of(ROWS);
    EXPECT(sylvora_dataset_new(&block, &data) == 0);
    EXPECT(sylvora_dataset_rows(data) == ROWS && sylvora_dataset_columns(data) == COLUMNS);
    training = training_on(data, y, "Square");
    EXPECT(sylvora_training_run(training, &model) == 0);
    sylvora_training_free(training);
    /* The same values by column, as a subset that outlives its whole. */
    block.layout = SYLVORA_COLUMNS;
    block.columns = columns;
    {
        sylvora_dataset* by_column = NULL;
        EXPECT(sylvora_dataset_new(&block, &by_column) == 0);
        EXPECT(sylvora_dataset_subset(by_column, all, ROWS, &subset) == 0);
        sylvora_dataset_free(by_column);
    }
    training = training_on(subset, y, "Square");
    EXPECT(sylvora_training_run(training, &other) == 0);
    expect_same(model, other, __LINE__);
    sylvora_training_free(training);
    sylvora_model_free(other);
    test_objective_and_progress(data, model);
    test_sparse_and_weights(data, model);
    test_log_odds();
    test_expit();
    test_best_round(model);
    test_evaluation(data);
    test_models(model);
    EXPECT(sylvora_usable_processors() >= 1);
    test_model_types(data);
    test_errors(data);
    test_progress(data);
    test_checkpoint(data);
    test_parts(data);
    test_column(data);
    sylvora_model_free(model);
    sylvora_dataset_free(data);
    sylvora_dataset_free(subset);
    if (num_faults == 0) puts("all as expected");
    return num_faults != 0;
}
