// Sparse data lines, stored and only checked, against a reader that goes word by word.
#include "LineCheck.h"

using namespace sylvora;
using namespace sylvora::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static tests::Messages messages;
    if (size == 0) return 0;
    const LineInput input(data, size);
    for (const Form form : {Form::kCheckOnly, Form::kSparse}) {
        const ReadLine read = Read<double>(input.dim, messages, [&](double*& row, ReadLine& line) {
            return read_sparse_line(input.text, input.dim, row, line.count, line.label, line.query,
                                    form == Form::kSparse);
        });
        DemandSame(read, ReferenceLine<double>(input.text, input.dim, form).line);
        if (form == Form::kSparse) counter.Add(read.status, read.message);
    }
    return 0;
}
