// Reads the files of a run as one of several ranks; see RankedSets.h. The order of the steps is
// that of one process, so that the first complaint is, too.
#include "RankedSets.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <string>
#include <utility>

#include "DataSet.h"
#include "EarlyRows.h"
#include "OwnColumns/Agreement.h"
#include "QueryExchange.h"
#include "ReadingNotices.h"
#include "ShareRows.h"

namespace sylvora::frontend {
namespace {

// Each step returns the complaint of a failure, the same at all ranks; empty: it succeeded.
class RankedReading {
  public:
    RankedReading(std::vector<RunSet>& runSetV, const CheckCfgCLS& settings,
                  ReadingThreads& readingThreads, Communicator& communicator)
        : setV(runSetV),
          cfg(settings),
          threads(readingThreads),
          peers(communicator),
          ranks(communicator, {}) {}

    // Returns 0, or -1 after a message.
    int Run(RankedSet& training);

  private:
    std::string ScanAll();
    std::string ScanShare(DataFile& file, EarlyRows& early);
    std::string CompareFiles(const DataFile& file);
    std::string CheckSize();
    std::string ReadTraining(RankedSet& training);
    std::string CheckRows(const RowReport& report, DataSet& set);
    std::string ReadOthers();
    void Notice();
    int Report(const std::string& complaint);
    SetRules Rules() const {
        return {{RowsOf(dim, AbsentValue(cfg)), true}, cfg.modelType == "GBRank"};
    }

