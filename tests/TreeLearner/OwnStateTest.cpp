// Learners with a random stream and a message sink of their own: the bytes of a training with the
// process-wide ones, also when several run at the same time.
#include <atomic>
#include <climits>
#include <functional>
#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../Support.h"
#include "EvaluationCases.h"
#include "RandomStream.h"
#include "god.h"

namespace {

using namespace sylvora::tests;
using sylvora::RandomStream;

// ---- Messages

// What a sink received. The calls of a sink must not overlap.
class Received {
  public:
    void GiveTo(TreeLearner& learner) {
        learner.trainingOptions.sink = [](void* context, int stream, const char* text) {
            static_cast<Received*>(context)->Add(stream, text);
        };
        learner.trainingOptions.sinkContext = this;
    }

    std::string out, err;
    int numMessages = 0;
    bool fThrows = false;

  private:
    void Add(int stream, const char* text) {
        EXPECT_FALSE(fBusy.exchange(true));
        EXPECT_TRUE(stream == 1 || stream == 2);
        (stream == 1 ? out : err) += text;
        ++numMessages;
        fBusy = false;
        if (fThrows) throw std::runtime_error("the sink's own");
    }

    std::atomic<bool> fBusy{false};
};

// Times differ from run to run.
std::string WithoutTimes(std::string text) {
    for (size_t at = 0; (at = text.find(" seconds\n", at)) != std::string::npos; ++at) {
        const size_t begin = text.rfind(' ', at - 1) + 1;
        text.replace(begin, at - begin, "n");
        at = begin + 1;
    }
    return text;
}

// ---- Trainings

// Draws columns, and thresholds for some nodes, from a word of its own.
thread_local long samplerWord = 0;

int Sample(int dimF, int*& selF, double*& thresholdV, int countSel, int, bool& fSpecify) {
    for (int i = 0; i < countSel; ++i) {
        selF[i] = (static_cast<int>(dimF * ranz(&samplerWord)) + i) % dimF;
        thresholdV[i] = 10 * ranz(&samplerWord);
    }
    fSpecify = ranz(&samplerWord) < 0.3;
    return 0;
}

int Loss(double* labelV, double* predictV, double** gradientV, int count) {
    for (int i = 0; i < count; ++i) (*gradientV)[i] = 2 * (labelV[i] - predictV[i]);
    return 0;
}

// Fails, so that every worker reports it.
int BadLoss(double*, double*, double**, int) {
    return 1;
}

struct Kind {
    Model model;
    const char* randomMode = "DOC";
    LossFuncType loss = nullptr;
    SamplingFeatureType sampler = nullptr;
    bool fDebug = false;
};

const Kind kKinds[] = {
    {{"GBDT", "REG", "Square", "REG"}},
    {{"GBDT", "REG", "Logistic", "+-"}},
    {{"GBDT", "REG", "USER", "REG"}, "DOC", Loss},
    {{"GBDT", "REG", "USER", "REG"}, "DOC", BadLoss},
    {{"GBDT", "REG", "Exponential", "+-"}, "DOC", nullptr, Sample},
    {{"GBDT", "REG", "Square", "REG"}, "DOC", nullptr, nullptr, true},
    {{"GBDT", "REG", "LogLoss", "+-"}},
    {{"GBDT", "REG", "Absolute", "REG"}},
    {{"GBRank", "REG", "CrossEntropy", "RANK"}, "QUERY"},
    {{"GBRank", "REG", "HingeSquareRank", "RANK"}, "DOC", nullptr, nullptr, true},
    {{"RandomForest", "REG", "Label", "REG"}},
    {{"RandomForest", "CLS", "Label", "CLS"}, "DOC", nullptr, Sample},
    {{"RandomForest", "CLS", "Label", "CLS"}},
    {{"CART", "CLS", "Label", "CLS"}},
};
constexpr size_t kNumKinds = std::size(kKinds);

// A kind of training, its number of threads, and the folder that it writes to.
struct Job {
    const Kind& kind;
    int numThread;
    TempFolder folder;

    Job(const Kind& k, int n) : kind(k), numThread(n) {}

    std::unique_ptr<TreeLearner> MakeLearner() const {
        CheckCfgCLS cfg = ConfigOf(kind.model, 5, numThread);
        cfg.randomMode = kind.randomMode;
        cfg.tms_seed = 11;
        cfg.ratio = 0.5;
        cfg.maxLeaf = 12;
        cfg.fPrint = cfg.fTestRealTime = true;
        cfg.fDebug = kind.fDebug;
        cfg.fileModel = folder.Path("model.txt");
        cfg.fileDebug = folder.Path("debug.txt");
        cfg.pathOutput = folder.Path("");
        cfg.fileResultBase = "result";
        auto learner = std::make_unique<TreeLearner>(cfg);
        learner->setLossFunction(kind.loss);
        learner->setNodeSamplingFeaType(kind.sampler);
        return learner;
    }

