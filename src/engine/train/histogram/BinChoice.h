// The number of bins for a node's histogram.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINCHOICE_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINCHOICE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace sylvora {
namespace engine {

// The work of a search in the columns whose bins hold several values.
struct SearchWork {
    int64_t numBins = 0;  // scanned
    int64_t numRows = 0;  // of candidate bins, which were looked at one by one
};

// Chooses about 3 sqrt(n) bins for a node of n rows, or twice or four times as many if the trees
// before had to look at many rows in nodes of that size. No result depends on the choice.
class BinChoice {
  public:
    // `mostBins` are those of a histogram with shift 0.
    explicit BinChoice(int mostBins) : numMost(mostBins) {}

    // The shift for a node of `count` rows: the histogram joins 2^shift bins. At least 0.
    int ShiftFor(int count) const;
    // Takes note of the search of a node of `count` rows. Thread-safe.
    void Note(int count, const SearchWork& work);
    // Adapts the choice to what was noted since the last call.
    void Adapt();

  private:
    // Nodes of [2^k, 2^(k+1)) rows.
    struct SizeClass {
        std::atomic<int64_t> numBins{0};
        std::atomic<int64_t> numRows{0};
        int numDoubled = 0;
    };
    static constexpr int kMostDoubled = 2;

    static size_t ClassOf(int count);

    const int numMost;
    std::array<SizeClass, 32> classV;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_BINCHOICE_H
