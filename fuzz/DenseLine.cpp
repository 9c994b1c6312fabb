// Dense data lines, read into doubles and floats, against the reference reader.
#include "LineCheck.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

template <typename Value>
ReadLine Check(const LineInput& input, tests::Messages& messages) {
    const ReadLine expected = ReferenceLine<Value>(input.text, input.dim, Form::kDense).line;
    ReadLine read = Read<Value>(input.dim, messages, [&](Value*& row, ReadLine& line) {
        return read_dense_line(input.text, input.dim, row, line.label, line.query);
    });
    read.count = expected.count;  // not reported for dense lines
    DemandSame(read, expected);
    return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static tests::Messages messages;
    if (size == 0) return 0;
    const LineInput input(data, size);
    Check<float>(input, messages);
    const ReadLine read = Check<double>(input, messages);
    counter.Add(read.status, read.message);
    return 0;
}
