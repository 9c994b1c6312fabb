// Parses the blocks of a file in parallel.
#include "RowReading.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

#include "Libdef.h"
#include "TextBlocks.h"
#include "god.h"
#include "god/DataLines.h"
#include "god/NumberParsing.h"

namespace sylvora::frontend {
namespace {

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
        file.BeginBlock(reader, block);
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

}  // namespace sylvora::frontend
