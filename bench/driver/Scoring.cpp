// The jobs "batch", "single" and "load".
#include "Jobs.h"
#include "RawData.h"
#include "TreeLearner.h"

namespace sylvora::bench {
namespace {

struct Rows {
    size_t numRows;
    size_t numColumns;
    VecDle valueV;  // row-major

    explicit Rows(const RawData& data)
        : numRows(data.labelV.size()),
          numColumns(static_cast<size_t>(data.header.numColumns)),
          valueV(data.valueV.begin(), data.valueV.end()) {}
};

void ScoreEach(TreeLearner& model, Rows& rows, VecDle& resultV) {
    for (size_t i = 0; i < rows.numRows; ++i) {
        Require(model.OnlineTesting(rows.valueV.data() + i * rows.numColumns, resultV[i],
                                    static_cast<int>(rows.numColumns), nullptr),
                "OnlineTesting");
    }
}

void ScoreAll(TreeLearner& model, Rows& rows, VecDle& resultV, int numThread) {
    Require(model.OnlineTestingBatch(rows.valueV.data(), rows.numRows, rows.numColumns,
                                     resultV.data(), numThread),
            "OnlineTestingBatch");
}

}  // namespace

void ScoreBatch(const Job& job) {
    TreeLearner model;
    Require(model.LoadModelFull(job.Text("model")), "LoadModelFull");
    Rows rows(ReadRaw(job.Text("data")));
    const int numThread = job.Number("threads");
    VecDle resultV(rows.numRows);
    const Seconds time = TimePerCall([&] { ScoreAll(model, rows, resultV, numThread); });
    Say("batch", time / static_cast<double>(rows.numRows));
}

void ScoreFloats(const Job& job) {
    TreeLearner model;
    Require(model.LoadModelFull(job.Text("model")), "LoadModelFull");
    const RawData data = ReadRaw(job.Text("data"));
    const DataBlock block = BlockOf(data);
    const int numThread = job.Number("threads");
    VecDle resultV(data.labelV.size());
    const Seconds time = TimePerCall([&] {
        Require(model.OnlineTestingBatch(block, resultV.data(), numThread), "OnlineTestingBatch");
    });
    Say("batch", time / static_cast<double>(resultV.size()));
}

void ScoreSingle(const Job& job) {
    TreeLearner model;
    Require(model.LoadModelFull(job.Text("model")), "LoadModelFull");
    Rows rows(ReadRaw(job.Text("data")));
    VecDle resultV(rows.numRows);
    const Seconds time = TimePerCall([&] { ScoreEach(model, rows, resultV); });
    Say("single", time / static_cast<double>(rows.numRows));
}

void LoadModel(const Job& job) {
    Say("load", TimePerCall([&] {
            TreeLearner model;
            Require(model.LoadModelFull(job.Text("model")), "LoadModelFull");
        }));
}

}  // namespace sylvora::bench
