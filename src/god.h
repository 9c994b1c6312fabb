// Numbers, data lines and random numbers: the text formats that data comes in, and the one
// generator that all sampling draws from.
//
// Numbers. A text is a number when it consists of digits, at most one decimal point (floating-point
// forms only; not at the start, not after an exponent letter), at most one exponent letter (not at
// the start), and signs only at the start or directly behind the exponent letter. No blanks, no
// hexadecimal, no "inf" or "nan". What passes is converted as far as strtod or strtol can use it,
// always with a decimal point, whatever the locale is: "+" is 0, "1e" is 1, "5." is 5. A value
// out of range becomes infinite or zero; an integer out of range keeps the low 32 bits of its value
// as a long.
//
// Data lines.
//   line    = label { blank token }
//   token   = ( "qid" | "QID" ) ":" query-id
//           | feature-id ":" value
// Tokens are separated by white space. A token of fewer than three characters ends the line; what
// follows it is not read.
#ifndef SYLVORA_GOD_H
#define SYLVORA_GOD_H

#include <string>

#include "Libdef.h"

// Converts `in` if it is a number as above; returns false and leaves `result` alone otherwise.
// The integer form takes no point, drops an exponent ("2e3" is 2) and reads the empty text as 0.
// Safe to call from any thread.
[[nodiscard]] SYLVORA_API bool TryStrToDouble(const char* in, double& result);
[[nodiscard]] SYLVORA_API bool TryStrToFloat(const char* in, float& result);
[[nodiscard]] SYLVORA_API bool TryStrToInt(const char* in, int& result);

// Reads a line whose ids select the column. `dline` has `dim` entries, all of which are first set
// to the marker of a missing value, -2147483648. Ids run from 1 to `dim`; a repeated id overwrites.
// Reading stops after `dim` pairs. With `fsparseData` false the pairs are only checked for syntax
// and counted. `nCount` receives the number of pairs, `labelstr` the unchecked label and `qidStr`
// the query id, empty where the line has none.
//
// Returns 0, or -1 after one message on standard error; the outputs then hold what was read before
// the failing token. The caller owns the row. Safe to call from any thread on distinct outputs.
[[nodiscard]] SYLVORA_API int read_sparse_line(const std::string& lineinfo, int dim, double*& dline,
                                               int& nCount, std::string& labelstr,
                                               std::string& qidStr, bool fsparseData);

// Reads a line whose values are taken in order, one per column; ids are checked for syntax and
// otherwise ignored. A line with fewer than `dim` values is an error. Otherwise as above, except
// that `dline` is not filled beforehand.
[[nodiscard]] SYLVORA_API int read_dense_line(const std::string& lineinfo, int dim, float*& dline,
                                              std::string& labelstr, std::string& qidStr);
[[nodiscard]] SYLVORA_API int read_dense_line(const std::string& lineinfo, int dim, double*& dline,
                                              std::string& labelstr, std::string& qidStr);

// The next uniform deviate, in (0, 0.99999988]: L'Ecuyer's combined generator with a Bays-Durham
// shuffle table (ran2 of Press et al., Numerical Recipes in C, 2nd ed.), except that the table is
// never refreshed, so after initialisation it keeps its 32 values.
//
// `idum` is the caller's state word; zero or below asks for (re)initialisation from its absolute
// value, 1 for zero (beyond 2^34 from its remainder by 2147483563). The table and the second
// generator are shared by the whole process, so a stream repeats only if it begins with an
// initialisation and nothing else draws in between. Safe to call from any thread; the order of
// concurrent draws is then the scheduler's.
SYLVORA_API double ranz(long* idum);

#endif  // SYLVORA_GOD_H
