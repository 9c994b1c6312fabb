// Sparse data lines, stored and only checked, against a reader that goes word by word; and as lines
// of a longer text, as the command has them.
#include "LineCheck.h"
#include "god/DataLines.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

// With `numBehind` bytes behind the line, where the memory ends too.
void CheckInText(const LineInput& input, const ReadLine& expected, size_t numBehind) {
    if (input.text.find('\n') != std::string::npos) return;
    const std::string before = "1 123:456 7890:1\n";
    const std::string around =
        before + input.text +
        std::string("\n1:234567890 12:3456789 123:45678").substr(0, numBehind);
    const std::vector<char> textV(around.begin(), around.end());
    const std::string_view text(textV.data(), textV.size());
    const std::string_view line = text.substr(before.size(), input.text.size());
    std::vector<double> rowV(static_cast<size_t>(input.dim), kUntouched);
    LineHead head;
    const int status = ParseSparseLine(line, text, input.dim, rowV.data(), head);
    Demand(status == expected.status, "another status within a text");
    if (status != 0) return;
    Demand(head.label == expected.label && head.queryId == expected.query &&
               head.numPairs == expected.count && rowV == expected.rowV,
           "another row within a text");
    const int largestId = LargestFeatureId(line);
    const bool fAll = head.rest.find_first_not_of(" \t\v\f\r") == std::string_view::npos;
    Demand(fAll ? head.largestId == largestId : head.largestId <= largestId, "another largest id");
}

}  // namespace

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
        if (form == Form::kCheckOnly) continue;
        counter.Add(read.status, read.message);
        CheckInText(input, read, data[0] / LineInput::kMostColumns);
    }
    return 0;
}
