// OnlineTesting and OnlineTestingBatch: the compiled ensemble must not change any result.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "../Support.h"
#include "../engine/score/RandomEnsemble.h"
#include "TreeLearner.h"

namespace sylvora::tests {
namespace {

// Sets a variable of the environment while this object lives.
class Setting {
  public:
    Setting(const char* variable, const char* value) : name(variable) { setenv(name, value, 1); }
    ~Setting() { unsetenv(name); }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

  private:
    const char* name;
};

std::unique_ptr<TreeLearner> Load(const std::string& model) {
    auto learner = std::make_unique<TreeLearner>();
    EXPECT_EQ(learner->LoadModelFull(model), 0);
    return learner;
}

std::unique_ptr<TreeLearner> LoadPlain(const std::string& model) {
    const Setting plain("SYLVORA_PLAIN", "1");
    return Load(model);
}

// The outcome of OnlineTesting in bytes: status, result and, if asked for, the full result.
std::string Answer(TreeLearner& learner, const double* row, int n, bool fFull) {
    VecDle valueV(static_cast<size_t>(learner.getTreeNum()) + learner.TreeVV.size() + 1, -7.0);
    double result = 1.0;
    const int status =
        learner.OnlineTesting(const_cast<double*>(row), result, n, fFull ? valueV.data() : nullptr);
    valueV.push_back(result);
    valueV.push_back(status);
    return Bytes(valueV);
}

// The results of a batch, from single calls.
VecDle Singles(TreeLearner& learner, const VecDle& rowV, size_t stride) {
    VecDle resultV;
    VecDle fullV(static_cast<size_t>(learner.getTreeNum()) + learner.TreeVV.size());
    for (size_t at = 0; at < rowV.size(); at += stride) {
        VecDle row(rowV.begin() + static_cast<long>(at),
                   rowV.begin() + static_cast<long>(at + stride));
        resultV.push_back(0.0);
        EXPECT_EQ(learner.OnlineTesting(row.data(), resultV.back(), static_cast<int>(stride),
                                        fullV.data()),
                  0);
    }
    return resultV;
}

std::vector<Shape> Shapes() {
    return {{"boosted", 300},
            {"groups", 20, 6, 0.2, 5, 1000, {3, 0, 1, 20}},
            {"deep", 20, 30, 0.4},
            {"votes", 8, 6, 0.2, 5, 1000, {25, 4, 0, 1}, 3},
            {"many classes", 8, 6, 0.2, 5, 1000, {25, 4, 0, 1}, 5000}};
}

TEST(BatchScoring, EqualsThePlainWalkInEveryBit) {
    const TempFolder folder;
    unsigned seed = 100;
    for (const Shape& shape : Shapes()) {
        SCOPED_TRACE(shape.name);
        RandomEnsemble ensemble(shape, seed++);
        const std::string model = folder.Write("model", ModelText(ensemble.source));
        const size_t stride = static_cast<size_t>(shape.dimFea);
        const VecDle rowV = ensemble.Rows(3000, stride);
        const auto plain = LoadPlain(model);
        const VecDle expectedV = Singles(*plain, rowV, stride);
        for (const char* kernel : {"baseline", "avx2"}) {
            const Setting forced("SYLVORA_KERNEL", kernel);
            Captured err(STDERR_FILENO);  // a machine without AVX2 warns
            const auto learner = Load(model);
            for (size_t at = 0; at < 300 * stride; at += stride) {
                for (const bool fFull : {false, true}) {
                    ASSERT_EQ(Answer(*learner, rowV.data() + at, shape.dimFea, fFull),
                              Answer(*plain, rowV.data() + at, shape.dimFea, fFull));
                }
            }
            for (const int numThread : {0, 1, 3}) {
                for (const size_t num : {size_t{1}, size_t{40}, size_t{3000}}) {
                    VecDle resultV(num);
                    ASSERT_EQ(learner->OnlineTestingBatch(rowV.data(), num, stride, resultV.data(),
                                                          numThread),
                              0);
                    ASSERT_EQ(Bytes(resultV),
                              Bytes(VecDle(expectedV.begin(),
                                           expectedV.begin() + static_cast<long>(num))));
                }
            }
        }
    }
}

// Each change is made to a learner with the compiled form and to one without; both must agree.
void CheckChanges(const std::vector<size_t>& groupV) {
    const TempFolder folder;
    Shape shape;
    shape.groupV = groupV;
    RandomEnsemble ensemble(shape, 7);
    const std::string model = folder.Write("model", ModelText(ensemble.source));
    const VecDle rowV = ensemble.Rows(100, 5);
    using Change = void (*)(TreeLearner&);
    const std::pair<const char*, Change> changes[] = {
        {"nothing", [](TreeLearner&) {}},
        {"another shrink", [](TreeLearner& m) { m.StepLengthV[3] *= 2.0f; }},
        {"one group less",
         [](TreeLearner& m) {
             m.TreeVV.pop_back();
             m.StepLengthV.pop_back();
         }},
        {"groups change places", [](TreeLearner& m) { std::swap(m.TreeVV[0], m.TreeVV[1]); }},
        {"trees change places", [](TreeLearner& m) { std::swap(m.TreeVV[0][0], m.TreeVV[2][0]); }},
        {"another tree in a group's place",
         [](TreeLearner& m) {
             m.TreeVV[0] = {m.TreeVV[1].back()};
             m.TreeVV[1].pop_back();
         }},
        {"a tree changes its group",
         [](TreeLearner& m) {
             m.TreeVV[0].push_back(m.TreeVV[1][0]);
             m.TreeVV[1].erase(m.TreeVV[1].begin());
         }},
        {"a tree stands in two groups",
         [](TreeLearner& m) { m.TreeVV[0].push_back(m.TreeVV[1][0]); }},
        {"a group is emptied", [](TreeLearner& m) { m.TreeVV[5].clear(); }},
        {"as a classification",
         [](TreeLearner& m) {
             m.CfgInfo.fRegCls = "CLS";
             m.numClass = 1;
             for (const auto& group : m.TreeVV) {
                 for (const TreeCR* tree : group) {
                     for (NodeCR* node : tree->NodeV) node->avgPredict = 0.25;
                 }
             }
         }},
    };
    for (const auto& [what, change] : changes) {
        SCOPED_TRACE(what);
        const auto plain = LoadPlain(model);
        const auto learner = Load(model);
        const auto plainTreeVV = plain->TreeVV;
        const auto treeVV = learner->TreeVV;
        change(*plain);
        change(*learner);
        const VecDle expectedV = Singles(*plain, rowV, 5);
        EXPECT_EQ(Bytes(Singles(*learner, rowV, 5)), Bytes(expectedV));
        VecDle resultV(100);
        EXPECT_EQ(learner->OnlineTestingBatch(rowV.data(), 100, 5, resultV.data(), 2), 0);
        EXPECT_EQ(Bytes(resultV), Bytes(expectedV));
        // Each tree is to be freed once.
        plain->TreeVV = plainTreeVV;
        learner->TreeVV = treeVV;
    }
}

TEST(BatchScoring, SeesChangesMadeByHand) {
    CheckChanges({1, 3});
    CheckChanges({1});
}

TEST(BatchScoring, FailsAsSingleRowsDo) {
    const TempFolder folder;
    Shape shape;
    RandomEnsemble ensemble(shape, 9);
    const std::string model = folder.Write("model", ModelText(ensemble.source));
    VecDle rowV = ensemble.Rows(50, 5);
    using Change = void (*)(TreeLearner&);
    const struct {
        const char* what;
        Change change;
        int stride;
    } cases[] = {
        {"no trees", [](TreeLearner& m) { m.StepLengthV.clear(), m.TreeVV.clear(); }, 5},
        {"a shrink too many", [](TreeLearner& m) { m.StepLengthV.push_back(1.0f); }, 5},
        {"no features", [](TreeLearner& m) { m.dimFea = 0; }, 5},
        {"no task", [](TreeLearner& m) { m.CfgInfo.fRegCls = ""; }, 5},
        {"short rows", [](TreeLearner&) {}, 4},
        {"no row at all", [](TreeLearner&) {}, 0},
        {"classes that do not exist",
         [](TreeLearner& m) {
             m.CfgInfo.fRegCls = "CLS";
             m.TreeVV[7][0]->NodeV.back()->avgPredict = 9.0;
             m.TreeVV[7][0]->NodeV[0]->splitElemFea = -9e99;
             m.numClass = 3;
         },
         5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto learner = Load(model);
        for (const auto& group : learner->TreeVV) {
            learner->TreeGroup.insert(learner->TreeGroup.end(), group.begin(), group.end());
        }
        c.change(*learner);
        VecDle resultV(50, 3.25);
        const Outcome batch = Observe([&] {
            return learner->OnlineTestingBatch(rowV.data(), 50, static_cast<size_t>(c.stride),
                                               resultV.data(), 2);
        });
        double result = 1.0;
        VecDle fullV(50);
        Outcome single = {0, "", ""};
        for (int r = 0; r < 50 && single.status == 0; ++r) {
            single = Observe([&] {
                return learner->OnlineTesting(rowV.data() + r * 5, result, c.stride, fullV.data());
            });
        }
        EXPECT_EQ(batch.status, -1);
        EXPECT_EQ(batch.err, single.err);
        EXPECT_NE(batch.err, "");
        EXPECT_EQ(resultV, VecDle(50, 3.25));
    }
}

TEST(BatchScoring, NothingToScoreIsNoFailure) {
    const TempFolder folder;
    RandomEnsemble ensemble(Shape{}, 9);
    const auto learner = Load(folder.Write("model", ModelText(ensemble.source)));
    EXPECT_EQ(learner->OnlineTestingBatch(nullptr, 0, 5, nullptr, 0), 0);
}

TEST(BatchScoring, ManyThreadsMayScoreWithOneLearner) {
    const TempFolder folder;
    for (const int numClass : {0, 3}) {
        Shape shape;
        shape.numClass = numClass;
        shape.groupV = {1, 5};
        RandomEnsemble ensemble(shape, 11);
        const auto learner = Load(folder.Write("model", ModelText(ensemble.source)));
        const VecDle rowV = ensemble.Rows(200, 5);
        const VecDle expectedV = Singles(*learner, rowV, 5);
        std::atomic<int> numWrong{0};
        std::vector<std::thread> threadV;
        for (int t = 0; t < 4; ++t) {
            threadV.emplace_back([&, t] {
                for (int round = 0; round < 5; ++round) {
                    VecDle resultV(200);
                    if (t % 2 == 0) {
                        resultV = Singles(*learner, rowV, 5);
                    } else if (learner->OnlineTestingBatch(rowV.data(), 200, 5, resultV.data(),
                                                           2) != 0) {
                        ++numWrong;
                    }
                    if (Bytes(resultV) != Bytes(expectedV)) ++numWrong;
                }
            });
        }
        for (std::thread& thread : threadV) thread.join();
        EXPECT_EQ(numWrong, 0);
    }
}

}  // namespace
}  // namespace sylvora::tests
