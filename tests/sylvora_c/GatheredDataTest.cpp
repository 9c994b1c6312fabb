// Trainings of the C interface by several ranks: the model of one process, byte for byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../ranks/ThreadRanks.h"
#include "sylvora_c.h"

namespace {

using sylvora::Communicator;
using sylvora::tests::RunRanks;

constexpr int kRows = 300;
constexpr int kColumns = 5;

// The functions of a program for a communicator of the tests.
sylvora_communicator FunctionsOf(Communicator& communicator) {
    sylvora_communicator functions = SYLVORA_COMMUNICATOR;
    functions.context = &communicator;
    functions.rank = communicator.Rank();
    functions.num_ranks = communicator.Size();
    functions.allgather = [](void* context, const void* mine, size_t bytes, void* all) {
        return static_cast<Communicator*>(context)->AllGather(mine, bytes, all);
    };
    functions.broadcast = [](void* context, void* data, size_t bytes, int root) {
        return static_cast<Communicator*>(context)->Broadcast(data, bytes, root);
    };
    functions.alltoall = [](void* context, const void* mine, size_t bytes, void* all) {
        return static_cast<Communicator*>(context)->AllToAll(mine, bytes, all);
    };
    functions.cancelled = [](void* context) {
        return static_cast<Communicator*>(context)->Cancelled() ? 1 : 0;
    };
    return functions;
}

struct Rows {
    std::vector<double> valueV, labelV;
    std::vector<int32_t> queryV, weightV;
};

Rows MakeRows() {
    Rows rows;
    unsigned state = 7;
    for (int i = 0; i < kRows; ++i) {
        for (int c = 0; c < kColumns; ++c) {
            state = state * 1664525U + 1013904223U;
            rows.valueV.push_back(static_cast<double>(state >> 22));
        }
        const double* const row = &rows.valueV[rows.valueV.size() - kColumns];
        rows.labelV.push_back(row[0] > 500 ? 1.0 : row[1] > row[4] ? 2.0 : 0.0);
        rows.queryV.push_back(i / 10);
        rows.weightV.push_back(1 + i % 3);
    }
    return rows;
}

sylvora_block BlockOf(const Rows& rows, int begin, int end) {
    sylvora_block block = SYLVORA_BLOCK;
    block.values = &rows.valueV[static_cast<size_t>(begin) * kColumns];
    block.num_rows = end - begin;
    block.num_columns = kColumns;
    block.row_stride = kColumns * sizeof(double);
    block.column_stride = sizeof(double);
    return block;
}

struct Case {
    const char* modelType;
    const char* fRegCls;
    bool fWeights;
    bool fSubset;  // every other row
};

// Trains on a set of all rows. Returns the model's text, or the error's behind "ERROR ".
std::string TrainOn(const sylvora_dataset* data, const Rows& rows, const Case& which) {
    sylvora_dataset* subset = nullptr;
    sylvora_training* training = nullptr;
    sylvora_model* model = nullptr;
    char* text = nullptr;
    size_t size = 0;
    std::vector<int32_t> keptV;
    std::vector<double> labelV;
    std::vector<int32_t> queryV, weightV;
    for (int i = 0; i < kRows; i += which.fSubset ? 2 : 1) {
        keptV.push_back(i);
        labelV.push_back(rows.labelV[static_cast<size_t>(i)]);
        queryV.push_back(rows.queryV[static_cast<size_t>(i)]);
        weightV.push_back(rows.weightV[static_cast<size_t>(i)]);
    }
    const auto num = static_cast<int64_t>(keptV.size());
    int status = sylvora_dataset_subset(data, keptV.data(), num, &subset);
    if (status == 0) status = sylvora_training_new(&training);
    const char* const settings[][2] = {{"modelType", which.modelType},
                                       {"fRegCls", which.fRegCls},
                                       {"numTree", "6"},
                                       {"numBound", "3"}};
    for (const auto& setting : settings) {
        if (status == 0) status = sylvora_training_set(training, setting[0], setting[1]);
    }
    if (status == 0) {
        status = sylvora_training_data(training, which.fSubset ? subset : data, labelV.data(), num,
                                       queryV.data(), num);
    }
    if (status == 0 && which.fWeights) {
        status = sylvora_training_weights(training, weightV.data(), num);
    }
    if (status == 0) status = sylvora_training_run(training, &model);
    if (status == 0) status = sylvora_model_text(model, 17, 1, &text, &size);
    const std::string result =
        status == 0 ? std::string(text, size) : std::string("ERROR ") + sylvora_error();
    sylvora_text_free(text);
    sylvora_model_free(model);
    sylvora_training_free(training);
    sylvora_dataset_free(subset);
    return result;
}

// What a rank sees of the gathered rows.
void ExpectGathered(const sylvora_dataset* data, const Rows& rows) {
    const double* labels = nullptr;
    const int32_t* queries = nullptr;
    const int32_t* weights = nullptr;
    ASSERT_EQ(sylvora_dataset_gathered(data, &labels, &queries, &weights), 0) << sylvora_error();
    ASSERT_EQ(sylvora_dataset_rows(data), kRows);
    EXPECT_EQ(std::vector<double>(labels, labels + kRows), rows.labelV);
    EXPECT_EQ(std::vector<int32_t>(queries, queries + kRows), rows.queryV);
    EXPECT_EQ(weights, nullptr);
    std::vector<double> columnV(kRows);
    for (int c = 0; c < kColumns; ++c) {
        ASSERT_EQ(sylvora_dataset_column(data, c, columnV.data()), 0) << sylvora_error();
        for (size_t i = 0; i < kRows; ++i) {
            ASSERT_EQ(columnV[i], rows.valueV[i * kColumns + static_cast<size_t>(c)]);
        }
    }
}

TEST(GatheredData, RanksGetTheModelOfOneProcess) {
    const Rows rows = MakeRows();
    const Case cases[] = {{"GBDT", "REG", true, false},
                          {"GBRank", "REG", false, true},
                          {"RandomForest", "CLS", false, false},
                          {"CART", "REG", false, true}};
    const sylvora_block whole = BlockOf(rows, 0, kRows);
    sylvora_dataset* alone = nullptr;
    ASSERT_EQ(sylvora_dataset_new(&whole, &alone), 0);
    for (const int numRanks : {1, 2, 3, 4}) {
        const auto statusV = RunRanks(numRanks, [&](Communicator& communicator) {
            const sylvora_communicator functions = FunctionsOf(communicator);
            // Uneven shares; of four ranks, one has no rows.
            const int bounds[] = {0, numRanks == 1 ? kRows : 17, numRanks == 2 ? kRows : 200, kRows,
                                  kRows};
            const int begin = bounds[communicator.Rank()];
            const sylvora_block share =
                BlockOf(rows, begin == kRows ? 0 : begin,
                        begin == kRows ? 0 : bounds[communicator.Rank() + 1]);
            sylvora_dataset* data = nullptr;
            const bool fNone = begin == kRows;
            if (sylvora_dataset_gather(
                    &functions, &share, fNone ? nullptr : rows.labelV.data() + begin,
                    fNone ? nullptr : rows.queryV.data() + begin, nullptr, &data) != 0) {
                ADD_FAILURE() << sylvora_error();
                return -1;
            }
            ExpectGathered(data, rows);
            for (const Case& which : cases) {
                const std::string text = TrainOn(data, rows, which);
                EXPECT_EQ(text, TrainOn(alone, rows, which)) << which.modelType;
                EXPECT_NE(text.substr(0, 5), "ERROR") << text;
            }
            sylvora_dataset_free(data);
            return 0;
        });
        EXPECT_EQ(statusV, std::vector<int>(static_cast<size_t>(numRanks)));
    }
    const double* labels = nullptr;
    EXPECT_EQ(sylvora_dataset_gathered(alone, &labels, nullptr, nullptr), -1);
    sylvora_dataset_free(alone);
}

// A rank that leaves ends the training at the others, which say so.
TEST(GatheredData, RankThatLeavesEndsTheOthers) {
    const Rows rows = MakeRows();
    RunRanks(3, [&](Communicator& communicator) {
        const sylvora_communicator functions = FunctionsOf(communicator);
        const int begin = 100 * communicator.Rank();
        const sylvora_block share = BlockOf(rows, begin, begin + 100);
        sylvora_dataset* data = nullptr;
        if (sylvora_dataset_gather(&functions, &share, nullptr, nullptr, nullptr, &data) != 0) {
            ADD_FAILURE() << sylvora_error();
            return -1;
        }
        int status = -1;
        if (communicator.Rank() != 1) {
            const std::string text = TrainOn(data, rows, {"GBDT", "REG", false, false});
            EXPECT_NE(text.find("another rank has left"), std::string::npos) << text;
            status = 0;
        }
        sylvora_dataset_free(data);
        return status;
    });
}

TEST(GatheredData, RefusesFaults) {
    const Rows rows = MakeRows();
    const sylvora_block share = BlockOf(rows, 0, kRows);
    sylvora_dataset* data = nullptr;
    const auto refusal = [&](const sylvora_communicator* given) {
        EXPECT_EQ(sylvora_dataset_gather(given, &share, nullptr, nullptr, nullptr, &data), -1);
        return std::string(sylvora_error());
    };
    EXPECT_EQ(refusal(nullptr), "The communicator is a null pointer");
    sylvora_communicator functions = SYLVORA_COMMUNICATOR;
    EXPECT_EQ(refusal(&functions), "A function of the communicator is a null pointer");
    functions.rank = 1;
    EXPECT_NE(refusal(&functions).find("rank 1 of 1"), std::string::npos);
    functions.size = 3;
    EXPECT_NE(refusal(&functions).find("a size of 3"), std::string::npos);
    EXPECT_EQ(data, nullptr);
}

}  // namespace
