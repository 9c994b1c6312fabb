// The user's functions during training: exceptions, and calls that they must not make.
#include <algorithm>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "../Support.h"
#include "EvaluationCases.h"

namespace {

using namespace sylvora::tests;

// What the user's functions do before their work; the learner is the one that trains.
TreeLearner* current = nullptr;
std::function<void()> deed;

int Loss(double* labelV, double* predictV, double** gradientV, int count) {
    deed();
    for (int i = 0; i < count; ++i) (*gradientV)[i] = labelV[i] - predictV[i];
    return 0;
}

int Sample(int dimF, int*& selF, double*&, int countSel, int, bool& fSpecify) {
    deed();
    fSpecify = false;
    std::iota(selF, selF + std::min(dimF, countSel), 0);
    return 0;
}

int Progress(void*, int, int) {
    deed();
    return 0;
}

enum Callback { kLoss, kSampler, kProgress };
const char* const kNames[] = {"loss", "feature sampler", "progress function"};

std::unique_ptr<TreeLearner> MakeLearner(const Model& kind, Callback callback, int numThread,
                                         const std::string& fileModel) {
    CheckCfgCLS cfg = ConfigOf(kind, 3, numThread);
    if (callback == kLoss) cfg.lossFunc = "USER";
    cfg.fileModel = fileModel;
    auto learner = MakeLearner(cfg, Data(40, 3, kind.labels), nullptr);
    if (callback == kLoss) learner->setLossFunction(Loss);
    if (callback == kSampler) learner->setNodeSamplingFeaType(Sample);
    if (callback == kProgress) learner->setProgress(Progress, nullptr);
    current = learner.get();
    return learner;
}

// Runs `test` for each callback of a few kinds of training.
void ForEachTraining(
    const std::function<void(const Model& kind, Callback callback, int numThread)>& test) {
    for (const Model& kind : {kBoosted[0], kBoosted[3], kOthers[0], kOthers[1]}) {
        for (const Callback callback : {kLoss, kSampler, kProgress}) {
            for (const int numThread : {1, 4}) {
                if (callback == kLoss && kind.fRegCls == std::string("CLS")) continue;
                SCOPED_TRACE(std::string(kind.modelType) + " " + kind.fRegCls + ", " +
                             kNames[callback] + ", threads " + std::to_string(numThread));
                test(kind, callback, numThread);
            }
        }
    }
}

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// One line says what was thrown, the older model stays, and the learner trains once more.
TEST(Callbacks, AnExceptionEndsTheRun) {
    const TempFolder folder;
    struct Odd {};
    const auto test = [&](const Model& kind, Callback callback, int numThread) {
        const std::string start = std::string("ERROR: The user's ") + kNames[callback] + " threw";
        for (const bool fStandard : {true, false}) {
            const std::string model = folder.Write("model.txt", "older");
            const auto learner = MakeLearner(kind, callback, numThread, model);
            deed = [fStandard] {
                if (fStandard) throw std::runtime_error("no such pair");
                throw Odd();
            };
            const auto seen = Observe([&] { return learner->Boosting(); });
            EXPECT_EQ(seen.status, -1);
            const char* const end =
                fStandard ? " an exception: no such pair\n" : " an exception!\n";
            EXPECT_EQ(seen.err.find(start + end), 0U) << seen.err;
            EXPECT_EQ(Count(seen.err, start), 1U) << seen.err;
            if (callback != kSampler) EXPECT_EQ(Count(seen.err, "\n"), 1U) << seen.err;
            EXPECT_EQ(ReadFile(model), "older");
            deed = [] {};
            EXPECT_EQ(learner->Boosting(), 0);
            EXPECT_NE(ReadFile(model), "older");
        }
    };
    ForEachTraining(test);
}

// The steps that a program calls by hand end in the same way.
TEST(Callbacks, AnExceptionEndsAStep) {
    deed = [] { throw std::runtime_error("no"); };
    const auto expectOneLine = [](const char* what, int status, const Outcome& seen) {
        EXPECT_EQ(status, -1);
        EXPECT_EQ(seen.err.find(std::string("ERROR: The user's ") + what), 0U) << seen.err;
    };
    for (int again = 0; again < 2; ++again) {
        const auto forLoss = MakeLearner(kBoosted[0], kLoss, 1, "/dev/null");
        auto seen = Observe([&] { return forLoss->ComputeGradientUser(0, 3); });
        expectOneLine(kNames[kLoss], seen.status, seen);
        for (const Callback callback : {kSampler, kProgress}) {
            const auto learner = MakeLearner(kOthers[0], callback, 1, "/dev/null");
            seen = Observe([&] { return learner->GenerateRowTree(0, 1); });
            expectOneLine(kNames[callback], seen.status, seen);
        }
    }
}

// What takes the run's arrays or trees away is refused, and the run goes on as if nothing had been.
TEST(Callbacks, ARunIsNotPulledFromUnderItself) {
    const TempFolder folder;
    const std::vector<std::pair<const char*, std::function<int()>>> calls = {
        {"Boosting", [] { return current->Boosting(); }},
        {"Destroy", [] { return current->Destroy(); }},
        {"ParamInit", [] { return current->ParamInit(); }},
        {"ComputeDistinctPair", [] { return current->ComputeDistinctPair(); }},
        {"DataInput", [] { return current->DataInput({1}, {{1}}, 0, {0}, {}); }},
        {"DataAdopt",
         [] {
             double* const labels = static_cast<double*>(std::calloc(1, sizeof(double)));
             double** const rows = static_cast<double**>(std::calloc(1, sizeof(double*)));
             return current->DataAdopt(labels, rows, 1, 1, {}, 1);
         }},
        {"LoadModelFull", [&] { return current->LoadModelFull(folder.Path("model.txt")); }},
        {"GenerateTree", [] { return current->GenerateTree(); }},
        {"GenerateRowTree", [] { return current->GenerateRowTree(0, 0); }},
    };
    const auto test = [&](const Model& kind, Callback callback, int numThread) {
        const auto train = [&](const std::function<void()>& what) {
            deed = what;
            const auto learner = MakeLearner(kind, callback, numThread, folder.Path("model.txt"));
            EXPECT_EQ(learner->Boosting(), 0);
            return ReadFile(learner->fileModel);
        };
        const std::string undisturbed = train([] {});
        std::string expected;
        for (const auto& [name, call] : calls) {
            expected += std::string("ERROR: ") + name +
                        " cannot be called during training: wait for its end!\n";
        }
        std::string said;
        int numAccepted = 0;
        const auto seen = Observe([&] {
            said = train([&] {
                for (const auto& [name, call] : calls) numAccepted += call() == -1 ? 0 : 1;
            });
            return 0;
        });
        EXPECT_EQ(numAccepted, 0);
        EXPECT_EQ(said, undisturbed);
        EXPECT_EQ(Count(seen.err, expected) * Count(expected, "\n"), Count(seen.err, "\n"));
        EXPECT_NE(seen.err, "");
    };
    ForEachTraining(test);
}

}  // namespace
