#include "DataSet.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "god/Report.h"

namespace sylvora::frontend {
namespace {

const DataFile& WidestFile(const std::vector<DataFile*>& fileV) {
    const auto narrower = [](const DataFile* a, const DataFile* b) {
        return a->LargestId() < b->LargestId();
    };
    return **std::max_element(fileV.begin(), fileV.end(), narrower);
}

// A model could not be read back with an infinite threshold or mean in it.
int CheckFinite(const DataFile& file, const DataRow& row) {
    const auto isInfinite = [](double value) { return !std::isfinite(value); };
    const auto infinite = std::find_if(row.valueV.begin(), row.valueV.end(), isInfinite);
    if (!isInfinite(row.label) && infinite == row.valueV.end()) return 0;
    const std::string what = isInfinite(row.label)
                                 ? "the label"
                                 : Text("the value of id ", infinite - row.valueV.begin() + 1);
    return file.Refuse(row.line, what + " is infinite; training wants numbers that a double holds");
}

}  // namespace

int QueryNumbers::Append(const DataRow& row, VecInt& queryIdV) {
    if (row.queryId.empty()) return 0;
    const int numQueries = static_cast<int>(queryM.size());
    Query& query = queryM.try_emplace(row.queryId, Query{numQueries, row.line}).first->second;
    const bool fNew = query.number == numQueries;
    if (fTogether && !fNew && query.number != current) {
        return file.Refuse(row.line, Text("query \"", row.queryId, "\" stood on line ", query.line,
                                          " and comes again; GBRank wants the rows of a query "
                                          "together"));
    }
    query.line = row.line;
    current = query.number;
    queryIdV.push_back(current);
    return 0;
}

int WidestRow(const std::vector<DataFile*>& fileV, int dimLeast) {
    return std::max(WidestFile(fileV).LargestId(), dimLeast);
}

int CheckMemory(const std::vector<DataFile*>& fileV, long numRows, int dim) {
    const DataFile& file = WidestFile(fileV);
    if (numRows > std::numeric_limits<int>::max()) {
        return file.Refuse(0, Text(numRows, " rows in all data files are more than ",
                                   std::numeric_limits<int>::max()));
    }
    constexpr double kGigabyte = 1e9;
    const double wanted = static_cast<double>(sizeof(double)) * static_cast<double>(numRows) * dim;
    const double present = static_cast<double>(::sysconf(_SC_PHYS_PAGES)) *
                           static_cast<double>(::sysconf(_SC_PAGE_SIZE));
    if (wanted <= present) return 0;
    return file.Refuse(file.LineOfLargestId(),
                       Text("with ids up to ", dim, " the ", numRows, " rows take ",
                            wanted / kGigabyte, " GB, the machine has ", present / kGigabyte));
}

int ReadSet(DataFile& file, int dim, const ReadRules& rules, DataSet& set) {
    QueryNumbers numbers(file, rules.fTogether);
    const size_t numRows = static_cast<size_t>(file.NumRows());
    set.labelV.reserve(numRows);
    set.rowVV.reserve(numRows);
    file.StartRows(dim);
    for (;;) {
        DataRow row;
        const DataFile::Status status = file.Next(row);
        if (status != DataFile::kRow) return status;
        if (numbers.Append(row, set.queryIdV) != 0) return -1;
        if (rules.fFinite && CheckFinite(file, row) != 0) return -1;
        if (row.queryId.empty() && set.lineWithoutQuery == 0) set.lineWithoutQuery = row.line;
        set.labelV.push_back(row.label);
        set.rowVV.push_back(std::move(row.valueV));
    }
}

int HandOver(DataSet& set, const DataFile& file, int type, TreeLearner& learner) {
    const size_t numRows = set.labelV.size();
    const size_t dim = set.rowVV.empty() ? 0 : set.rowVV.front().size();
    if (learner.DataInput(std::move(set.labelV), std::move(set.rowVV), type,
                          std::move(set.queryIdV), {}) == 0) {
        return 0;
    }
    if (learner.CfgInfo.modelType == "GBRank" && set.lineWithoutQuery > 0) {
        return file.Refuse(set.lineWithoutQuery,
                           "has no query id (qid:...), GBRank wants one in every row");
    }
    return file.Refuse(0, Text("cannot be used: ", numRows, " rows of ", dim, " columns"));
}

}  // namespace sylvora::frontend
