// Sparse data lines against the reference reader: stored, only checked, and as a line within a
// longer text, as the command reads them.
#include <limits>

#include "LineCheck.h"
#include "god/DataLines.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

constexpr int kMostId = std::numeric_limits<int>::max();

// Compares the head of a line with the reference.
void CheckHead(const LineHead& head, const ReadLine& expected, std::string_view line) {
    Demand(head.label == expected.label && head.queryId == expected.query &&
               head.numPairs == expected.count,
           "another head within a text");
    // A value equal to `absent` that a line repeats is counted twice.
    const int numCells = static_cast<int>(expected.idS.size());
    Demand(head.numLarger == expected.numLarger && head.numCells >= numCells &&
               head.numCells <= head.numPairs - head.numLarger,
           "other counts within a text");
    Demand(head.fOddId == expected.fOddId, "another judgement of ids");
    Demand(head.fHidesRow == expected.fHidesRow, "another judgement of line ends");
    const LineIds ids = IdsOfLine(line);
    Demand(!expected.fOddId || !ids.odd.empty(), "an odd id is overlooked");
    Demand(ids.odd.empty() || IsOdd(std::string(ids.odd)), "an id that is not odd");
    Demand(ids.odd.empty() || MayHaveLargerId(line, kMostId), "an odd id is not looked for");
    if (!ids.odd.empty()) return;
    Demand(expected.fAll ? head.largestId == ids.largest : head.largestId <= ids.largest,
           "another largest id");
}

// Reads the line with `numBehind` bytes after it; the allocation ends there.
void CheckInText(const LineInput& input, const LineRules& rules, size_t numBehind) {
    if (input.text.find('\n') != std::string::npos) return;
    const ReadLine expected = ReferenceLine<double>(input.text, rules, Form::kSparse).line;
    const std::string before = "1 123:456 7890:1\n";
    const std::string around =
        before + input.text +
        std::string("\n1:234567890 12:3456789 123:45678").substr(0, numBehind);
    const std::vector<char> textV(around.begin(), around.end());
    const std::string_view text(textV.data(), textV.size());
    const std::string_view line = text.substr(before.size(), input.text.size());
    std::vector<double> rowV(static_cast<size_t>(rules.dim), kUntouched);
    LineHead head;
    const int status = ParseSparseLine(line, text, rules, rowV.data(), head);
    Demand(status == expected.status, "another status within a text");
    if (status != 0) return;
    Demand(rowV == expected.rowV, "another row within a text");
    CheckHead(head, expected, line);
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
        const size_t numBehind = data[0] / LineInput::kMostColumns;
        CheckInText(input, {input.dim, input.dim}, numBehind);
        CheckInText(input, {input.dim, 2 * input.dim, true, 0.0}, numBehind);
    }
    return 0;
}
