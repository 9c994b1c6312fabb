// The best cut by classes; see Criterion.h. All sums are of integers and every score is computed
// with the plain form's formula, so scores and ties are the plain form's own.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "Criterion.h"
#include "ScoreFilter.h"
#include "god/Truncation.h"

namespace sylvora {
namespace engine {
namespace {

bool IsBetter(const ListCut& a, const ListCut& b) {
    return a.score > b.score || (a.score == b.score && a.balance < b.balance);
}

// The sums of squared class counts on both sides of a cut that moves from left to right. The rows
// of the first class and of both together tell those of the second.
class TwoClasses {
  public:
    TwoClasses(const std::vector<int>& totalV, ScanScratch&)
        : totals{totalV[0], totalV.size() > 1 ? totalV[1] : 0} {
        squaresR = totals[0] * totals[0] + totals[1] * totals[1];
    }

    void Pass(size_t cls) {
        ++numPassed;
        left1 += static_cast<int64_t>(cls);
        const int64_t left = cls != 0 ? left1 : numPassed - left1;
        const int64_t total = cls != 0 ? totals[1] : totals[0];
        squaresL += 2 * left - 1;
        squaresR -= 2 * (total - left) + 1;
    }
    void Clear(const Entry*, int, const uint16_t*) {}

    int64_t squaresL = 0;
    int64_t squaresR = 0;

  private:
    int64_t totals[2];
    int64_t left1 = 0;
    int64_t numPassed = 0;
};

class ManyClasses {
  public:
    ManyClasses(const std::vector<int>& totals, ScanScratch& scratch)
        : totalV(totals), leftV(scratch.classCountV) {
        for (const int64_t total : totalV) squaresR += total * total;
    }

    void Pass(size_t cls) {
        const int64_t left = ++leftV[cls];
        squaresL += 2 * left - 1;
        squaresR -= 2 * (totalV[cls] - left) + 1;
    }
    // Leaves the counts of the entries that have passed zero again.
    void Clear(const Entry* list, int count, const uint16_t* classV) {
        if (static_cast<size_t>(count) >= leftV.size()) {
            std::fill(leftV.begin(), leftV.end(), 0);
        } else {
            for (int i = 0; i < count; ++i) leftV[classV[PositionOf(list[i])]] = 0;
        }
    }

    int64_t squaresL = 0;
    int64_t squaresR = 0;

  private:
    const std::vector<int>& totalV;
    std::vector<int>& leftV;
};

template <typename Classes>
ListCut ScanList(const Entry* list, int count, const uint16_t* classV, Classes classes,
                 ScoreFilter filter) {
    ListCut best;
    ListCut at;
    for (int i = 0; i + 1 < count; ++i) {
        classes.Pass(classV[PositionOf(list[i])]);
        at.countL = i + 1;
        const double squaresL = static_cast<double>(classes.squaresL);
        const double squaresR = static_cast<double>(classes.squaresR);
        if (!filter.Passes(squaresL, at.countL, squaresR, count - at.countL) || !Rises(list[i + 1]))
            continue;
        at.score = squaresL / at.countL + squaresR / (count - at.countL);
        at.balance = std::fabs(static_cast<double>(at.countL) / count - 0.5);
        if (!IsBetter(at, best)) continue;
        best = at;
        filter.Raise(at.score);
    }
    classes.Clear(list, count, classV);
    return best;
}

}  // namespace

bool ClassCriterion::Take(const double* targetV, const int* indexV, int num, WorkerPool&) {
    if (numClass > std::numeric_limits<uint16_t>::max()) return false;
    classV.resize(static_cast<size_t>(num));
    for (int i = 0; i < num; ++i) {
        const int cls = Truncate<int>(targetV[indexV[i]]);
        if (cls < 0 || cls >= numClass) return false;
        classV[static_cast<size_t>(i)] = static_cast<uint16_t>(cls);
    }
    return true;
}

void ClassCriterion::Swap(int position, int other) {
    std::swap(classV[static_cast<size_t>(position)], classV[static_cast<size_t>(other)]);
}

void ClassCriterion::CountClasses(const GrownNode& node, std::vector<int>& countV) const {
    countV.resize(static_cast<size_t>(numClass));
    const uint16_t* const classes = classV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) ++countV[classes[i]];
}

// Not by all classes: a node may have fewer rows than there are.
void ClassCriterion::ClearClasses(const GrownNode& node, std::vector<int>& countV) const {
    const uint16_t* const classes = classV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) countV[classes[i]] = 0;
}

// Of the classes with the most rows the lowest, as the plain form has it.
bool ClassCriterion::Describe(GrownNode& node, ScanScratch& scratch) const {
    std::vector<int>& countV = scratch.classCountV;
    CountClasses(node, countV);
    const uint16_t* const classes = classV.data() + node.startDoc;
    node.majority = classes[0];
    for (int i = 1; i < node.countDoc; ++i) {
        const int cls = classes[i];
        const int count = countV[static_cast<size_t>(cls)];
        const int most = countV[static_cast<size_t>(node.majority)];
        if (count > most || (count == most && cls < node.majority)) node.majority = cls;
    }
    const bool fPure = countV[static_cast<size_t>(node.majority)] == node.countDoc;
    ClearClasses(node, countV);
    return !fPure;
}

void ClassCriterion::Begin(const GrownNode& node, NodeFacts& facts) const {
    facts.best = -1.0;
    CountClasses(node, facts.classCountV);
}

void ClassCriterion::End(const GrownNode& node, NodeFacts& facts) const {
    ClearClasses(node, facts.classCountV);
}

ListCut ClassCriterion::Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                             ScanScratch& scratch) const {
    const ScoreFilter filter(facts.best.load(std::memory_order_relaxed));
    const Entry* list = lists.Of(slot);
    ListCut best;
    if (numClass <= 2) {
        best = ScanList(list, lists.rows.count, classV.data(),
                        TwoClasses(facts.classCountV, scratch), filter);
    } else {
        scratch.classCountV.resize(static_cast<size_t>(numClass));
        best = ScanList(list, lists.rows.count, classV.data(),
                        ManyClasses(facts.classCountV, scratch), filter);
    }
    best.slot = slot;
    facts.Raise(best.score);
    return best;
}

Decision ClassCriterion::Decide(const NodeLists&, const std::vector<ListCut>& cutV,
                                const NodeFacts&) const {
    Decision decision;
    for (const ListCut& cut : cutV) {
        if (IsBetter(cut, decision.winner)) decision.winner = cut;
    }
    return decision;
}

}  // namespace engine
}  // namespace sylvora
