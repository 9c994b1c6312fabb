// The best cut by means, for rows of weight 1; see Criterion.h.
//
// A list without ties has one order only, that of the plain form, so adding up along it gives the
// plain form's sums in every bit. With ties the plain form adds up in an order of its own; unless
// sums are exact in any order, scores are then a little off (docs/engine-training.md bounds it).
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

// The sums on both sides of a cut that moves from left to right, as the plain form adds them up.
struct Sums {
    double gradL;
    double gradR;

    void Pass(double gradient) {
        gradL += gradient;
        gradR -= gradient;
    }
    double Score(int countL, int countR) const {
        return gradL * gradL / countL + gradR * gradR / countR;
    }
};

}  // namespace

bool MeanCriterion::Take(const double* targetV, const int* indexV, int num, WorkerPool& pool) {
    gradV.resize(static_cast<size_t>(num));
    for (int i = 0; i < num; ++i) gradV[static_cast<size_t>(i)] = targetV[indexV[i]];
    fixed = FixedPoint::Fit(gradV.data(), nullptr, num, pool);
    return fixed.fUsable;
}

void MeanCriterion::Swap(int position, int other) {
    std::swap(gradV[static_cast<size_t>(position)], gradV[static_cast<size_t>(other)]);
}

bool MeanCriterion::Describe(GrownNode& node, ScanScratch&) const {
    const double* const gradients = gradV.data() + node.startDoc;
    double sum = 0.0;
    for (int i = 0; i < node.countDoc; ++i) sum += gradients[i];
    node.gradAll = sum;
    node.wgtAll = node.countDoc;
    return true;
}

// The derivation of the error is in docs/engine-training.md.
void MeanCriterion::Begin(const GrownNode& node, NodeFacts& facts) const {
    facts.best = -1.0;
    facts.gradAll = node.gradAll;
    facts.rowError = 0.0;
    if (fixed.fExact) return;
    double sizes = 0.0;
    const double* const gradients = gradV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) sizes += std::fabs(gradients[i]);
    facts.rowError = 4.1 * (node.countDoc + 8.0) * kUnitRoundoff * sizes;
}

// The score below which a cut cannot win against one of `score`: both may be off.
double MeanCriterion::Least(double score, const NodeFacts& facts) const {
    if (fixed.fExact) return score;
    const double e = facts.rowError;
    return score - 2 * (4 * fixed.largest * e + 6 * e * e + 16 * kUnitRoundoff * score);
}

ListCut MeanCriterion::Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                            ScanScratch&) const {
    const Entry* list = lists.Of(slot);
    const int count = lists.rows.count;
    const bool fClean = lists.lists.IsClean(lists.columnV[slot]);
    ScoreFilter filter(Least(facts.best.load(std::memory_order_relaxed), facts));
    Sums sums = {0.0, facts.gradAll};
    ListCut best;
    best.slot = slot;
    int numRises = 0;
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
        if (!fClean && !IsSeparable(lists.Value(list[i], slot), lists.Value(next, slot))) continue;
        best.score = score;
        best.countL = countL;
        filter.Raise(score);
    }
    best.fLiteral = fixed.fExact || numRises == count - 1;
    facts.Raise(best.score);
    return best;
}

// How many cuts of a slot score at least `least`; more than one is not counted on.
int MeanCriterion::CountFrom(double least, const NodeLists& lists, int slot,
                             const NodeFacts& facts) const {
    const Entry* list = lists.Of(slot);
    Sums sums = {0.0, facts.gradAll};
    int num = 0;
    for (int i = 0; i + 1 < lists.rows.count && num < 2; ++i) {
        sums.Pass(gradV[PositionOf(list[i])]);
        if (!Rises(list[i + 1]) || !(sums.Score(i + 1, lists.rows.count - i - 1) >= least))
            continue;
        num += IsSeparable(lists.Value(list[i], slot), lists.Value(list[i + 1], slot));
    }
    return num;
}

Decision MeanCriterion::Decide(const NodeLists& lists, const std::vector<ListCut>& cutV,
                               const NodeFacts& facts) const {
    Decision decision;
    ListCut best;
    for (const ListCut& cut : cutV) {
        if (cut.score > best.score) best = cut;
    }
    if (best.score < 0.0) return decision;
    const double least = Least(best.score, facts);
    bool fLiteral = true;
    for (const ListCut& cut : cutV) {
        if (cut.score < 0.0 || cut.score < least) continue;
        fLiteral = fLiteral && cut.fLiteral;
        decision.undecidedV.push_back(cut.slot);
    }
    const bool fOne = decision.undecidedV.size() == 1;
    if (fLiteral || (fOne && CountFrom(least, lists, best.slot, facts) == 1)) {
        decision.winner = best;
        decision.undecidedV.clear();
    }
    return decision;
}

}  // namespace engine
}  // namespace sylvora
