// The evaluation of a run: scores and metrics of the sets after each round, the table of metrics,
// and early stopping.
#ifndef SYLVORA_TREELEARNER_RUNEVALUATION_H
#define SYLVORA_TREELEARNER_RUNEVALUATION_H

#include <memory>
#include <string>
#include <vector>

#include "../Checkpoint/Digest.h"
#include "../TreeLearner.h"
#include "EvaluatedSet.h"

// Lives as long as one call of Boosting and fills the learner's evaluationRecord. Borrows the
// learner and the rows of the sets. For the thread that trains; shares its work among the learner's
// workers. Results do not depend on their number.
class TreeLearner::RunEvaluation {
  public:
    // Checks settings and sets and prepares the evaluation. `evaluation` stays null if nothing is
    // to be evaluated. Returns 0, or -1 after a message.
    [[nodiscard]] static int Start(TreeLearner& learner,
                                   std::unique_ptr<RunEvaluation>& evaluation);

    // Before the first round of a run that goes on after round `done`: evaluates the rounds that
    // the ensemble has, as TakeRound would have, but prints nothing. Returns 0, or -1 as TakeRound.
    [[nodiscard]] int Replay(int done);
    // After a round of boosting, counted from 1: scores the sets with the groups that are new.
    // `fLast` says that no round follows. Does nothing for other models. Returns 0, or -1 after a
    // message if a metric of the program failed.
    [[nodiscard]] int TakeRound(int round, bool fLast);
    // Whether early stopping ends the run.
    bool IsOver() const { return fOver; }
    // After the last round: prints its line, if that is missing, and cuts the ensemble to the best
    // round. Returns 0, or -1 after a message if early stopping found no finite value.
    [[nodiscard]] int EndRounds();
    // After the run: evaluates a forest, a single tree or a classification, whose scores are no
    // sums over rounds. Returns 0, or -1 after a message.
    [[nodiscard]] int TakeEnsemble();
    // The digest of what early stopping depends on: a set and its metric. Only with earlyStop.
    sylvora::Digest DigestOfStop() const;

  private:
    // A metric of a set, and its place in the record.
    struct Measurement {
        size_t set;
        sylvora::NamedMetric metric;      // unused with `user`
        const sylvora::UserMetric* user;  // null: `metric`

        bool IsLargerBetter() const {
            return user != nullptr ? user->fLargerIsBetter : metric.IsLargerBetter();
        }
    };

    explicit RunEvaluation(TreeLearner& treeLearner);
    bool IsWanted() const;
    int CheckSettings() const;
    int AddDevelopmentSet();
    int AddSet(const sylvora::EvaluationSet& set);
    int CheckSet(const sylvora::EvaluationSet& set) const;
    int CheckName(const std::string& name) const;
    int MapLabels(const std::string& place, VecDle& valueV) const;
    int ChooseMetrics();
    int ChooseStop(std::vector<std::vector<sylvora::NamedMetric>>& metricVV);
    int CheckMetric(const std::string& name, size_t set) const;
    int CheckUserMetrics() const;
    const sylvora::UserMetric* FindUserMetric(const std::string& name) const;
    void ListMeasurements(const std::vector<std::vector<sylvora::NamedMetric>>& metricVV);
    std::string Place(const std::string& name) const;

    void AddGroups(size_t end);
    int MeasureRound(int round, size_t numGroups);
    int ScoreEnsemble(sylvora::EvaluatedSet& set);
    int Measure();
    int AskUser(const Measurement& measurement, double& value);
    void CompareWithBest(int round);
    void PrintLine(int round);
    void CutTo(size_t numGroups);

    TreeLearner& learner;
    const sylvora::MetricContext context;
    const bool fRounds;  // scores are sums over rounds
    std::vector<sylvora::EvaluatedSet> setV;
    std::vector<Measurement> measurementV;  // as in the record
    size_t stopAt = 0;                      // the measurement that decides about earlyStop
    size_t numScored = 0;                   // groups that are in the scores
    int numRounds = 0;    // 0 as well for a model that is measured once, at the end
    int lastPrinted = 0;  // the round of the last line of the table; 0: none yet
    bool fOver = false;
};

#endif  // SYLVORA_TREELEARNER_RUNEVALUATION_H
