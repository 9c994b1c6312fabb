/* What the tests of the C interface share; see cases.h. */
#include "cases.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

double x[ROWS][COLUMNS];
double y[ROWS];
double classes[ROWS];
int num_faults = 0;

void expect(int holds, const char* what, int line) {
    if (holds) return;
    fprintf(stderr, "line %d: %s; last error: %s\n", line, what, sylvora_error());
    ++num_faults;
}
void fill(void) {
    unsigned state = 1;
    int i, j;
    for (i = 0; i < ROWS; ++i) {
        for (j = 0; j < COLUMNS; ++j) {
            state = state * 1664525u + 1013904223u;
            x[i][j] = (double)(state >> 8) / (1 << 24);
            if (x[i][j] < 0.1) x[i][j] = 0.0; /* left out of sparse rows */
        }
        y[i] = x[i][0] * 3 + (x[i][1] > 0.5) + x[i][2] * x[i][3];
        classes[i] = y[i] > 2.2;
    }
    x[7][2] = NAN;
}

sylvora_block block_of(int num_rows) {
    sylvora_block block = SYLVORA_BLOCK;
    block.values = x;
    block.num_rows = num_rows;
    block.num_columns = COLUMNS;
    block.row_stride = sizeof x[0];
    block.column_stride = sizeof x[0][0];
    return block;
}

sylvora_training* training_on(const sylvora_dataset* data, const double* labels,
                                     const char* loss) {
    sylvora_training* training = NULL;
    EXPECT(sylvora_training_new(&training) == 0);
    EXPECT(sylvora_training_set(training, "modelType", "GBDT") == 0);
    EXPECT(sylvora_training_set(training, "lossFunc", loss) == 0);
    EXPECT(sylvora_training_set(training, "numTree", "30") == 0);
    EXPECT(sylvora_training_set(training, "valSmpRt", "0.7") == 0);
    EXPECT(sylvora_training_set(training, "randomSeed", "5") == 0);
    EXPECT(sylvora_training_data(training, data, labels, sylvora_dataset_rows(data), NULL, 0) == 0);
    return training;
}

/* The text from the third line on: the first two name the loss. To be freed. */
static char* trees_of(const sylvora_model* model) {
    char* text = NULL;
    char* trees;
    size_t size = 0;
    EXPECT(sylvora_model_text(model, 17, 0, &text, &size) == 0);
    if (text == NULL) return NULL;
    EXPECT(strlen(text) == size);
    trees = strdup(strchr(strchr(text, '\n') + 1, '\n'));
    sylvora_text_free(text);
    return trees;
}

void expect_same(const sylvora_model* a, const sylvora_model* b, int line) {
    char* one = trees_of(a);
    char* other = trees_of(b);
    expect(one != NULL && other != NULL && strcmp(one, other) == 0, "the models agree", line);
    free(one);
    free(other);
}

void expect_same_scores(const sylvora_model* a, const sylvora_model* b, int line) {
    const sylvora_block block = block_of(ROWS);
    double one[ROWS], other[ROWS];
    EXPECT(sylvora_model_score(a, &block, one, 1) == 0);
    EXPECT(sylvora_model_score(b, &block, other, 2) == 0);
    expect(memcmp(one, other, sizeof one) == 0, "the scores agree", line);
}

void expect_text(const sylvora_model* model, int digits, int described, const char* expected,
                 int line) {
    char* text = NULL;
    size_t size = 0;
    expect(sylvora_model_text(model, digits, described, &text, &size) == 0, "text", line);
    expect(text != NULL && strcmp(text, expected) == 0, "same text", line);
    sylvora_text_free(text);
}