    std::vector<RunSet>& setV;
    const CheckCfgCLS& cfg;
    ReadingThreads& threads;
    Communicator& peers;
    Ranks ranks;
    std::vector<DataFile*> fileV;
    std::deque<EarlyRows> earlyV;  // of the sets that are not read yet
    int dim = 0;
};

int RankedReading::Run(RankedSet& training) {
    std::string complaint = ScanAll();
    if (complaint.empty()) complaint = CheckSize();
    if (complaint.empty()) complaint = ReadTraining(training);
    if (complaint.empty()) complaint = ReadOthers();
    if (!complaint.empty()) return Report(complaint);
    Notice();
    return 0;
}

// The others wait until rank 0 has written the message: who runs the ranks may end all of them as
// soon as one has failed.
int RankedReading::Report(const std::string& complaint) {
    if (ranks.Rank() == 0) Warn(complaint);
    char fWritten = 1;
    ranks.Broadcast(&fWritten, 1, 0);
    return -1;
}

std::string RankedReading::ScanAll() {
    const double memory = EarlyRows::MostMemory() / static_cast<double>(setV.size());
    for (RunSet& set : setV) {
        std::string complaint;
        EarlyRows& early =
            earlyV.emplace_back(RowRules{RowsOf(dim, AbsentValue(cfg)), true}, memory);
        if (set.type == kTraining) {
            complaint = ScanShare(set.file, early);
        } else {
            complaint = ComplaintOfAny(ranks, [&] { return set.file.Scan(threads, early); });
        }
        if (!complaint.empty()) return complaint;
        fileV.push_back(&set.file);
        dim = WidestRow(fileV, 0);
    }
    return "";
}

std::string RankedReading::ScanShare(DataFile& file, EarlyRows& early) {
    std::string complaint = ComplaintOfAny(ranks, [&] { return file.Open(ranks.Size()); });
    if (complaint.empty()) complaint = CompareFiles(file);
    DataFile::Tally tally;
    if (complaint.empty()) {
        complaint = ComplaintOfAny(ranks, [&] {
            tally = file.ScanPart(threads, early, ranks.Rank(), ranks.Size());
            return 0;
        });
    }
    if (!complaint.empty()) return complaint;
    const std::vector<DataFile::Tally> tallyV = ranks.Gather(tally);
    return ComplaintOfAny(ranks, [&] { return file.Place(tallyV, ranks.Rank()); });
}

// Ranks on different machines may see different files.
std::string RankedReading::CompareFiles(const DataFile& file) {
    const std::vector<size_t> sizeV = ranks.Gather(file.NumBytes());
    const size_t mine = file.NumBytes();
    return ComplaintOfAny(ranks, [&] {
        if (mine == sizeV[0]) return 0;
        return file.Refuse(0, Text("has ", mine, " bytes here and ", sizeV[0],
                                   " at rank 0: all ranks must read the same file"));
    });
}

// As for one process, but a rank has only a part of the training rows, and needs for tree growth
// what its own columns have.
std::string RankedReading::CheckSize() {
    const long numRanks = ranks.Size();
    const long numTraining = setV.front().file.NumAllRows();
    const long numOwn = numTraining / numRanks + (numTraining % numRanks > 0 ? 1 : 0);
    long numAll = 0;
    for (const DataFile* file : fileV) numAll += file->NumAllRows();
    const bool fTooMany = numAll > std::numeric_limits<int>::max();
    const long numHere = fTooMany ? numAll : numAll - numTraining + setV.front().file.NumRows();
    return ComplaintOfAny(ranks, [&] { return CheckMemory(fileV, numHere, dim, 1 + numOwn); });
}

std::string RankedReading::ReadTraining(RankedSet& training) {
    RunSet& set = setV.front();
    RowReport report;
    std::string complaint = ComplaintOfAny(ranks, [&] {
        report = ReadPart(set.file, Rules().row, earlyV.front(), threads, set.data);
        return 0;
    });
    earlyV.pop_front();
    if (complaint.empty()) complaint = CheckRows(report, set.data);
    if (!complaint.empty()) return complaint;
    set.data.counts.numCells = 0;
    for (const long numCells : ranks.Gather(report.counts.numCells)) {
        set.data.counts.numCells += numCells;
    }
    training.queryIdV = std::move(set.data.queryIdV);
    training.lineWithoutQuery = set.data.lineWithoutQuery;
    if (set.file.NumAllRows() == 0 || dim == 0) return "";
    ShareRows rows(set.data);
    const RowTargets targets = {set.data.labelV.get(), nullptr, nullptr};
    training.columns = OwnColumns::Gather(rows, targets, peers, complaint);
    if (complaint.empty()) {
        training.ranks = std::make_unique<Ranks>(peers, training.columns->Owners());
    }
    set.data.rowVV.reset();
    set.data.labelV.reset();
    return complaint;
}

// Errors in the queries of the rows before a fault come first. What follows the first fault does
// not count.
std::string RankedReading::CheckRows(const RowReport& report, DataSet& set) {
    const DataFile& file = setV.front().file;
    const std::vector<char> fFaultV = ranks.Gather(static_cast<char>(report.fault.row >= 0));
    const auto first = std::find(fFaultV.begin(), fFaultV.end(), 1);
    const int faulty = static_cast<int>(first - fFaultV.begin());
    if (Rules().fTogether) {
        const int numRanks = std::min(faulty + 1, ranks.Size());
        std::string complaint = NumberAllQueries(ranks, numRanks, file, report.runV, set);
        if (!complaint.empty()) return complaint;
    }
    if (first == fFaultV.end()) return "";
    std::string complaint;
    if (ranks.Rank() == faulty) {
        complaint = ComplaintOf([&] { return Complain(file, Rules().row, report.fault); });
    }
    return BroadcastText(ranks, complaint, faulty);
}

std::string RankedReading::ReadOthers() {
    for (RunSet& set : setV) {
        if (set.type == kTraining) continue;
        std::string complaint = ComplaintOfAny(
            ranks, [&] { return ReadSet(set.file, Rules(), earlyV.front(), threads, set.data); });
        if (!complaint.empty()) return complaint;
        earlyV.pop_front();
    }
    return "";
}

void RankedReading::Notice() {
    for (const RunSet& set : setV) {
        if (ranks.Rank() != 0 || NoticeAbsent(cfg, set.file, dim, set.data.counts)) return;
    }
}

// Leaves out the notices about columns: they are about borrowed data, not about files.
int Lend(const RankedSet& training, TreeLearner& learner) {
    const OwnColumns& own = *training.columns;
    std::string errors, output;
    int status = -1;
    {
        const KeptMessages messages;
        const auto set = sylvora::DataSet::Make(own.Block());
        if (set != nullptr) {
            status = learner.DataBorrow(set, own.Labels().data(), own.NumRows(),
                                        training.queryIdV.data(),
                                        static_cast<int>(training.queryIdV.size()));
        }
        errors = messages.Errors();
        output = messages.Output();
    }
    Print(output);
    return status == 0 ? 0 : Fail(errors);
}

}  // namespace

int ReadSets(std::vector<RunSet>& setV, const CheckCfgCLS& cfg, ReadingThreads& threads,
             Communicator& peers, RankedSet& training) {
    return Collective(peers,
                      [&] { return RankedReading(setV, cfg, threads, peers).Run(training); });
}

int HandOver(const RankedSet& training, const DataFile& file, TreeLearner& learner) {
    const long numRows = file.NumAllRows();
    const bool fRanking = learner.CfgInfo.modelType == "GBRank";
    if (training.columns != nullptr && !(fRanking && training.lineWithoutQuery > 0)) {
        if (Lend(training, learner) == 0) return 0;
    } else {
        if (learner.CfgInfo.fPrint) Print("Transferring data to the model ...\n");
        Warn("ERROR: ", numRows == 0                  ? "No training data for tree models!\n"
                        : training.columns == nullptr ? "None features for training data!\n"
                                                      : "Size of qid does not match the data!\n");
    }
    DataSet refused;
    refused.dimFea =
        training.columns == nullptr ? 0 : static_cast<int>(training.columns->Owners().size());
    refused.lineWithoutQuery = training.lineWithoutQuery;
    return RefuseSet(refused, static_cast<size_t>(numRows), file, learner);
}

}  // namespace sylvora::frontend
