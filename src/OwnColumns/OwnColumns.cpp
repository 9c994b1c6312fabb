// Gathers the columns of a rank, step by step; see OwnColumns.h. Before a step that exchanges
// anything, all ranks agree that all of them will take it.
#include "../OwnColumns.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <optional>
#include <string>

#include "Agreement.h"
#include "BlockSource.h"
#include "CellExchange.h"
#include "ColumnDealing.h"
#include "ColumnSurvey.h"
#include "RowSource.h"
#include "base/BlockReader.h"

namespace sylvora {
namespace {

constexpr int kMostRows = INT_MAX - 8;
constexpr size_t kGatheredBytes = size_t{1} << 22;  // from all ranks at once
constexpr size_t kAlignment = 64;

// What the ranks tell each other about their shares.
struct ShareFacts {
    std::int64_t numRows, numColumns;
    bool fHasV[3];  // labels, queries, weights
};

size_t Aligned(size_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

// Why the shares do not fit together; the same at all ranks.
std::string ComplaintOf(const std::vector<ShareFacts>& factsV) {
    const char* const names[] = {"labels", "query ids", "weights"};
    size_t first = factsV.size();  // the first rank with rows
    std::int64_t numAll = 0;
    for (size_t r = 0; r < factsV.size(); ++r) {
        if (factsV[r].numRows == 0) continue;
        first = std::min(first, r);
        numAll += factsV[r].numRows;
        if (factsV[r].numColumns != factsV[first].numColumns) {
            return Text("ERROR: The data block of rank ", r, " has ", factsV[r].numColumns,
                        " columns, that of rank ", first, " has ", factsV[first].numColumns, "!\n");
        }
        for (int i = 0; i < 3; ++i) {
            if (factsV[r].fHasV[i] == factsV[first].fHasV[i]) continue;
            const size_t without = factsV[r].fHasV[i] ? first : r;
            return Text("ERROR: Rank ", without, " gives no ", names[i], ", rank ",
                        r + first - without, " does!\n");
        }
    }
    if (numAll == 0) return "ERROR: The data block has no rows!\n";
    if (factsV[first].numColumns == 0) return "ERROR: The data block has no columns!\n";
    if (numAll <= kMostRows) return "";
    return Text("ERROR: The data block has ", numAll, " rows, more than ", kMostRows, "!\n");
}

// Collective: sets allV to the values of all rows. It has one element per row already, unless there
// are no values at all.
template <typename Value>
void GatherRows(Ranks& ranks, const std::vector<int>& numRowsV, const Value* mine,
                std::vector<Value>& allV) {
    if (allV.empty()) return;
    const size_t numRanks = numRowsV.size();
    const int mostRows = *std::max_element(numRowsV.begin(), numRowsV.end());
    const size_t wanted = std::max(kGatheredBytes / sizeof(Value) / numRanks, size_t{1});
    const int numAtOnce = static_cast<int>(std::min(wanted, static_cast<size_t>(mostRows)));
    const auto rowsAt = [&](size_t rank, int begin) {
        return std::min(numAtOnce, std::max(numRowsV[rank] - begin, 0));
    };
    std::vector<Value> sentV(static_cast<size_t>(numAtOnce));
    for (int begin = 0; begin < mostRows; begin += std::min(numAtOnce, mostRows - begin)) {
        const int count = rowsAt(static_cast<size_t>(ranks.Rank()), begin);
        if (count > 0) std::copy_n(mine + begin, count, sentV.begin());
        const std::vector<Value> gotV = ranks.GatherEach(sentV);
        size_t first = 0;
        for (size_t r = 0; r < numRanks; ++r) {
            const Value* const got = gotV.data() + r * sentV.size();
            const int numGot = rowsAt(r, begin);
            if (numGot > 0) {
                std::copy_n(got, numGot, allV.data() + first + static_cast<size_t>(begin));
            }
            first += static_cast<size_t>(numRowsV[r]);
        }
    }
}

}  // namespace

// The steps of a call, and what they have in common.
class OwnColumns::Gathering {
  public:
    Gathering(RowSource& source, const RowTargets& rowTargets, Communicator& communicator)
        : share(source), targets(rowTargets), peers(communicator), ranks(communicator, {}) {}

    // Returns the complaint of a failure; empty: it succeeded. So do the steps.
    std::string Run(OwnColumns& all);

  private:
    std::string Compare();
    std::string Survey();
    std::string Allocate(OwnColumns& all);

