// Times the gradients of a million rows: ours, with correctly rounded exponentials and logarithms,
// and the same formulas with those of the C library; an item is a row. Then times the functions
// alone; an item is a function value.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TreeLearner.h"
#include "god/ExpLogKernels.h"

namespace {

constexpr int kRows = 1000000;
constexpr int kQueryRows = 50;

// Makes a learner with labels, predictions and queries, which is all that gradients need. Returns
// null if the library refuses the settings.
std::unique_ptr<TreeLearner> MakeLearner(const char* modelType, const char* loss) {
    CheckCfgCLS settings;
    settings.modelType = modelType;
    settings.lossFunc = loss;
    settings.fRegCls = "REG";
    settings.fileModel = "/dev/null";
    settings.numTree = settings.numBound = 1;
    settings.valSmpRt = settings.ratio = 1.0;
    const bool fRanking = settings.modelType == "GBRank";
    std::mt19937 random(1);
    VecDle labelV;
    VecInt queryV;
    for (int i = 0; i < kRows; ++i) {
        labelV.push_back(fRanking ? static_cast<int>(random() % 5) : random() % 2 == 0 ? 1 : -1);
        if (fRanking) queryV.push_back(i / kQueryRows);
    }
    auto learner = std::make_unique<TreeLearner>(settings);
    if (learner->DataInput(labelV, VecVecDle(kRows, VecDle(1)), 0, queryV, {}) != 0 ||
        learner->ParamInit() != 0) {
        return nullptr;
    }
    std::normal_distribution<double> normal;
    for (int i = 0; i < kRows; ++i) learner->predictV[i] = normal(random);
    return learner;
}

typedef int (TreeLearner::*Ours)(int idBegin, int idEnd);
typedef void (*CLibrary)(TreeLearner& learner);

void Logistic(TreeLearner& learner) {
    for (int i = 0; i < kRows; ++i) {
        const double y = learner.labelTrV[i];
        learner.gradientV[i] = y * std::log(1 + std::exp(-y * learner.predictV[i]));
    }
}

void Exponential(TreeLearner& learner) {
    for (int i = 0; i < kRows; ++i) {
        const double y = learner.labelTrV[i];
        learner.gradientV[i] = y * std::exp(-y * learner.predictV[i]);
    }
}

double Force(double a, double b, double difference, double tau) {
    const double margin = tau * std::fabs(a - b);
    if (a > b) return 1 / (1 + std::exp(difference - margin));
    if (b > a) return -1 / (1 + std::exp(-difference - margin));
    return 0;
}

void CrossEntropy(TreeLearner& learner) {
    double* gradientV = learner.gradientV;
    std::fill_n(gradientV, kRows, 0.0);
    for (int i = 0; i < kRows; ++i) {
        for (int j = i + 1; j < kRows && learner.queryIdV[j] == learner.queryIdV[i]; ++j) {
            const double s = Force(learner.labelTrV[i], learner.labelTrV[j],
                                   learner.predictV[i] - learner.predictV[j], learner.valTau);
            gradientV[i] += s;
            gradientV[j] -= s;
        }
    }
}

// Both sides work on the same arrays, so that memory placement favours neither.
void RunOurs(benchmark::State& state, TreeLearner* learner, Ours compute) {
    for (auto _ : state) benchmark::DoNotOptimize((learner->*compute)(0, kRows - 1));
    state.SetItemsProcessed(state.iterations() * kRows);
}

void RunCLibrary(benchmark::State& state, TreeLearner* learner, CLibrary compute) {
    for (auto _ : state) {
        compute(*learner);
        benchmark::DoNotOptimize(learner->gradientV);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}

typedef bool (*Kernel)(const double* xV, double* resultV, size_t count);

template <double (*kFunction)(double)>
bool MapCLibrary(const double* xV, double* resultV, size_t count) {
    for (size_t i = 0; i < count; ++i) resultV[i] = kFunction(xV[i]);
    return false;
}

void RunKernel(benchmark::State& state, Kernel kernel) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> uniform(1, 10);
    std::vector<double> xV(4096), resultV(4096);
    for (double& x : xV) x = uniform(random);
    for (auto _ : state) benchmark::DoNotOptimize(kernel(xV.data(), resultV.data(), xV.size()));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(xV.size()));
}

void RegisterKernels() {
    benchmark::RegisterBenchmark("exp/C library", RunKernel, MapCLibrary<std::exp>);
    benchmark::RegisterBenchmark("log/C library", RunKernel, MapCLibrary<std::log>);
    for (const std::string name : sylvora::kInstructionSetNames) {
        const sylvora::ExpLogKernel* kernel = sylvora::kExpLogKernels.Find(name.c_str());
        if (kernel == nullptr) continue;
        benchmark::RegisterBenchmark(("exp/" + name).c_str(), RunKernel, kernel->exp);
        benchmark::RegisterBenchmark(("log/" + name).c_str(), RunKernel, kernel->log);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const struct {
        const char *modelType, *loss;
        Ours ours;
        CLibrary cLibrary;
    } losses[] = {
        {"GBDT", "Logistic", &TreeLearner::ComputeGradientLogistic, Logistic},
        {"GBDT", "Exponential", &TreeLearner::ComputeGradientExponential, Exponential},
        {"GBRank", "CrossEntropy", &TreeLearner::ComputeGradientCrossEntropy, CrossEntropy},
    };
    std::vector<std::unique_ptr<TreeLearner>> learnerV;
    for (const auto& l : losses) {
        learnerV.push_back(MakeLearner(l.modelType, l.loss));
        if (learnerV.back() == nullptr) return 1;
        TreeLearner* learner = learnerV.back().get();
        const std::string name = l.loss;
        benchmark::RegisterBenchmark((name + "/ours").c_str(), RunOurs, learner, l.ours)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/C library").c_str(), RunCLibrary, learner,
                                     l.cLibrary)
            ->Unit(benchmark::kMillisecond);
    }
    RegisterKernels();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
