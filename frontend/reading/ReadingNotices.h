// What a user should hear of data files that were read without an error.
#ifndef SYLVORA_FRONTEND_READING_READINGNOTICES_H
#define SYLVORA_FRONTEND_READING_READINGNOTICES_H

#include "CheckIn.h"
#include "DataFile.h"
#include "RowReading.h"

namespace sylvora::frontend {

// Writes a notice if lines leave out more than half of the values of the file's rows of `dim`
// columns, and the parameter `absent` does not say what they are. True if it did.
bool NoticeAbsent(const CheckCfgCLS& cfg, const DataFile& file, int dim, const RowCounts& counts);

// Writes a notice if values were ignored because their ids are above the model's `dim`.
void NoticeLargerIds(const DataFile& file, int dim, const RowCounts& counts);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_READING_READINGNOTICES_H
