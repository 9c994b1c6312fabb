// The job "read": reads a data file into rows as the command does.
#include <sys/stat.h>

#include "Jobs.h"
#include "frontend/reading/DataFile.h"
#include "frontend/reading/DataSet.h"
#include "frontend/reading/EarlyRows.h"

namespace sylvora::bench {

void ReadLines(const Job& job) {
    const std::string path = job.Text("text");
    const StopWatch watch;
    frontend::ReadingThreads threads(job.Number("threads"));
    frontend::DataFile file("text", path);
    frontend::EarlyRows early({frontend::RowsOf(0), true});
    Require(file.Scan(threads, early), "Scan");
    const int dim = frontend::WidestRow({&file}, 0);
    const frontend::SetRules rules = {{frontend::RowsOf(dim), true}, false};
    frontend::DataSet set;
    Require(frontend::ReadSet(file, rules, early, threads, set), "ReadSet");
    Say("read", watch.Read());
    struct stat status = {};
    Require(::stat(path.c_str(), &status), "stat");
    Say("file_bytes", static_cast<double>(status.st_size));
}

}  // namespace sylvora::bench
