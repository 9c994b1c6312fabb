// The course of an evaluation; see RunEvaluation.h. EvaluationSetUp.cpp has its preparation.
#include "RunEvaluation.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>
#include <utility>

#include "../god/Report.h"
#include "../god/UserCall.h"
#include "base/WorkerPool.h"

using sylvora::EnsembleView;
using sylvora::EvaluatedSet;
using sylvora::EvaluationRecord;
using sylvora::Fail;
using sylvora::MetricRecord;
using sylvora::Text;
using sylvora::WalkedGroup;

namespace {

// The longest value of six digits, such as -1.23457e-100, with a blank before it.
constexpr size_t kLeastWidth = 14;

std::string Padded(const std::string& text, size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

// NaN is never better.
bool IsBetter(double value, double best, bool fLargerIsBetter) {
    return fLargerIsBetter ? value > best : value < best;
}

}  // namespace

// Scores and metrics are computed again, in the same order, so they are the same bit for bit.
int TreeLearner::RunEvaluation::Replay(int done) {
    if (!fRounds) return 0;
    const size_t numStart = EnsembleView(learner).NumGroups() - static_cast<size_t>(done);
    for (int round = 1; round <= done; ++round) {
        if (MeasureRound(round, numStart + static_cast<size_t>(round)) != 0) return -1;
    }
    learner.evaluationRecord.fStoppedEarly = fOver && done < learner.numTree;
    return 0;
}

// Evaluates a round, up to which the ensemble has `numGroups` groups.
int TreeLearner::RunEvaluation::MeasureRound(int round, size_t numGroups) {
    numRounds = round;
    AddGroups(numGroups);
    if (Measure() != 0) return -1;
    if (learner.CfgInfo.earlyStop > 0) CompareWithBest(round);
    return 0;
}

int TreeLearner::RunEvaluation::TakeRound(int round, bool fLast) {
    if (!fRounds) return 0;
    if (MeasureRound(round, EnsembleView(learner).NumGroups()) != 0) return -1;
    learner.evaluationRecord.fStoppedEarly = fOver && !fLast;
    const int interval = learner.CfgInfo.evalEvery;
    if (interval > 0 && (round % interval == 0 || fLast || fOver)) PrintLine(round);
    return 0;
}

// Adds the groups that are not in the scores yet, up to `end`: one after the other, each to all
// rows. The pieces of all sets are shared among the workers.
void TreeLearner::RunEvaluation::AddGroups(size_t end) {
    const EnsembleView trees(learner);
    struct Piece {
        EvaluatedSet* set;
        size_t number;
    };
    std::vector<Piece> pieceV;
    for (EvaluatedSet& set : setV) {
        for (size_t number = 0; number < set.NumPieces(); ++number) {
            pieceV.push_back({&set, number});
        }
    }
    for (; numScored < end; ++numScored) {
        const double shrink = learner.StepLengthV[numScored];
        const WalkedGroup whole(trees, numScored, shrink, false);
        const WalkedGroup compact(trees, numScored, shrink, true);
        learner.workers->For(static_cast<int>(pieceV.size()), [&](int index, int) {
            const Piece& piece = pieceV[static_cast<size_t>(index)];
            piece.set->AddGroup(piece.set->IsBlock() ? compact : whole, piece.number);
        });
    }
}

// Records all values, or none if a metric of the program fails.
int TreeLearner::RunEvaluation::Measure() {
    std::vector<MetricRecord>& recordV = learner.evaluationRecord.metricV;
    VecDle valueV(measurementV.size());
    learner.workers->For(static_cast<int>(measurementV.size()), [&](int index, int) {
        const size_t i = static_cast<size_t>(index);
        const Measurement& measurement = measurementV[i];
        if (measurement.user == nullptr) {
            valueV[i] = setV[measurement.set].Measure(measurement.metric);
        }
    });
    for (size_t i = 0; i < valueV.size(); ++i) {
        if (measurementV[i].user != nullptr && AskUser(measurementV[i], valueV[i]) != 0) return -1;
    }
    for (size_t i = 0; i < valueV.size(); ++i) recordV[i].valueV.push_back(valueV[i]);
    return 0;
}

int TreeLearner::RunEvaluation::AskUser(const Measurement& measurement, double& value) {
    const sylvora::UserMetric& user = *measurement.user;
    EvaluatedSet& set = setV[measurement.set];
    value = std::numeric_limits<double>::quiet_NaN();
    const std::string name = Text("metric \"", user.name, "\"");
    const int status = sylvora::CallUser(name.c_str(), learner.fUserThrew, [&] {
        return user.function(user.context, set.Name().c_str(),
                             static_cast<std::int64_t>(set.NumRows()),
                             set.Measured().Labels().data(), set.Scores(), &value);
    });
    if (learner.fUserThrew) return -1;
    if (status == 0) return 0;
    const std::string when = numRounds > 0 ? Text("in round ", numRounds) : "at the end";
    return Fail("ERROR: The ", name, " failed for the set \"", set.Name(), "\" ", when,
                " with status ", status, "!\n");
}

void TreeLearner::RunEvaluation::CompareWithBest(int round) {
    EvaluationRecord& record = learner.evaluationRecord;
    const double value = record.metricV[stopAt].valueV.back();
    const bool fFirst = record.bestRound == 0 && std::isfinite(value);
    if (fFirst || (record.bestRound > 0 &&
                   IsBetter(value, record.bestValue, measurementV[stopAt].IsLargerBetter()))) {
        record.bestRound = round;
        record.bestValue = value;
    }
    fOver = round - record.bestRound >= learner.CfgInfo.earlyStop;
}

// The first line of the table is preceded by its header.
void TreeLearner::RunEvaluation::PrintLine(int round) {
    std::string header = "round", line = Padded(Text(round), header.size());
    for (const MetricRecord& record : learner.evaluationRecord.metricV) {
        const std::string name = "  " + record.set + " " + record.metric;
        const size_t width = std::max(name.size(), kLeastWidth);
        header += Padded(name, width);
        const double value = record.valueV.back();
        line += Padded(std::isnan(value) ? "nan" : Text(value), width);
    }
    sylvora::Print(lastPrinted == 0 ? header + "\n" : "", line, "\n");
    sylvora::FlushOutput();
    lastPrinted = round;
}

int TreeLearner::RunEvaluation::EndRounds() {
    if (!fRounds) return 0;
    if (learner.CfgInfo.evalEvery > 0 && lastPrinted != numRounds) PrintLine(numRounds);
    const EvaluationRecord& record = learner.evaluationRecord;
    const int best = record.bestRound;
    if (learner.CfgInfo.earlyStop > 0 && best == 0) {
        return Fail("ERROR: earlyStop: the ", record.stopMetric, " of the set \"", record.stopSet,
                    "\" is not finite after any round; check its labels!\n");
    }
    if (best == 0 || best == numRounds) return 0;
    CutTo(EnsembleView(learner).NumGroups() - static_cast<size_t>(numRounds - best));
    return 0;
}

// Trees that are cut off stay until Destroy, as those of earlier runs do. Of packed trees TreeGroup
// has a copy of the last one, which is no longer part of the ensemble.
void TreeLearner::RunEvaluation::CutTo(size_t numGroups) {
    learner.StepLengthV.resize(numGroups);
    if (learner.packedTrees) {
        learner.ClearGroup();
        learner.packedTrees->KeepGroups(numGroups);
        return;
    }
    std::vector<std::vector<TreeCR*>>& groupV = learner.TreeVV;
    for (size_t g = numGroups; g < groupV.size(); ++g) {
        learner.retiredV.insert(learner.retiredV.end(), groupV[g].begin(), groupV[g].end());
    }
    groupV.resize(numGroups);
    learner.TreeGroup = groupV.back();
}

int TreeLearner::RunEvaluation::TakeEnsemble() {
    if (fRounds || EnsembleView(learner).NumGroups() == 0) return 0;
    for (EvaluatedSet& set : setV) {
        if (ScoreEnsemble(set) != 0) return -1;
    }
    if (Measure() != 0) return -1;
    if (learner.CfgInfo.evalEvery > 0) PrintLine(1);
    return 0;
}

// Rows are copied to a buffer, piece by piece.
int TreeLearner::RunEvaluation::ScoreEnsemble(EvaluatedSet& set) {
    constexpr size_t kMostValues = size_t{1} << 20;
    constexpr size_t kMostRows = 16384;
    const size_t width = static_cast<size_t>(learner.dimFea);
    const size_t numAtOnce =
        std::min(set.NumRows(), std::clamp(kMostValues / width, size_t{1}, kMostRows));
    VecDle valueV(numAtOnce * width);
    for (size_t begin = 0; begin < set.NumRows(); begin += numAtOnce) {
        const size_t end = std::min(begin + numAtOnce, set.NumRows());
        set.ReadRows(begin, end, learner.dimFea, valueV.data());
        if (learner.OnlineTestingBatch(valueV.data(), end - begin, width, set.Scores() + begin,
                                       learner.numThread) != 0) {
            return -1;
        }
    }
    return 0;
}
