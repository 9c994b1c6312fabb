// Data sets as the learner takes them, read from data files.
#ifndef SYLVORA_FRONTEND_DATASET_H
#define SYLVORA_FRONTEND_DATASET_H

#include <string>
#include <unordered_map>
#include <vector>

#include "DataFile.h"
#include "Libdef.h"
#include "TreeLearner.h"

namespace sylvora::frontend {

// One entry per row; query ids only for rows that have one, so that the learner notices when some
// are missing.
struct DataSet {
    VecDle labelV;
    VecVecDle rowVV;
    VecInt queryIdV;
    long lineWithoutQuery = 0;  // of the first row that has none; 0: all have one
};

// Numbers the queries of one file 0, 1, 2, ... by their first appearance.
class QueryNumbers {
  public:
    // `fMustStandTogether`: a query whose rows are apart is an error.
    QueryNumbers(const DataFile& dataFile, bool fMustStandTogether)
        : file(dataFile), fTogether(fMustStandTogether) {}

    // Appends the number of the row's query, if it has one. Returns 0, or -1 after a message.
    [[nodiscard]] int Append(const DataRow& row, VecInt& queryIdV);

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

// Whether `numRows` rows of `dim` values can be held at all: an id that is a slip of the pen would
// otherwise take all memory. Returns 0, or -1 after a message that names the widest line.
[[nodiscard]] int CheckMemory(const std::vector<DataFile*>& fileV, long numRows, int dim);

// What the rows of a file must satisfy.
struct ReadRules {
    bool fTogether;  // the rows of a query stand together
    bool fFinite;    // labels and values are finite
};

// Reads all rows of a scanned file. Returns 0, or -1 after a message.
[[nodiscard]] int ReadSet(DataFile& file, int dim, const ReadRules& rules, DataSet& set);

// Moves the set into the learner, as training (0), test (1) or development data (2). Returns 0, or
// -1 after the learner's message and one that names the file.
[[nodiscard]] int HandOver(DataSet& set, const DataFile& file, int type, TreeLearner& learner);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_DATASET_H
