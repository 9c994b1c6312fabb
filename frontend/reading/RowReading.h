// The second pass over a data file: several threads parse rows into buffers of the caller. The line
// that is reported as wrong, and the message, do not depend on the number of threads.
#ifndef SYLVORA_FRONTEND_READING_ROWREADING_H
#define SYLVORA_FRONTEND_READING_ROWREADING_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "CheckIn.h"
#include "DataFile.h"
#include "ReadingThreads.h"
#include "god/DataLines.h"

namespace sylvora::frontend {

// The buffers for rows first to first + count - 1 of a file. Each row's buffer is requested once,
// by any thread; implementations must allow concurrent calls for different rows.
class RowBuffers {
  public:
    RowBuffers(long firstRow, long numRows) : first(firstRow), count(numRows) {}
    RowBuffers(const RowBuffers&) = delete;
    RowBuffers& operator=(const RowBuffers&) = delete;
    virtual ~RowBuffers() = default;

    // The buffers for the values and for the label of row first + `row` of the file.
    virtual double* ValuesAt(long row) = 0;
    virtual double& LabelAt(long row) = 0;

    const long first;
    const long count;
};

// What a row must satisfy.
struct RowRules {
    LineRules line;
    bool fFinite = false;  // the label and the values must be finite
};

// The value of an id that a line leaves out, according to the parameter `absent`.
inline double AbsentValue(const CheckCfgCLS& cfg) {
    return cfg.absent == "zero" ? 0.0 : kMissing;
}

// Rules for rows of `dim` values in which a larger id is an error.
inline LineRules RowsOf(int dim, double absent = kMissing) {
    return {dim, dim, false, absent};
}
// Rules for rows of `dim` values in which ids from dim + 1 to `largestId` are ignored.
inline LineRules FirstColumnsOf(int dim, int largestId, double absent) {
    return {dim, std::max(dim, largestId), true, absent};
}

// Consecutive rows of the same query.
struct QueryRun {
    std::string queryId;  // empty: none
    long numRows = 0;
    long firstLine = 0;  // the line of the first row, from 1
    long lastLine = 0;   // and of the last row
};

// Counts of the values in rows.
struct RowCounts {
    long numCells = 0;      // distinct (row, id) cells that lines give a value for
    long numLarger = 0;     // pairs ignored because their ids are larger than the row's width
    long lineOfLarger = 0;  // the first line with such a pair, from 1

    void Add(const LineHead& head, long line) {
        numCells += head.numCells;
        if (numLarger == 0 && head.numLarger > 0) lineOfLarger = line;
        numLarger += head.numLarger;
    }
    // Adds the counts of later rows, whose line numbers start after line `numLines`.
    void Add(const RowCounts& next, long numLines = 0) {
        numCells += next.numCells;
        if (numLarger == 0 && next.numLarger > 0) lineOfLarger = numLines + next.lineOfLarger;
        numLarger += next.numLarger;
    }
};

// The line at which reading stopped.
struct RowFault {
    long row = -1;          // relative to RowBuffers::first; -1: no fault
    long line = 0;          // from 1
    std::string text;       // the text of the line
    std::string complaint;  // set if the file is at fault, not the line
};

// The result of reading rows. The caller checks runV before it reports the fault, because errors in
// the queries of earlier rows come first. A row that fails only the finite check is in a run; a row
// with another fault is not.
struct RowReport {
    std::vector<QueryRun> runV;
    RowCounts counts;
    RowFault fault;
};

// Parses a line within `text`, like ParseSparseLine. False if the line is malformed, or if the
// library would misread it.
[[nodiscard]] bool ParseRow(std::string_view line, std::string_view text, const LineRules& rules,
                            double* values, double& label, LineHead& head);

// True if the row is finite, or if the rules do not require it. A row has rules.line.dim values.
bool PassesFiniteCheck(const RowRules& rules, double label, const double* values);

// Adds the next row to the last run, or starts a new one.
void AddToRuns(std::string_view queryId, long line, std::vector<QueryRun>& runV);

// Reads rows of a scanned file. Writes no messages.
RowReport ReadRows(const DataFile& file, const RowRules& rules, RowBuffers& buffers,
                   ReadingThreads& threads);

// Writes the message for a fault and returns -1.
int Complain(const DataFile& file, const RowRules& rules, const RowFault& fault);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_ROWREADING_H
