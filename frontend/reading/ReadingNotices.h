// Notices about data files that were read without an error.
#ifndef SYLVORA_FRONTEND_READING_READINGNOTICES_H
#define SYLVORA_FRONTEND_READING_READINGNOTICES_H

#include "CheckIn.h"
#include "DataFile.h"
#include "RowReading.h"

namespace sylvora::frontend {

// Writes a notice if the file leaves out more than half of its values (rows times `dim`) and the
// parameter `absent` is not set. Returns true if it wrote one.
bool NoticeAbsent(const CheckCfgCLS& cfg, const DataFile& file, int dim, const RowCounts& counts);

// Writes a notice if values were ignored because their ids are larger than `dim`, the model's.
void NoticeLargerIds(const DataFile& file, int dim, const RowCounts& counts);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_READINGNOTICES_H
