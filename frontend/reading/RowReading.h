// The second pass over a data file: rows into their places, parsed by several threads. Which line
// is complained about, and in what words, does not depend on them.
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

// Where the rows from number `first` on go, `count` of them. Each is asked for once, by any thread.
class RowPlaces {
  public:
    RowPlaces(long firstRow, long numRows) : first(firstRow), count(numRows) {}
    RowPlaces(const RowPlaces&) = delete;
    RowPlaces& operator=(const RowPlaces&) = delete;
    virtual ~RowPlaces() = default;

    // Room for the values, and for the label, of the row that is number first + `row`.
    virtual double* ValuesAt(long row) = 0;
    virtual double& LabelAt(long row) = 0;

    const long first;
    const long count;
};

// What a row must satisfy.
struct RowRules {
    LineRules line;
    bool fFinite = false;  // its label and its values are finite
};

// The value of an id that a line leaves out, as the parameter `absent` says.
inline double AbsentValue(const CheckCfgCLS& cfg) {
    return cfg.absent == "zero" ? 0.0 : kMissing;
}

// For rows of `dim` values whose ids are no larger.
inline LineRules RowsOf(int dim, double absent = kMissing) {
    return {dim, dim, false, absent};
}
// For rows of `dim` values of a file whose ids may be larger, up to `largestId`.
inline LineRules FirstColumnsOf(int dim, int largestId, double absent) {
    return {dim, std::max(dim, largestId), true, absent};
}

// Rows that follow each other and have the same query.
struct QueryRun {
    std::string queryId;  // empty: none
    long numRows = 0;
    long firstLine = 0;  // of the first and of the last row, from 1
    long lastLine = 0;
};

// What rows were made of.
struct RowCounts {
    long numCells = 0;      // values that a line gives, not more than one of an id
    long numLarger = 0;     // pairs that were ignored, since their ids are above the width of a row
    long lineOfLarger = 0;  // the first with one, from 1

    void Add(const LineHead& head, long line) {
        numCells += head.numCells;
        if (numLarger == 0 && head.numLarger > 0) lineOfLarger = line;
        numLarger += head.numLarger;
    }
    // `next`, of later rows, counts its lines from the one behind `numLines`.
    void Add(const RowCounts& next, long numLines = 0) {
        numCells += next.numCells;
        if (numLarger == 0 && next.numLarger > 0) lineOfLarger = numLines + next.lineOfLarger;
        numLarger += next.numLarger;
    }
};

// The line that ended the reading.
struct RowFault {
    long row = -1;  // which one it is of those that were asked for; -1: there is no fault
    long line = 0;
    std::string text;       // of the line
    std::string complaint;  // where it is not the line that is wrong
};

// What is left to be looked at in the order of the file: complaints about the queries of earlier
// rows come before the fault. A row that is not finite is in a run, other faults are not.
struct RowReport {
    std::vector<QueryRun> runV;
    RowCounts counts;
    RowFault fault;
};

// Parses a line in a text, as ParseSparseLine does. False where it is no row, or where it is read
// as something else than it says.
[[nodiscard]] bool ParseRow(std::string_view line, std::string_view text, const LineRules& rules,
                            double* values, double& label, LineHead& head);

// Whether a row of rules.line.dim values is as finite as it must be.
bool IsFiniteAsWanted(const RowRules& rules, double label, const double* values);

// Puts a row, the next, into its run.
void AddToRuns(std::string_view queryId, long line, std::vector<QueryRun>& runV);

// Reads rows of a scanned file, silently.
RowReport ReadRows(const DataFile& file, const RowRules& rules, RowPlaces& places,
                   ReadingThreads& threads);

// Says what is wrong with the line; -1.
int Complain(const DataFile& file, const RowRules& rules, const RowFault& fault);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_ROWREADING_H
