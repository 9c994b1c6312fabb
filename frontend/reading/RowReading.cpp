// Parses the blocks of a file in parallel and words the messages about malformed lines.
#include "RowReading.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "Libdef.h"
#include "TextBlocks.h"
#include "god.h"
#include "god/DataLines.h"
#include "god/NumberParsing.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

const char kHidesRow[] =
    "has another row after a carriage return: lines end with LF or CR LF, not with CR alone";

// Parses the requested rows of a block. One object per worker; it reuses its read buffer.
class BlockParser {
  public:
    BlockParser(const DataFile& dataFile, const RowRules& rowRules, RowBuffers& rowBuffers)
        : file(dataFile), rules(rowRules), buffers(rowBuffers) {}

    RowReport Parse(size_t block) {
        RowReport report;
        const DataFile::Tally& before = file.Before(block);
        const long end = std::min(buffers.first + buffers.count, file.Before(block + 1).numRows);
        long numLine = before.numLines;
        long row = before.numRows;
        reader.Begin(file.Descriptor(), file.BlockBytes(), block);
        for (std::string_view line; row < end && reader.Next(line);) {
            ++numLine;
            if (IsBlank(line)) continue;
            if (row >= buffers.first && !Take(line, row - buffers.first, numLine, report)) {
                report.fault = {row - buffers.first, numLine, std::string(line), ""};
                return report;
            }
            ++row;
        }
        if (row < end) {
            const long wanted = std::max(row, buffers.first) - buffers.first;
            report.fault = {wanted, numLine + 1, "",
                            reader.Error() != 0
                                ? DataFile::Unreadable(reader.Error())
                                : "is missing: the file has changed since it was first read"};
        }
        return report;
    }

  private:
    bool Take(std::string_view line, long row, long numLine, RowReport& report) {
        double* const values = buffers.ValuesAt(row);
        double& label = buffers.LabelAt(row);
        LineHead head;
        if (!ParseRow(line, reader.Text(), rules.line, values, label, head)) return false;
        // The odd id may come after the last pair that is read.
        if (numLine == file.LineOfOddId()) return false;
        AddToRuns(head.queryId, numLine, report.runV);
        report.counts.Add(head, numLine);
        return PassesFiniteCheck(rules, label, values);
    }

    const DataFile& file;
    const RowRules& rules;
    RowBuffers& buffers;
    BlockReader reader;
};

// The block that contains row number `row`: the first with a row at or after it (binary search).
size_t BlockOf(const DataFile& file, long row) {
    size_t first = 0;
    for (size_t last = file.NumBlocks(); first < last;) {
        const size_t middle = (first + last) / 2;
        if (file.Before(middle + 1).numRows <= row) {
            first = middle + 1;
        } else {
            last = middle;
        }
    }
    return first;
}

// Joins the reports in block order, up to the first fault.
RowReport Join(std::vector<RowReport>& reportV) {
    RowReport all;
    for (RowReport& report : reportV) {
        all.runV.insert(all.runV.end(), std::make_move_iterator(report.runV.begin()),
                        std::make_move_iterator(report.runV.end()));
        all.counts.Add(report.counts);
        all.fault = std::move(report.fault);
        if (all.fault.row >= 0) break;
    }
    return all;
}

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

bool ParseRow(std::string_view line, std::string_view text, const LineRules& rules, double* values,
              double& label, LineHead& head) {
    return line.find('\0') == std::string_view::npos &&
           ParseSparseLine(line, text, rules, values, head) == 0 &&
           ParseNumberIn(text, head.label, label) && !head.fOddId && !head.fHidesRow;
}

// A value that is not finite has an exponent of all ones, so adding one carries into the sign bit.
// This form without branches lets compilers vectorise the loop.
bool PassesFiniteCheck(const RowRules& rules, double label, const double* values) {
    if (!rules.fFinite) return true;
    constexpr std::uint64_t kExponent = 0x7FF0000000000000;
    constexpr std::uint64_t kOneMore = 0x0010000000000000;
    std::uint64_t carries = 0;
    for (int i = 0; i < rules.line.dim; ++i) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, values + i, sizeof bits);
        carries |= (bits & kExponent) + kOneMore;
    }
    return std::isfinite(label) && carries >> 63 == 0;
}

void AddToRuns(std::string_view queryId, long line, std::vector<QueryRun>& runV) {
    if (runV.empty() || runV.back().queryId != queryId) {
        runV.push_back({std::string(queryId), 0, line, line});
    }
    ++runV.back().numRows;
    runV.back().lastLine = line;
}

RowReport ReadRows(const DataFile& file, const RowRules& rules, RowBuffers& buffers,
                   ReadingThreads& threads) {
    if (buffers.count == 0) return {};
    const size_t first = BlockOf(file, buffers.first);
    const size_t numBlocks = BlockOf(file, buffers.first + buffers.count - 1) + 1 - first;
    WorkerPool& pool = threads.For(numBlocks);
    std::vector<BlockParser> parserV;
    for (int worker = 0; worker < pool.NumWorkers(); ++worker) {
        parserV.emplace_back(file, rules, buffers);
    }
    std::vector<RowReport> reportV(numBlocks);
    std::atomic<int> firstBad{static_cast<int>(numBlocks)};
    pool.For(static_cast<int>(numBlocks), [&](int block, int worker) {
        // Blocks are handed out in order, so every block before a bad one is read in any case.
        if (block > firstBad.load()) return;
        const size_t at = static_cast<size_t>(block);
        reportV[at] = parserV[static_cast<size_t>(worker)].Parse(first + at);
        if (reportV[at].fault.row < 0) return;
        for (int bad = firstBad.load(); block < bad && !firstBad.compare_exchange_weak(bad, block);)
            continue;
    });
    return Join(reportV);
}

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
