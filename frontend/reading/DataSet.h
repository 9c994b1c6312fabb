// Data sets read from data files, in the form that the learner takes over.
#ifndef SYLVORA_FRONTEND_READING_DATASET_H
#define SYLVORA_FRONTEND_READING_DATASET_H

#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "DataFile.h"
#include "Libdef.h"
#include "RowReading.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

class EarlyRows;

struct Releaser {
    void operator()(void* allocated) const { std::free(allocated); }
};
struct RowsReleaser {
    size_t numRows = 0;
    void operator()(double** rows) const {
        for (size_t i = 0; i < numRows; ++i) std::free(rows[i]);
        std::free(rows);
    }
};

// Labels and rows, one entry per row, allocated with malloc so that a learner can take ownership.
// queryIdV has entries only for rows with a query, so that the learner notices missing ones.
struct DataSet {
    // An empty set, or a set of `numRows` rows whose values are not allocated yet.
    DataSet() = default;
    DataSet(size_t numRows, int dim);

    size_t NumRows() const { return rowVV.get_deleter().numRows; }

    int dimFea = 0;
    std::unique_ptr<double[], Releaser> labelV;
    std::unique_ptr<double*[], RowsReleaser> rowVV;
    VecInt queryIdV;
    long lineWithoutQuery = 0;  // the line of the first row without a query; 0: every row has one
    RowCounts counts;
};

// Numbers the queries of one file 0, 1, 2, ... in order of first appearance.
class QueryNumbers {
  public:
    // With `fMustStandTogether` it is an error if rows of one query are not contiguous.
    QueryNumbers(const DataFile& dataFile, bool fMustStandTogether)
        : file(dataFile), fTogether(fMustStandTogether) {}

    // Appends the query's number once for each row of the run; nothing for rows without a query.
    // Returns 0, or -1 after a message.
    [[nodiscard]] int Append(const QueryRun& run, VecInt& queryIdV);

  private:
    struct Query {
        int number;
        long line;  // the line of its latest row
    };

    const DataFile& file;
    bool fTogether;
    int current = -1;  // the query of the last run; -1: none yet
    std::unordered_map<std::string, Query> queryM;
};

// The largest feature id in any of the files, but at least `dimLeast`.
int WidestRow(const std::vector<DataFile*>& fileV, int dimLeast);

// Checks that `numRows` + `numExtra` rows of `dim` doubles fit into memory: a mistyped id would
// otherwise use all of it. Returns 0, or -1 after a message, which names the line with the largest
// id if that id determines `dim`.
[[nodiscard]] int CheckMemory(const std::vector<DataFile*>& fileV, long numRows, int dim,
                              long numExtra = 0);

// What every row of a set must satisfy.
struct SetRules {
    RowRules row;
    bool fTogether;  // the rows of a query must be contiguous
};

// Numbers the queries of all rows of the runs. Returns 0, or -1 after a message.
[[nodiscard]] int NumberQueries(QueryNumbers& numbers, const std::vector<QueryRun>& runV,
                                DataSet& set);

// The rows of a file, or of a reader's part of it, scanned with `early`; if its rows do not satisfy
// the rules, it frees them and reads the file again. Numbers no queries and writes no messages.
RowReport ReadPart(const DataFile& file, const RowRules& rules, EarlyRows& early,
                   ReadingThreads& threads, DataSet& set);

// The second pass: reads all rows of a scanned file. Returns 0, or -1 after a message.
[[nodiscard]] int ReadSet(const DataFile& file, const SetRules& rules, ReadingThreads& threads,
                          DataSet& set);

// The same for a file that was scanned with `early`: uses its rows if they satisfy the rules, else
// frees them and makes the second pass.
[[nodiscard]] int ReadSet(const DataFile& file, const SetRules& rules, EarlyRows& early,
                          ReadingThreads& threads, DataSet& set);

// Moves the set into the learner as training (0), test (1) or development data (2). Returns 0, or
// -1 after the learner's message and a second one that names the file.
[[nodiscard]] int HandOver(DataSet& set, const DataFile& file, int type, TreeLearner& learner);

// Writes the second message for a set that had `numRows` rows, and returns -1.
[[nodiscard]] int RefuseSet(const DataSet& set, size_t numRows, const DataFile& file,
                            const TreeLearner& learner);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_DATASET_H
