/* Data, trainings and checks that the tests of the C interface share. */
#ifndef SYLVORA_TESTS_SYLVORA_C_CASES_H
#define SYLVORA_TESTS_SYLVORA_C_CASES_H

#include <string.h>

#include "sylvora_c.h"

enum { ROWS = 400, COLUMNS = 4 };

extern double x[ROWS][COLUMNS];
extern double y[ROWS];
extern double classes[ROWS]; /* 0 or 1 */
extern int num_faults;

void expect(int holds, const char* what, int line);
#define EXPECT(holds) expect((holds), #holds, __LINE__)
/* The call fails, and its error has the text. */
#define EXPECT_ERROR(call, text) \
    expect((call) == -1 && strstr(sylvora_error(), (text)) != NULL, #call, __LINE__)

/* Fills the arrays above. Row 7 has a NaN. */
void fill(void);
/* The first rows of x. */
sylvora_block block_of(int num_rows);
/* A training of 30 rounds of GBDT; to be freed. */
sylvora_training* training_on(const sylvora_dataset* data, const double* labels, const char* loss);
/* The models have the same trees, or the same scores. */
void expect_same(const sylvora_model* a, const sylvora_model* b, int line);
void expect_same_scores(const sylvora_model* a, const sylvora_model* b, int line);
/* The model has this text. */
void expect_text(const sylvora_model* model, int digits, int described, const char* expected,
                 int line);

/* parts.c */
void test_progress(const sylvora_dataset* data);
void test_checkpoint(const sylvora_dataset* data);
void test_column(const sylvora_dataset* data);
void test_parts(const sylvora_dataset* data);
void test_log_odds(void);
void test_expit(void);

#endif
