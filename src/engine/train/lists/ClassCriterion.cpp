// The best classification split; see Criterion.h. All sums are integers, and scores follow the
// reference implementation's formula, so scores and ties are bit for bit its own.
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

// Higher score first, then the better balance. Candidates equal in both keep their order.
bool IsBetter(const ListCandidate& a, const ListCandidate& b) {
    return a.score > b.score || (a.score == b.score && a.balance < b.balance);
}

// Sums of squared class counts on both sides of a split that moves right, one entry at a time. For
// two classes, the count of class 1 and the number of entries passed determine the count of class
// 0.
class TwoClasses {
  public:
    TwoClasses(const std::vector<int>& totalV, ScanBuffers&)
        : totals{totalV[0], totalV.size() > 1 ? totalV[1] : 0} {
        squaresR = totals[0] * totals[0] + totals[1] * totals[1];
    }

    // Moves one row of a class from right to left: a count of n becomes n + 1, and its square grows
    // by 2 n + 1; the right side likewise shrinks.
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

// For any number of classes: keeps the left count of each.
class ManyClasses {
  public:
    ManyClasses(const std::vector<int>& totals, ScanBuffers& scanBuffers)
        : totalV(totals), leftV(scanBuffers.classCountV) {
        for (const int64_t total : totalV) squaresR += total * total;
    }

    void Pass(size_t cls) {
        const int64_t left = ++leftV[cls];
        squaresL += 2 * left - 1;
        squaresR -= 2 * (totalV[cls] - left) + 1;
    }
    // Resets the class counts to zero, by class or by the entries passed, whichever is fewer.
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
ListCandidate ScanList(const Entry* list, int count, const uint16_t* classV, Classes classes,
                       ScoreFilter filter) {
    ListCandidate best;
    ListCandidate at;
    // Scores a split after each entry that the next one rises above. The filter is tried first,
    // because most candidates fail it.
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

// Returns false if a label is no class, or if classes do not fit 16 bits.
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

// countV must be zero; ClearClasses makes it so again.
void ClassCriterion::CountClasses(const GrownNode& node, std::vector<int>& countV) const {
    countV.resize(static_cast<size_t>(numClass));
    const uint16_t* const classes = classV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) ++countV[classes[i]];
}

// Resets only the classes that occur: a node may have fewer rows than there are classes.
void ClassCriterion::ClearClasses(const GrownNode& node, std::vector<int>& countV) const {
    const uint16_t* const classes = classV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) countV[classes[i]] = 0;
}

// The majority is the class with the most rows; the lowest of equals, as in the reference
// implementation.
bool ClassCriterion::Describe(GrownNode& node, ScanBuffers& scanBuffers) const {
    std::vector<int>& countV = scanBuffers.classCountV;
    CountClasses(node, countV);
    const uint16_t* const classes = classV.data() + node.startDoc;
    node.majority = classes[0];
    // Looks at the rows' classes only: there may be many more classes than rows.
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

// Counts the node's classes once for all slots.
void ClassCriterion::Begin(const GrownNode& node, NodeFacts& facts) const {
    facts.best = -1.0;
    CountClasses(node, facts.classCountV);
}

void ClassCriterion::End(const GrownNode& node, NodeFacts& facts) const {
    ClearClasses(node, facts.classCountV);
}

// Two classes need no table of counts, and are the common case.
ListCandidate ClassCriterion::Scan(const NodeLists& lists, int slot, NodeFacts& facts,
                                   ScanBuffers& scanBuffers) const {
    const ScoreFilter filter(facts.best.load(std::memory_order_relaxed));
    const Entry* list = lists.Of(slot);
    ListCandidate best;
    if (numClass <= 2) {
        best = ScanList(list, lists.rows.count, classV.data(),
                        TwoClasses(facts.classCountV, scanBuffers), filter);
    } else {
        scanBuffers.classCountV.resize(static_cast<size_t>(numClass));
        best = ScanList(list, lists.rows.count, classV.data(),
                        ManyClasses(facts.classCountV, scanBuffers), filter);
    }
    best.slot = slot;
    RaiseBest(facts.best, best.score);
    return best;
}

// Never undecided: scores are exact, so this is the reference implementation's order.
SearchResult<ListCandidate> ClassCriterion::Decide(const NodeLists&,
                                                   const std::vector<ListCandidate>& candidateV,
                                                   const NodeFacts&) const {
    SearchResult<ListCandidate> result;
    for (const ListCandidate& candidate : candidateV) {
        if (IsBetter(candidate, result.winner)) result.winner = candidate;
    }
    result.bestScore = result.winner.score;
    result.fReferenceScore = true;
    return result;
}

}  // namespace engine
}  // namespace sylvora