    // All steps of a training. The data depend on the kind, so that no two jobs draw alike.
    int Train(TreeLearner& learner) const {
        const size_t number = static_cast<size_t>(&kind - kKinds);
        const Data data(90 + 10 * number, static_cast<unsigned>(number) + 1, kind.model.labels);
        const Data test(20, 7, kind.model.labels);
        samplerWord = -17;
        const bool fDone = learner.DataInput(test.labelV, test.rowVV, 1, {}, {}) == 0 &&
                           learner.DataInput(data.labelV, data.rowVV, 0, data.queryV, {}) == 0 &&
                           learner.ReadLabelTran(folder.Path("none")) == 0 &&
                           learner.ParamInit() == 0 && learner.Boosting() == 0 &&
                           learner.FeatureAnalysis(folder.Path("analysis.txt")) == 0;
        return fDone ? 0 : -1;
    }

    // Every file in the folder.
    std::string Files() const {
        std::vector<std::string> names = folder.Names();
        std::sort(names.begin(), names.end());
        std::string files;
        for (const std::string& name : names) files += name + ":\n" + ReadFile(folder.Path(name));
        return files;
    }
};

// The lines in ascending order: workers that fail at the same time report it in any order.
std::string SortedLines(const std::string& text) {
    std::istringstream in(text);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.insert(line + "\n");
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

// What trainings wrote, and the sum of their statuses.
struct Bytes {
    int status;
    std::string out, err, files;

    void Expect(const Bytes& expected) const {
        EXPECT_EQ(status, expected.status);
        EXPECT_EQ(out, expected.out);
        EXPECT_EQ(err, expected.err);
        EXPECT_EQ(files, expected.files);
    }
};

constexpr long SeedOf(size_t kind) {
    return -100 - static_cast<long>(kind);
}

// `numRuns` trainings with gseed and the standard streams.
Bytes TrainWithGlobals(size_t kind, int numThread, int numRuns = 1) {
    Job job(kKinds[kind], numThread);
    gseed = SeedOf(kind);
    const Outcome seen = Observe([&] {
        int status = 0;
        for (int run = 0; run < numRuns; ++run) status += job.Train(*job.MakeLearner());
        return status;
    });
    EXPECT_EQ(seen.status, 0) << seen.err;
    return {seen.status, WithoutTimes(seen.out), SortedLines(seen.err), job.Files()};
}

// `numRuns` trainings with one stream and one sink.
Bytes TrainWithOwn(size_t kind, int numThread, int numRuns = 1, bool fThrows = false) {
    Job job(kKinds[kind], numThread);
    RandomStream stream(SeedOf(kind));
    Received received;
    received.fThrows = fThrows;
    int status = 0;
    for (int run = 0; run < numRuns; ++run) {
        const auto learner = job.MakeLearner();
        learner->trainingOptions.stream = &stream;
        received.GiveTo(*learner);
        status += job.Train(*learner);
    }
    return {status, WithoutTimes(received.out), SortedLines(received.err), job.Files()};
}

std::string NameOf(size_t kind, int numThread) {
    const Model& k = kKinds[kind].model;
    return std::to_string(kind) + " " + k.modelType + " " + k.fRegCls + " " + k.lossFunc +
           ", threads " + std::to_string(numThread);
}

// Trains with the engine ("0") or the reference implementation ("1").
class OwnState : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override { setenv("SYLVORA_PLAIN", GetParam(), 1); }
    void TearDown() override { unsetenv("SYLVORA_PLAIN"); }
};

INSTANTIATE_TEST_SUITE_P(Reference, OwnState, testing::Values("0", "1"));

// The second training goes on in the stream where the first one ended. Neither gseed nor the
// standard streams are touched.
TEST_P(OwnState, EqualsTheProcessWideState) {
    for (size_t kind = 0; kind < kNumKinds; ++kind) {
        for (const int numThread : {1, 4}) {
            for (const int numRuns : {1, 2}) {
                SCOPED_TRACE(NameOf(kind, numThread));
                const Bytes expected = TrainWithGlobals(kind, numThread, numRuns);
                EXPECT_NE(expected.out, "");
                Bytes own;
                gseed = 77;
                const Outcome seen = Observe([&] {
                    own = TrainWithOwn(kind, numThread, numRuns);
                    return 0;
                });
                own.Expect(expected);
                EXPECT_EQ(seen.out + seen.err, "");
                EXPECT_EQ(gseed, 77);
            }
        }
    }
}

// All kinds at the same time, and one more with the process-wide state.
TEST_P(OwnState, TrainingsAtOnceGiveTheBytesOfEachAlone) {
    for (const int numThread : {1, 4}) {
        std::vector<Bytes> expectedV;
        for (size_t kind = 0; kind < kNumKinds; ++kind) {
            expectedV.push_back(TrainWithGlobals(kind, numThread));
        }
        const Bytes expectedGlobal = TrainWithGlobals(0, numThread, 3);
        std::vector<Bytes> ownV(kNumKinds);
        std::vector<std::thread> threadV;
        for (size_t kind = 0; kind < kNumKinds; ++kind) {
            threadV.emplace_back([&, kind] { ownV[kind] = TrainWithOwn(kind, numThread); });
        }
        const Bytes global = TrainWithGlobals(0, numThread, 3);
        for (std::thread& thread : threadV) thread.join();
        for (size_t kind = 0; kind < kNumKinds; ++kind) {
            SCOPED_TRACE(NameOf(kind, numThread));
            ownV[kind].Expect(expectedV[kind]);
        }
        global.Expect(expectedGlobal);
    }
}

// Exceptions of a sink are lost, and nothing else is.
TEST_P(OwnState, ASinkMayThrow) {
    for (const size_t kind : {size_t{0}, size_t{3}, size_t{10}}) {
        TrainWithOwn(kind, 4, 1, true).Expect(TrainWithOwn(kind, 4));
    }
}

// ---- Single calls

// A learner with training rows and no ParamInit.
std::unique_ptr<TreeLearner> Unprepared(CheckCfgCLS cfg) {
    auto learner = std::make_unique<TreeLearner>(cfg);
    EXPECT_EQ(learner->DataInput({1, 0}, {{1}, {2}}, 0, {}, {}), 0);
    return learner;
}

// Calls that write exactly one message each.
std::vector<std::pair<const char*, std::function<int(TreeLearner&)>>> BadCalls() {
    static double row[] = {1, 2};
    static double score[1];
    return {
        {"DataInput", [](TreeLearner& l) { return l.DataInput({1}, {}, 0, {}, {}); }},
        {"DataAdopt", [](TreeLearner& l) { return l.DataAdopt(nullptr, nullptr, 0, 1, {}, 0); }},
        {"DataBorrow",
         [](TreeLearner& l) { return l.DataBorrow(nullptr, nullptr, 0, nullptr, 0); }},
        {"setWeights", [](TreeLearner& l) { return l.setWeights(nullptr, 0); }},
        {"ReadLabelTran", [](TreeLearner& l) { return l.ReadLabelTran("/none/at/all"); }},
        {"ParamInit",
         [](TreeLearner& l) {
             l.sampleSize = 0;
             const int status = l.ParamInit();
             l.sampleSize = 2;
             return status;
         }},
        {"Boosting", [](TreeLearner& l) { return l.Boosting(); }},
        {"SaveModelFull", [](TreeLearner& l) { return l.SaveModelFull("/none/at/all"); }},
        {"SaveModelFull", [](TreeLearner& l) { return l.SaveModelFull("/dev/null", 7); }},
        {"OnlineTesting",
         [](TreeLearner& l) { return l.OnlineTesting(row, score[0], 1, nullptr); }},
        {"OnlineTestingBatch",
         [](TreeLearner& l) { return l.OnlineTestingBatch(row, 1, 1, score, 1); }},
        {"OnlineTestingBatch",
         [](TreeLearner& l) { return l.OnlineTestingBatch(sylvora::DataBlock(), score, 1); }},
        {"FeatureAnalysis", [](TreeLearner& l) { return l.FeatureAnalysis("/none/at/all"); }},
        {"ComputeDistinctPair",
         [](TreeLearner& l) {
             l.fHomoWgt = 0;
             return l.ComputeDistinctPair();
         }},
        {"ComputeGradientUser", [](TreeLearner& l) { return l.ComputeGradientUser(0, 0); }},
        {"GenerateTree", [](TreeLearner& l) { return l.GenerateTree(); }},
        {"GenerateRowTree", [](TreeLearner& l) { return l.GenerateRowTree(0, 0); }},
        {"UpdatePrediction", [](TreeLearner& l) { return l.UpdatePrediction(0, 0); }},
        {"CalLossThreadFunction",
         [](TreeLearner& l) {
             l.CfgInfo.lossFunc = "none";
             boosting_info_t share = {&l, 0, 0};
             return CalLossThreadFunction(&share) != nullptr ? -1 : 0;
         }},
        {"RandomSelectQuery",
         [](TreeLearner& l) {
             int* selected = nullptr;
             int count = 0;
             return l.RandomSelectQuery(selected, count, &gseed);
         }},
        {"MeasureRounding",
         [](TreeLearner& l) {
             rounding_effect_t effect;
             l.dimFea = 2;
             const int status = l.MeasureRounding(effect, 1);
             l.dimFea = 1;
             return status;
         }},
        {"Sampling", [](TreeLearner& l) { return l.Sampling(); }},
        {"GenerateColTree", [](TreeLearner& l) { return l.GenerateColTree(); }},
        {"LoadModelFull", [](TreeLearner& l) { return l.LoadModelFull("/none/at/all"); }},
        {"Destroy",
         [](TreeLearner& l) {
             l.CfgInfo.fPrint = true;
             return l.Destroy();
         }},
    };
}

TEST(MessageSink, GetsTheMessageOfEveryCall) {
    const auto standard = Unprepared(Settings("GBDT", "Square"));
    const auto own = Unprepared(Settings("GBDT", "Square"));
    Received received;
    received.GiveTo(*own);
    for (const auto& [name, call] : BadCalls()) {
        SCOPED_TRACE(name);
        const Outcome expected = Observe([&, &c = call] { return c(*standard); });
        received.out = received.err = "";
        received.numMessages = 0;
        const Outcome seen = Observe([&, &c = call] { return c(*own); });
        EXPECT_EQ(seen.status, expected.status);
        EXPECT_EQ(received.out, expected.out);
        EXPECT_EQ(received.err, expected.err);
        EXPECT_EQ(received.numMessages, 1);
        EXPECT_EQ(seen.out + seen.err, "");
    }
    own->CfgInfo.fPrint = standard->CfgInfo.fPrint = false;
}

// Inside the functions of a learner with a sink, another learner without one uses the standard
// streams and gseed.
TEST(MessageSink, IsOfOneLearnerOnly) {
    struct Other {
        TreeLearner learner;
        long word = 0;
    } other;
    Received received;
    RandomStream stream(5);
    const auto learner = Prepare(Settings("GBDT", "Square"), {1, 2, 3, 4});
    received.GiveTo(*learner);
    learner->trainingOptions.stream = &stream;
    const auto progress = [](void* context, int, int) {
        Other& o = *static_cast<Other*>(context);
        double row = 0;
        double score = 0;
        EXPECT_EQ(o.learner.OnlineTesting(&row, score, 1, nullptr), -1);
        const auto third = Prepare(Settings("GBDT", "Square"), {1, 2, 3});
        EXPECT_EQ(third->Boosting(), 0);
        return 1;
    };
    learner->setProgress(progress, &other);
    gseed = -3;
    EXPECT_EQ(Refused([&] { return learner->Boosting(); }),
              "ERROR: Wrong tree size or shrink size!\n");
    EXPECT_EQ(received.err, "Notice: Training was stopped after 1 of 1, no model is written!\n");
    EXPECT_NE(gseed, -3);
}

// A message that arises in a sink goes to the standard stream, so a sink cannot call itself.
TEST(MessageSink, IsNotCalledFromItself) {
    struct Context {
        TreeLearner learner;
        std::string text;
    } context;
    context.learner.trainingOptions.sinkContext = &context;
    context.learner.trainingOptions.sink = [](void* c, int, const char* text) {
        Context& at = *static_cast<Context*>(c);
        at.text += text;
        EXPECT_EQ(at.learner.GenerateTree(), -1);
    };
    const Outcome seen = Observe([&] { return context.learner.Boosting(); });
    EXPECT_EQ(seen.err, "ERROR: Growing a tree needs ParamInit first!\n");
    EXPECT_EQ(context.text, "ERROR: Boosting needs ParamInit first!\n");
}

// One stream per learner is only needed for repeatable trainings: sharing it is safe.
TEST(OwnStream, MayBeSharedByThreads) {
    RandomStream stream(1);
    const auto learner = Prepare(Settings("RandomForest", "Label"), {1, 2, 3, 4, 5, 6});
    learner->trainingOptions.stream = &stream;
    learner->valSmpRt = 0.5;
    std::vector<std::thread> threadV;
    for (int t = 0; t < 3; ++t) {
        threadV.emplace_back([&] {
            for (int i = 0; i < 20; ++i) EXPECT_EQ(learner->GenerateRowTree(0, 0), 0);
        });
    }
    for (std::thread& thread : threadV) thread.join();
    EXPECT_EQ(learner->TreeGroup.size(), 60U);
}

// Without a stream again, a learner that has trained with one goes on with gseed, and does not
// refer to the stream any more.
TEST(OwnStream, CanBeTakenAwayAgain) {
    const auto learner = Prepare(Settings("GBDT", "Square"), {1, 2, 3, 4});
    {
        RandomStream stream(1);
        learner->trainingOptions.stream = &stream;
        EXPECT_EQ(learner->Boosting(), 0);
        learner->trainingOptions.stream = nullptr;
    }
    gseed = -9;
    EXPECT_EQ(learner->GenerateTree(), 0);
    EXPECT_NE(gseed, -9);
}

}  // namespace
