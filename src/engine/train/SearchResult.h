// The outcome of a node's split search, shared by histograms and sorted lists.
#ifndef SYLVORA_ENGINE_TRAIN_SEARCHRESULT_H
#define SYLVORA_ENGINE_TRAIN_SEARCHRESULT_H

#include <atomic>
#include <vector>

namespace sylvora {
namespace engine {

// `Candidate` is a candidate split. Its member `slot` is -1 if there is none.
template <typename Candidate>
struct SearchResult {
    // The reference implementation's split; slot -1 if none or undecided.
    Candidate winner = {};
    // The slots with a near-tie, ascending, among which the reference search must decide. Empty if
    // there is a winner or if the node has no split.
    std::vector<int> undecidedV;
    // The near-tie's candidates in the order of undecidedV, if each slot has only one; else empty.
    std::vector<Candidate> tiedV;
    // The reference implementation's score of the best split of all slots is within scoreError of
    // bestScore; -1 without a split.
    double bestScore = -1.0;
    double scoreError = 0.0;
    // The winner's score is the reference implementation's, bit for bit.
    bool fReferenceScore = false;

    bool Found() const { return winner.slot >= 0; }
};

// Raises `best` to `score` if that is higher. Thread-safe.
inline void RaiseBest(std::atomic<double>& best, double score) {
    double current = best.load(std::memory_order_relaxed);
    while (score > current && !best.compare_exchange_weak(current, score)) {
    }
}

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_SEARCHRESULT_H
