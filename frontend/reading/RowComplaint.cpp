// Words the messages about malformed lines.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

#include "Libdef.h"
#include "RowReading.h"
#include "god/DataLines.h"
#include "god/NumberParsing.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

const char kHidesRow[] =
    "has another row after a carriage return: lines end with LF or CR LF, not with CR alone";

// What is wrong with a line that the library reads without an error.
std::string ComplaintOf(const RowFault& fault, const LineHead& head, const VecDle& valueV) {
    double valLabel = 0.0;
    if (!ParseNumber(head.label, valLabel)) {
        return "the label \"" + std::string(head.label) + "\" is not a number";
    }
    const std::string_view oddId = IdsOfLine(fault.text).odd;
    if (!oddId.empty()) {
        return Text("the id \"", oddId, "\" is wrong: ids are whole numbers from 1 to ",
                    std::numeric_limits<int>::max(), ", written in digits");
    }
    if (head.fHidesRow) return kHidesRow;
    const auto isInfinite = [](double value) { return !std::isfinite(value); };
    const auto infinite = std::find_if(valueV.begin(), valueV.end(), isInfinite);
    const std::string what = isInfinite(valLabel)
                                 ? "the label"
                                 : Text("the value of id ", infinite - valueV.begin() + 1);
    return what + " is infinite; training needs finite numbers";
}

}  // namespace

// Errors of the library come first. A line with an odd id is parsed with larger ids ignored,
// because odd ids did not count when the width was determined: a range error would mislead.
int Complain(const DataFile& file, const RowRules& rules, const RowFault& fault) {
    if (!fault.complaint.empty()) return file.Refuse(fault.line, fault.complaint);
    if (fault.text.find('\0') != std::string::npos) {
        return file.Refuse(fault.line, "contains a zero byte; expected a line of text");
    }
    LineRules asRead = rules.line;
    asRead.fIgnoreLarger |= !IdsOfLine(fault.text).odd.empty();
    VecDle valueV(static_cast<size_t>(asRead.dim));
    LineHead head;
    if (ReadSparseLine(fault.text, asRead, valueV.data(), head) != 0) {
        const char* const endOfLabel = head.label.data() + head.label.size();
        const size_t numBefore = static_cast<size_t>(endOfLabel - fault.text.data());
        if (HidesRow(std::string_view(fault.text).substr(numBefore))) {
            return file.Refuse(fault.line, kHidesRow);
        }
        return file.Refuse(fault.line, Text("expected: label [qid:query] id:value ..., with ids "
                                            "from 1 to ",
                                            asRead.mostPairs));
    }
    return file.Refuse(fault.line, ComplaintOf(fault, head, valueV));
}

}  // namespace sylvora::frontend
