// Decides from the row counts which notices to write.
#include "ReadingNotices.h"

#include "god/Report.h"

namespace sylvora::frontend {

bool NoticeAbsent(const CheckCfgCLS& cfg, const DataFile& file, int dim, const RowCounts& counts) {
    const long numCells = file.NumAllRows() * dim;
    const long numAbsent = numCells - counts.numCells;
    if (cfg.fSetAbsent || numAbsent <= counts.numCells) return false;
    const int percent =
        static_cast<int>(100.0 * static_cast<double>(numAbsent) / static_cast<double>(numCells));
    Warn("Notice: ", file.Name(), ": ", percent,
         " % of the values are left out and read as missing (-2147483648); set absent = zero if "
         "they are zeros, absent = missing if they are missing\n");
    return true;
}

void NoticeLargerIds(const DataFile& file, int dim, const RowCounts& counts) {
    if (counts.numLarger == 0) return;
    Warn("Notice: ", file.Name(), ": ", counts.numLarger,
         counts.numLarger == 1 ? " value is" : " values are", " ignored, the first on line ",
         counts.lineOfLarger, ": the model has no ids above ", dim, "\n");
}

}  // namespace sylvora::frontend
