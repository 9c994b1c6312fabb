// Data sets as the learner takes them, read from data files.
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

// Labels and rows, one entry per row, in arrays that a learner can take over; query ids only for
// rows that have one, so that the learner notices when some are missing.
struct DataSet {
    // An empty set, or `numRows` rows without values yet.
    DataSet() = default;
    DataSet(size_t numRows, int dim);

    size_t NumRows() const { return rowVV.get_deleter().numRows; }

    int dimFea = 0;
    std::unique_ptr<double[], Releaser> labelV;
    std::unique_ptr<double*[], RowsReleaser> rowVV;
    VecInt queryIdV;
    long lineWithoutQuery = 0;  // of the first row that has none; 0: all have one
    RowCounts counts;
};

// Numbers the queries of one file 0, 1, 2, ... by their first appearance.
class QueryNumbers {
  public:
    // `fMustStandTogether`: a query whose rows are apart is an error.
    QueryNumbers(const DataFile& dataFile, bool fMustStandTogether)
        : file(dataFile), fTogether(fMustStandTogether) {}

    // Appends the number of the rows' query for each of them, if they have one. Returns 0, or -1
    // after a message.
    [[nodiscard]] int Append(const QueryRun& run, VecInt& queryIdV);

  private:
    struct Query {
        int number;
        long line;  // of its latest row
    };

    const DataFile& file;
    bool fTogether;
    int current = -1;
    std::unordered_map<std::string, Query> queryM;
};

// The largest feature id of all `fileV`, but at least `dimLeast`.
int WidestRow(const std::vector<DataFile*>& fileV, int dimLeast);

// Whether `numRows` rows of `dim` values, and as many more values as `numExtra` rows have, can be
// held at all: an id that is a slip of the pen would otherwise take all memory. Returns 0, or -1
// after a message that names the widest line, if it is what makes the rows so wide.
[[nodiscard]] int CheckMemory(const std::vector<DataFile*>& fileV, long numRows, int dim,
                              long numExtra = 0);

// What the rows of a set must satisfy.
struct SetRules {
    RowRules row;
    bool fTogether;  // the rows of a query stand together
};

// Reads all rows of a scanned file. Returns 0, or -1 after a message.
[[nodiscard]] int ReadSet(const DataFile& file, const SetRules& rules, ReadingThreads& threads,
                          DataSet& set);

// The same for a file whose rows were read while it was scanned; if they cannot be used, it is read
// once more.
[[nodiscard]] int ReadSet(const DataFile& file, const SetRules& rules, EarlyRows& early,
                          ReadingThreads& threads, DataSet& set);

// Moves the set into the learner, as training (0), test (1) or development data (2). Returns 0, or
// -1 after the learner's message and one that names the file.
[[nodiscard]] int HandOver(DataSet& set, const DataFile& file, int type, TreeLearner& learner);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_DATASET_H
