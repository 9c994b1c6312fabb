// The data that all sides of a workload share, in a raw file that C++, Python and R read fast.
//
//   file   = rows columns classes queries       int32 each; classes 0: regression; queries 0: none
//            { label }                          float32, one per row
//            { query }                          int32, one per row, ascending; only with queries
//            { value }                          float32, row by row
//
// All in the machine's byte order (little-endian). Values are floats because some peers store
// floats; so every side has the same numbers.
#ifndef SYLVORA_BENCH_RAWDATA_H
#define SYLVORA_BENCH_RAWDATA_H

#include <cstdint>
#include <string>
#include <vector>

#include "DataBlock.h"
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

// The values where they are.
DataBlock BlockOf(const RawData& data);

// The same data in the form that the learner takes.
struct LearnerData {
    RawHeader header;
    VecDle labelV;
    VecInt queryV;
    VecVecDle rowVV;
};

// All throw std::runtime_error, with the path in the message, if the file cannot be written or
// read.
void WriteRaw(const RawData& data, const std::string& path);
RawData ReadRaw(const std::string& path);
// Buffers just one row of floats, so that the peak memory is the learner's.
LearnerData ReadForLearner(const std::string& path);
// Writes data lines: label [qid:query] id:value ..., with nine digits, which are enough to restore
// a float.
void WriteText(const RawData& data, const std::string& path);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_RAWDATA_H
