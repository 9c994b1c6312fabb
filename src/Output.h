// Result files of a boosting round.
//
//   file  = base name ".txt." round          (created, or truncated)
//   row   = score TAB label LF                            (Output)
//   row   = score TAB label TAB { class ":" count TAB } LF  (OutputCls)
//
// Numbers have six significant digits.
#ifndef SYLVORA_OUTPUT_H
#define SYLVORA_OUTPUT_H

#include <string>

#include "Libdef.h"

// Writes `n` rows of scores `ResV` and labels `labV`; `idx` is the round. Always returns 0, for
// result files never stop a run: a file that cannot be opened is silently left out, one that cannot
// be written in full is reported.
SYLVORA_API int Output(double* ResV, std::string file, int idx, double* labV, int n);

// The same with each row's class distribution, one count per class. A row that `distClsVV` does
// not have is written without counts.
SYLVORA_API int OutputCls(double* ResV, VecVecInt distClsVV, std::string file, int idx,
                          double* labV, int n);

#endif  // SYLVORA_OUTPUT_H
