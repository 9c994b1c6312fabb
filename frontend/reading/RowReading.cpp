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
    "has another row behind a carriage return: lines end with LF or CR LF, not with CR alone";

// Parses the wanted rows of one block after another.
class BlockParser {
  public:
    BlockParser(const DataFile& dataFile, const RowRules& rowRules, RowPlaces& rowPlaces)
        : file(dataFile), rules(rowRules), places(rowPlaces) {}

    RowReport Parse(size_t block) {
        RowReport report;
        const DataFile::Tally& before = file.Before(block);
        const long end = std::min(places.first + places.count, file.Before(block + 1).numRows);
        long numLine = before.numLines;
        long row = before.numRows;
        reader.Begin(file.Descriptor(), file.BlockBytes(), block);
        for (std::string_view line; row < end && reader.Next(line);) {
            ++numLine;
            if (IsBlank(line)) continue;
            if (row >= places.first && !Take(line, row - places.first, numLine, report)) {
                report.fault = {row - places.first, numLine, std::string(line), ""};
                return report;
            }
            ++row;
        }
        if (row < end) {
            const long wanted = std::max(row, places.first) - places.first;
            report.fault = {wanted, numLine + 1, "",
                            reader.Error() != 0 ? DataFile::Unreadable(reader.Error())
                                                : "has gone since the file was first read"};
        }
        return report;
    }

  private:
    bool Take(std::string_view line, long row, long numLine, RowReport& report) {
        double* const values = places.ValuesAt(row);
        double& label = places.LabelAt(row);
        LineHead head;
        if (!ParseRow(line, reader.Text(), rules.line, values, label, head)) return false;
        // The odd id may stand behind all pairs that are read.
        if (numLine == file.LineOfOddId()) return false;
        AddToRuns(head.queryId, numLine, report.runV);
        report.counts.Add(head, numLine);
        return IsFiniteAsWanted(rules, label, values);
    }

    const DataFile& file;
    const RowRules& rules;
    RowPlaces& places;
    BlockReader reader;
};

// The first block that has rows from number `row` on.
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

// The reports in the order of the blocks, up to the first fault.
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

// What is wrong with a line that the library reads, and without any complaint.
std::string ComplaintOf(const RowFault& fault, const LineHead& head, const VecDle& valueV) {
    double valLabel = 0.0;
    if (!ParseNumber(head.label, valLabel)) {
        return "the label \"" + std::string(head.label) + "\" is no number";
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
    return what + " is infinite; training wants numbers that a double holds";
}

}  // namespace

bool ParseRow(std::string_view line, std::string_view text, const LineRules& rules, double* values,
              double& label, LineHead& head) {
    return line.find('\0') == std::string_view::npos &&
           ParseSparseLine(line, text, rules, values, head) == 0 &&
           ParseNumberIn(text, head.label, label) && !head.fOddId && !head.fHidesRow;
}

// The exponent of what is not finite is all ones: one more carries into the sign. Compilers take
// several values at a time this way.
bool IsFiniteAsWanted(const RowRules& rules, double label, const double* values) {
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

RowReport ReadRows(const DataFile& file, const RowRules& rules, RowPlaces& places,
                   ReadingThreads& threads) {
    if (places.count == 0) return {};
    const size_t first = BlockOf(file, places.first);
    const size_t numBlocks = BlockOf(file, places.first + places.count - 1) + 1 - first;
    WorkerPool& pool = threads.For(numBlocks);
    std::vector<BlockParser> parserV;
    for (int worker = 0; worker < pool.NumWorkers(); ++worker) {
        parserV.emplace_back(file, rules, places);
    }
    std::vector<RowReport> reportV(numBlocks);
    std::atomic<int> firstBad{static_cast<int>(numBlocks)};
    pool.For(static_cast<int>(numBlocks), [&](int block, int worker) {
        // Blocks are handed out in order, so all before a bad one are read whatever happens.
        if (block > firstBad.load()) return;
        const size_t at = static_cast<size_t>(block);
        reportV[at] = parserV[static_cast<size_t>(worker)].Parse(first + at);
        if (reportV[at].fault.row < 0) return;
        for (int bad = firstBad.load(); block < bad && !firstBad.compare_exchange_weak(bad, block);)
            continue;
    });
    return Join(reportV);
}

// The library's complaints come first. Odd ids were not counted when the rows' width was settled:
// the range of ids says nothing about them.
int Complain(const DataFile& file, const RowRules& rules, const RowFault& fault) {
    if (!fault.complaint.empty()) return file.Refuse(fault.line, fault.complaint);
    if (fault.text.find('\0') != std::string::npos) {
        return file.Refuse(fault.line, "holds a zero byte, a line of text is wanted");
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
        return file.Refuse(fault.line, Text("wanted: label [qid:query] id:value ..., with ids from "
                                            "1 to ",
                                            asRead.mostPairs));
    }
    return file.Refuse(fault.line, ComplaintOf(fault, head, valueV));
}

}  // namespace sylvora::frontend
