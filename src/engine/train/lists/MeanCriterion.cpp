// The best split by means, for rows of weight 1; see Criterion.h.
//
// A list without ties has only one order. Adding up along it gives the reference implementation's
// sums bit for bit. Among tied values the reference implementation adds in its own order. Unless
// sums are exact in any order, scores then differ slightly; docs/engine-training.md derives the
// bound.
#include <algorithm>
#include <cmath>
#include <utility>

#include "Criterion.h"
#include "ScoreFilter.h"
#include "engine/train/Separable.h"

namespace sylvora {
namespace engine {
namespace {

constexpr double kUnitRoundoff = 0x1p-53;

// The sums on both sides of a split that moves right. The right sum is decremented, not recomputed,
// as in the reference implementation: the rounding must be the same.
struct Sums {
    double gradL;
    double gradR;

    // Moves one row from right to left.
    void Pass(double gradient) {
        gradL += gradient;
        gradR -= gradient;
    }
    double Score(int countL, int countR) const {
        return gradL * gradL / countL + gradR * gradR / countR;
    }
};

}  // namespace

// Copies the gradients into row-index order, so that scans read a small part of memory.
bool MeanCriterion::Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) {
    gradV.resize(static_cast<size_t>(num));
    for (int i = 0; i < num; ++i) gradV[static_cast<size_t>(i)] = targetV[indexV[i]];
    fixed = FixedPoint::Fit(gradV.data(), nullptr, num, pool);
    return fixed.fUsable;
}

void MeanCriterion::Swap(int position, int other) {
    std::swap(gradV[static_cast<size_t>(position)], gradV[static_cast<size_t>(other)]);
}

// Adds in row-index order, as the reference implementation does.
bool MeanCriterion::Describe(GrownNode& node, ScanBuffers&) const {
    const double* const gradients = gradV.data() + node.startDoc;
    double sum = 0.0;
    for (int i = 0; i < node.countDoc; ++i) sum += gradients[i];
    node.gradAll = sum;
    node.wgtAll = node.countDoc;
    return true;
}

// Computes sumError, e of docs/engine-training.md. `sumAbs` is A there.
void MeanCriterion::Begin(const GrownNode& node, NodeFacts& facts) const {
    facts.best = -1.0;
    facts.gradAll = node.gradAll;
    facts.sumError = 0.0;
    if (fixed.fExact) return;
    double sumAbs = 0.0;
    const double* const gradients = gradV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) sumAbs += std::fabs(gradients[i]);
    facts.sumError = 4.1 * (node.countDoc + 8.0) * kUnitRoundoff * sumAbs;
}

// E of docs/engine-training.md: how far a score may be from the reference implementation's.
double MeanCriterion::ScoreError(double score, const NodeFacts& facts) const {
    if (fixed.fExact) return 0.0;
    const double h = fixed.maxAbsGradPerWeight;
    const double e = facts.sumError;
    return 4 * h * e + 6 * e * e + 16 * kUnitRoundoff * score;
}

// A candidate that scores less cannot win against one that scores `score`: each score may be off by
// E, so the margin is 2 E.
double MeanCriterion::PruningThreshold(double score, const NodeFacts& facts) const {
    return score - 2 * ScoreError(score, facts);
}

// Scans a list for its best candidate. Also counts the rises: a list that rises at every entry has
// no ties.
ListCandidate MeanCriterion::Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                                  ScanBuffers&) const {
    const Entry* list = lists.Of(slot);
    const int count = lists.rows.count;
    const bool fAllSeparable = lists.lists.AllSeparable(lists.columnV[slot]);
    ScoreFilter filter(PruningThreshold(facts.best.load(std::memory_order_relaxed), facts));
    Sums sums = {0.0, facts.gradAll};
    ListCandidate best;
    best.slot = slot;
    int numRises = 0;
    // Invariant: `sums` covers list[0..i] on the left. The filter comes first, because most
    // candidates fail it; then the tests from the cheapest to the dearest.
    for (int i = 0; i + 1 < count; ++i) {
        sums.Pass(gradV[PositionOf(list[i])]);
        const Entry next = list[i + 1];
        numRises += Rises(next);
        const int countL = i + 1;
        const int countR = count - countL;
        if (!filter.Passes(sums.gradL * sums.gradL, countL, sums.gradR * sums.gradR, countR) ||
            !Rises(next))
            continue;
        const double score = sums.Score(countL, countR);
        if (!(score > best.score)) continue;
        if (!fAllSeparable && !IsSeparable(lists.Value(list[i], slot), lists.Value(next, slot)))
            continue;
        best.score = score;
        best.countL = countL;
        filter.Raise(score);
    }
    best.fReferenceScore = fixed.fExact || numRises == count - 1;
    RaiseBest(facts.best, best.score);
    return best;
}

// Counts the candidates of a slot that score at least `minScore`. Stops at two.
int MeanCriterion::CountCandidates(double minScore, const NodeLists& lists, int slot,
                                   const NodeFacts& facts) const {
    const Entry* list = lists.Of(slot);
    Sums sums = {0.0, facts.gradAll};
    int num = 0;
    for (int i = 0; i + 1 < lists.rows.count && num < 2; ++i) {
        sums.Pass(gradV[PositionOf(list[i])]);
        if (!Rises(list[i + 1]) || !(sums.Score(i + 1, lists.rows.count - i - 1) >= minScore))
            continue;
        num += IsSeparable(lists.Value(list[i], slot), lists.Value(list[i + 1], slot));
    }
    return num;
}

// The first slot with the highest score is `best`. It wins if all slots within the margin have
// reference scores, or if it is the only candidate left; otherwise the reference search must
// decide.
SearchResult<ListCandidate> MeanCriterion::Decide(const NodeLists& lists,
                                                  const std::vector<ListCandidate>& candidateV,
                                                  const NodeFacts& facts) const {
    SearchResult<ListCandidate> result;
    ListCandidate best;
    for (const ListCandidate& candidate : candidateV) {
        if (candidate.score > best.score) best = candidate;
    }
    if (best.score < 0.0) return result;
    const double minScore = PruningThreshold(best.score, facts);
    bool fReferenceScore = true;
    for (const ListCandidate& candidate : candidateV) {
        if (candidate.score < 0.0 || candidate.score < minScore) continue;
        fReferenceScore = fReferenceScore && candidate.fReferenceScore;
        result.undecidedV.push_back(candidate.slot);
    }
    result.bestScore = best.score;
    result.scoreError = fReferenceScore ? 0.0 : ScoreError(best.score, facts);
    result.fReferenceScore = fReferenceScore;
    const bool fOne = result.undecidedV.size() == 1;
    if (fReferenceScore || (fOne && CountCandidates(minScore, lists, best.slot, facts) == 1)) {
        result.winner = best;
        result.undecidedV.clear();
    }
    return result;
}

}  // namespace engine
}  // namespace sylvora
