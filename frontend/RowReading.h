// The second pass over a data file: rows into their places, parsed by several threads. Which line
// is complained about, and in what words, does not depend on them.
#ifndef SYLVORA_FRONTEND_ROWREADING_H
#define SYLVORA_FRONTEND_ROWREADING_H

#include <string>
#include <string_view>
#include <vector>

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
    int dim = 0;           // no id is larger; so many values a row gets
    bool fFinite = false;  // its label and its values are finite
};

// Rows that follow each other and have the same query.
struct QueryRun {
    std::string queryId;  // empty: none
    long numRows = 0;
    long firstLine = 0;  // of the first and of the last row, from 1
    long lastLine = 0;
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
    RowFault fault;
};

// Parses a line in a text, as ParseSparseLine does, into room for `dim` values. False where it is
// no row.
[[nodiscard]] bool ParseRow(std::string_view line, std::string_view text, int dim, double* values,
                            double& label, LineHead& head);

// Whether a row of rules.dim values is as finite as it must be.
bool IsFiniteAsWanted(const RowRules& rules, double label, const double* values);

// Puts a row, the next, into its run.
void AddToRuns(std::string_view queryId, long line, std::vector<QueryRun>& runV);

// Reads rows of a scanned file, silently.
RowReport ReadRows(const DataFile& file, const RowRules& rules, RowPlaces& places,
                   ReadingThreads& threads);

// Says what is wrong with the line; -1.
int Complain(const DataFile& file, const RowRules& rules, const RowFault& fault);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_ROWREADING_H