    RowSource& share;
    const RowTargets& targets;
    Communicator& peers;
    Ranks ranks;
    CellPlan plan;
    size_t numRows = 0;  // of all ranks
    bool fHasV[3] = {};  // the rows have labels, queries, weights
    std::vector<char*> storedV;
    std::optional<CellExchange> exchange;
};

std::string OwnColumns::Gathering::Run(OwnColumns& all) {
    std::string complaint = Compare();
    if (complaint.empty()) complaint = Survey();
    if (complaint.empty()) complaint = Allocate(all);
    if (!complaint.empty()) return complaint;
    exchange->Run(peers, storedV);
    GatherRows(ranks, plan.numRowsV, targets.labels, all.labelV);
    GatherRows(ranks, plan.numRowsV, targets.queries, all.queryV);
    GatherRows(ranks, plan.numRowsV, targets.weights, all.weightV);
    return "";
}

std::string OwnColumns::Gathering::Compare() {
    const ShareFacts mine = {
        share.NumRows(),
        share.NumColumns(),
        {targets.labels != nullptr, targets.queries != nullptr, targets.weights != nullptr}};
    const std::vector<ShareFacts> factsV = ranks.Gather(mine);
    std::string complaint = ComplaintOf(factsV);
    if (!complaint.empty()) return complaint;
    for (const ShareFacts& facts : factsV) {
        plan.numRowsV.push_back(static_cast<int>(facts.numRows));
        numRows += static_cast<size_t>(facts.numRows);
        if (facts.numRows == 0) continue;
        plan.ownerV.resize(static_cast<size_t>(facts.numColumns));
        std::copy_n(facts.fHasV, 3, fHasV);
    }
    return "";
}

// A rank without rows takes part with an empty survey of as many columns as the others have.
std::string OwnColumns::Gathering::Survey() {
    const int numColumns = static_cast<int>(plan.ownerV.size());
    const auto mine = plan.numRowsV.begin() + ranks.Rank();
    const std::int64_t first = std::accumulate(plan.numRowsV.begin(), mine, std::int64_t{0});
    std::optional<ColumnSurvey> survey;
    std::string complaint = ComplaintOfAny(ranks, [&] {
        survey.emplace(share, numColumns, first, static_cast<std::int64_t>(numRows));
        return 0;
    });
    if (complaint.empty()) complaint = survey->Complaint(ranks);
    if (!complaint.empty()) return complaint;
    survey->Join(ranks);
    plan.ownerV = DealColumns(survey->Costs(), ranks.Size());
    for (int c = 0; c < numColumns; ++c) plan.fWideV.push_back(survey->IsWide(c));
    return "";
}

// Pages take memory when they are written; those of the zeros never are. Small pages, because each
// column is written from several rows on, while the rows that it comes from are freed.
std::string OwnColumns::Gathering::Allocate(OwnColumns& all) {
    return ComplaintOfAny(ranks, [&] {
        const int numColumns = static_cast<int>(plan.ownerV.size());
        std::vector<size_t> offsetV;
        size_t numBytes = 0;
        for (int c = 0; c < numColumns; ++c) {
            offsetV.push_back(numBytes);
            if (plan.ownerV[static_cast<size_t>(c)] != ranks.Rank()) continue;
            numBytes += Aligned(numRows * plan.SizeOf(c));
        }
        const size_t zeros = numBytes;
        numBytes += Aligned(numRows);
        all.numRows = static_cast<int>(numRows);
        all.ownerV = plan.ownerV;
        all.memory = std::calloc(numBytes, 1);
        if (all.memory == nullptr) throw std::bad_alloc();
        char* const first = static_cast<char*>(all.memory);
        for (int c = 0; c < numColumns; ++c) {
            const bool fOwn = plan.ownerV[static_cast<size_t>(c)] == ranks.Rank();
            storedV.push_back(first + (fOwn ? offsetV[static_cast<size_t>(c)] : zeros));
            DataColumn column;
            column.values = storedV.back();
            column.type = !fOwn                             ? ValueType::kUInt8
                          : plan.SizeOf(c) == sizeof(float) ? ValueType::kFloat32
                                                            : ValueType::kFloat64;
            all.columnV.push_back(column);
        }
        all.labelV.resize(fHasV[0] ? numRows : 0);
        all.queryV.resize(fHasV[1] ? numRows : 0);
        all.weightV.resize(fHasV[2] ? numRows : 0);
        exchange.emplace(plan, share, ranks.Rank());
        return 0;
    });
}

std::unique_ptr<OwnColumns> OwnColumns::Gather(RowSource& share, const RowTargets& targets,
                                               Communicator& communicator, std::string& complaint) {
    std::unique_ptr<OwnColumns> all(new OwnColumns());
    complaint = Gathering(share, targets, communicator).Run(*all);
    return complaint.empty() ? std::move(all) : nullptr;
}

std::unique_ptr<OwnColumns> OwnColumns::Gather(const DataBlock& share, const RowTargets& targets,
                                               Communicator& communicator) {
    std::unique_ptr<OwnColumns> all;
    const int status = Collective(communicator, [&] {
        Ranks ranks(communicator, {});
        std::optional<BlockSource> source;
        std::string complaint = ComplaintOfAny(ranks, [&] {
            const std::string fault = FaultOf(share);
            if (!fault.empty()) return Fail("ERROR: The data block ", fault, "!\n");
            source.emplace(share);
            return 0;
        });
        if (complaint.empty()) all = Gather(*source, targets, communicator, complaint);
        return complaint.empty() ? 0 : Fail(complaint);
    });
    return status == 0 ? std::move(all) : nullptr;
}

OwnColumns::~OwnColumns() {
    std::free(memory);
}

DataBlock OwnColumns::Block() const {
    DataBlock block;
    block.layout = DataBlock::Layout::kColumns;
    block.numRows = numRows;
    block.numColumns = static_cast<std::int64_t>(columnV.size());
    block.columns = columnV.data();
    return block;
}

}  // namespace sylvora
