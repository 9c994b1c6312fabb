// Turns scanned files into data sets: numbers queries, checks memory, hands sets to the learner.
#include "DataSet.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "EarlyRows.h"
#include "god/Report.h"
#include "god/UsableMemory.h"

namespace sylvora::frontend {
namespace {

template <typename Element>
Element* Allocate(size_t count) {
    void* const allocated = std::calloc(std::max(count, size_t{1}), sizeof(Element));
    if (allocated == nullptr) throw std::bad_alloc();
    return static_cast<Element*>(allocated);
}

const DataFile& WidestFile(const std::vector<DataFile*>& fileV) {
    const auto narrower = [](const DataFile* a, const DataFile* b) {
        return a->LargestId() < b->LargestId();
    };
    return **std::max_element(fileV.begin(), fileV.end(), narrower);
}

// Allocates each row of a set in the thread that reads it.
class SetBuffers : public RowBuffers {
  public:
    explicit SetBuffers(DataSet& dataSet)
        : RowBuffers(0, static_cast<long>(dataSet.NumRows())), set(dataSet) {}

    double* ValuesAt(long row) override {
        return set.rowVV[static_cast<size_t>(row)] =
                   Allocate<double>(static_cast<size_t>(set.dimFea));
    }
    double& LabelAt(long row) override { return set.labelV[static_cast<size_t>(row)]; }

  private:
    DataSet& set;
};

RowReport ReadPart(const DataFile& file, const RowRules& rules, ReadingThreads& threads,
                   DataSet& set) {
    set = DataSet(static_cast<size_t>(file.NumRows()), rules.line.dim);
    SetBuffers buffers(set);
    RowReport report = ReadRows(file, rules, buffers, threads);
    set.counts = report.counts;
    return report;
}

// Numbers the queries of the rows that were read, whose errors come first, and reports the fault.
int Finish(const DataFile& file, const SetRules& rules, const RowReport& report, DataSet& set) {
    QueryNumbers numbers(file, rules.fTogether);
    if (NumberQueries(numbers, report.runV, set) != 0) return -1;
    return report.fault.row < 0 ? 0 : Complain(file, rules.row, report.fault);
}

}  // namespace

DataSet::DataSet(size_t numRows, int dim)
    : dimFea(dim),
      labelV(Allocate<double>(numRows)),
      rowVV(Allocate<double*>(numRows), {numRows}) {}

int QueryNumbers::Append(const QueryRun& run, VecInt& queryIdV) {
    if (run.queryId.empty()) return 0;
    const int numQueries = static_cast<int>(queryM.size());
    Query& query = queryM.try_emplace(run.queryId, Query{numQueries, run.firstLine}).first->second;
    const bool fNew = query.number == numQueries;
    if (fTogether && !fNew && query.number != current) {
        return file.Refuse(run.firstLine,
                           Text("query \"", run.queryId, "\" already ended on line ", query.line,
                                "; GBRank needs the rows of a query together"));
    }
    query.line = run.lastLine;
    current = query.number;
    queryIdV.insert(queryIdV.end(), static_cast<size_t>(run.numRows), current);
    return 0;
}

int WidestRow(const std::vector<DataFile*>& fileV, int dimLeast) {
    return std::max(WidestFile(fileV).LargestId(), dimLeast);
}

int CheckMemory(const std::vector<DataFile*>& fileV, long numRows, int dim, long numExtra) {
    const DataFile& file = WidestFile(fileV);
    if (numRows > std::numeric_limits<int>::max()) {
        return file.Refuse(0, Text(numRows, " rows in all data files are more than ",
                                   std::numeric_limits<int>::max()));
    }
    constexpr double kGigabyte = 1e9;
    const double wanted =
        static_cast<double>(sizeof(double)) * static_cast<double>(numRows + numExtra) * dim;
    const double present = UsableMemory();
    if (wanted <= present) return 0;
    return file.Refuse(dim == file.LargestId() ? file.LineOfLargestId() : 0,
                       Text("with ids up to ", dim, " the ", numRows, " rows",
                            numExtra > 0 ? " and the work on them" : "", " need ",
                            wanted / kGigabyte, " GB, available are ", present / kGigabyte));
}

int NumberQueries(QueryNumbers& numbers, const std::vector<QueryRun>& runV, DataSet& set) {
    for (const QueryRun& run : runV) {
        if (numbers.Append(run, set.queryIdV) != 0) return -1;
        if (run.queryId.empty() && set.lineWithoutQuery == 0) set.lineWithoutQuery = run.firstLine;
    }
    return 0;
}

RowReport ReadPart(const DataFile& file, const RowRules& rules, EarlyRows& early,
                   ReadingThreads& threads, DataSet& set) {
    if (!early.Satisfies(rules.line)) {
        early.Drop();
        return ReadPart(file, rules, threads, set);
    }
    RowReport report;
    report.runV = early.MoveTo(set, rules.line.dim, threads);
    const long numLinesBefore = file.Before(0).numLines;
    for (QueryRun& run : report.runV) {
        run.firstLine += numLinesBefore;
        run.lastLine += numLinesBefore;
    }
    RowCounts counts;
    counts.Add(set.counts, numLinesBefore);
    report.counts = set.counts = counts;
    return report;
}

int ReadSet(const DataFile& file, const SetRules& rules, ReadingThreads& threads, DataSet& set) {
    return Finish(file, rules, ReadPart(file, rules.row, threads, set), set);
}

int ReadSet(const DataFile& file, const SetRules& rules, EarlyRows& early, ReadingThreads& threads,
            DataSet& set) {
    return Finish(file, rules, ReadPart(file, rules.row, early, threads, set), set);
}

int HandOver(DataSet& set, const DataFile& file, int type, TreeLearner& learner) {
    const size_t numRows = set.NumRows();
    if (learner.DataAdopt(set.labelV.release(), set.rowVV.release(), static_cast<int>(numRows),
                          set.dimFea, std::move(set.queryIdV), type) == 0) {
        return 0;
    }
    return RefuseSet(set, numRows, file, learner);
}

int RefuseSet(const DataSet& set, size_t numRows, const DataFile& file,
              const TreeLearner& learner) {
    if (learner.CfgInfo.modelType == "GBRank" && set.lineWithoutQuery > 0) {
        return file.Refuse(set.lineWithoutQuery,
                           "has no query id (qid:...); GBRank needs one in every row");
    }
    return file.Refuse(0, Text("cannot be used: ", numRows, " rows of ",
                               numRows > 0 ? set.dimFea : 0, " columns"));
}

}  // namespace sylvora::frontend
