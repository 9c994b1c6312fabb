// Finds the rows of a block that do not have the frequent code of a column: in a column where most
// rows share one value, only these rows are counted one by one.
#ifndef SYLVORA_ENGINE_TRAIN_HISTOGRAM_OTHERCODES_H
#define SYLVORA_ENGINE_TRAIN_HISTOGRAM_OTHERCODES_H

#include <cstdint>

#include "god/InstructionSets.h"

namespace sylvora {
namespace engine {

// A row with another code than the frequent one.
struct OtherCode {
    uint16_t place;  // in the block
    uint16_t bin;
};

constexpr int kMostPlaces = 1 << 16;
constexpr int kOtherSlack = 16;

// Finds the codes that, shifted right by `shift`, differ from `frequent`, in order, and returns
// their number. `count` is at most kMostPlaces. `others` has room for count + kOtherSlack entries;
// those past the returned number are unspecified. Thread-safe.
typedef int FindOtherCodes(const uint16_t* codes, int count, int shift, uint16_t frequent,
                           OtherCode* others);

// Each is compiled for its instruction set, and gives the same results.
FindOtherCodes FindOtherCodesBaseline;
FindOtherCodes FindOtherCodesAvx512;

// AVX2 has no fast way to compress.
constexpr KernelsOfSets<FindOtherCodes> kFindOtherCodes = {
    {FindOtherCodesBaseline, FindOtherCodesBaseline, FindOtherCodesAvx512}};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_HISTOGRAM_OTHERCODES_H
