// Reads the files of a run one after the other; see RunSets.h.
#include "RunSets.h"

#include <deque>
#include <string>

#include "EarlyRows.h"
#include "ReadingNotices.h"
#include "ReadingThreads.h"

namespace sylvora::frontend {

std::vector<RunSet> NameSets(const CheckCfgCLS& cfg) {
    std::vector<RunSet> setV;
    const auto add = [&setV](const char* parameter, const std::string& path, SetType type) {
        if (!path.empty()) setV.push_back({DataFile(parameter, path), type, {}});
    };
    add("fileTrain", cfg.fileTrain, kTraining);
    add("fileTest", cfg.fileTest, kTest);
    add("fileDev", cfg.fileDev, kDevelopment);
    return setV;
}

int ReadSets(std::vector<RunSet>& setV, const CheckCfgCLS& cfg) {
    ReadingThreads threads(AskedThreads(cfg));
    std::vector<DataFile*> fileV;
    std::deque<EarlyRows> earlyV;
    long numRows = 0;
    int dim = 0;
    const double absent = AbsentValue(cfg);
    const double memory = EarlyRows::MostMemory() / static_cast<double>(setV.size());
    for (RunSet& set : setV) {
        EarlyRows& early = earlyV.emplace_back(RowRules{RowsOf(dim, absent), true}, memory);
        if (set.file.Scan(threads, early) != 0) return -1;
        numRows += set.file.NumRows();
        fileV.push_back(&set.file);
        dim = WidestRow(fileV, 0);
    }
    // In units of rows: the column means, and one more double per value of the training rows for
    // tree growth.
    const long numExtra = 1 + setV.front().file.NumRows();
    if (CheckMemory(fileV, numRows, dim, numExtra) != 0) return -1;
    const SetRules rules = {{RowsOf(dim, absent), true}, cfg.modelType == "GBRank"};
    for (RunSet& set : setV) {
        if (ReadSet(set.file, rules, earlyV.front(), threads, set.data) != 0) return -1;
        earlyV.pop_front();
    }
    // One notice is enough, as the files of a run are usually written the same way.
    for (const RunSet& set : setV) {
        if (NoticeAbsent(cfg, set.file, dim, set.data.counts)) break;
    }
    return 0;
}

}  // namespace sylvora::frontend
