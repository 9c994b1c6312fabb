// The data that all contestants of a workload share: a raw file that C++, Python and R read fast.
//
//   file   = rows columns classes queries       int32 each; classes 0: regression; queries 0: none
//            { label }                          float32, one per row
//            { query }                          int32, one per row, ascending; only with queries
//            { value }                          float32, row by row
//
// All in the machine's byte order (little-endian). Values are floats because some peers hold
// floats: what is rounded in the file is the same number for everybody.
#ifndef SYLVORA_BENCH_RAWDATA_H
#define SYLVORA_BENCH_RAWDATA_H

#include <cstdint>
#include <string>
#include <vector>

#include "Libdef.h"

namespace sylvora::bench {

struct RawHeader {
    std::int32_t numRows = 0;
    std::int32_t numColumns = 0;
    std::int32_t numClasses = 0;
    std::int32_t numQueries = 0;
};

struct RawData {
    RawHeader header;
    std::vector<float> labelV;
    std::vector<std::int32_t> queryV;
    std::vector<float> valueV;  // row-major
};

// The same as the learner takes it.
struct LearnerData {
    RawHeader header;
    VecDle labelV;
    VecInt queryV;
    VecVecDle rowVV;
};

// All throw std::runtime_error with the path when the file cannot be written or read.
void WriteRaw(const RawData& data, const std::string& path);
RawData ReadRaw(const std::string& path);
// Holds one row of floats at a time, so that the peak of memory is the learner's.
LearnerData ReadForLearner(const std::string& path);
// As data lines: label [qid:query] id:value ..., with nine digits, which keep a float.
void WriteText(const RawData& data, const std::string& path);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_RAWDATA_H
