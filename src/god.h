// Number parsing, data-line parsing, and the one random generator that all sampling draws from.
//
// Numbers. A text is a number if it consists only of
//   - digits,
//   - at most one decimal point (reals only; not at the start, not after an exponent letter),
//   - at most one exponent letter, e or E (not at the start),
//   - signs, at the start or directly after the exponent letter.
// Blanks, hexadecimal digits, "inf" and "nan" are refused. An accepted text has the value of its
// longest prefix that strtod or strtol converts, with "." as the decimal point in every locale: "+"
// is 0, "1e" is 1, "5." is 5. A real out of range becomes infinite or zero. An integer out of range
// keeps the low 32 bits of its value as a long.
//
// Data lines.
//   line    = label { blank token }
//   token   = ( "qid" | "QID" ) ":" query-id
//           | feature-id ":" value
// White space separates tokens. A token of fewer than three characters ends the line: the rest is
// not read.
#ifndef SYLVORA_GOD_H
#define SYLVORA_GOD_H

#include <string>

#include "Libdef.h"

// Converts `in` if it is a number as defined above. Otherwise returns false and leaves `result`
// unchanged. TryStrToInt accepts no decimal point, ignores an exponent ("2e3" is 2) and converts
// the empty text to 0. Safe to call from any thread.
[[nodiscard]] SYLVORA_API bool TryStrToDouble(const char* in, double& result);
[[nodiscard]] SYLVORA_API bool TryStrToFloat(const char* in, float& result);
[[nodiscard]] SYLVORA_API bool TryStrToInt(const char* in, int& result);

// Reads a line in which the feature id of a pair selects its column: id k is column k - 1. `dline`
// has `dim` entries and belongs to the caller; all are first set to the missing value, -2147483648.
// Ids run from 1 to `dim`. The last value of a repeated id counts. Reading stops after `dim` pairs.
// If `fsparseData` is false, pairs are only checked for syntax and counted. `nCount` receives the
// number of pairs, `labelstr` the label, not validated, and `qidStr` the query id, or "" if the
// line has none.
//
// Returns 0, or -1 after one message on standard error; the outputs then hold what precedes the
// invalid token. Safe to call from any thread on distinct outputs.
[[nodiscard]] SYLVORA_API int read_sparse_line(const std::string& lineinfo, int dim, double*& dline,
                                               int& nCount, std::string& labelstr,
                                               std::string& qidStr, bool fsparseData);

// Reads a line whose k-th pair is the value of column k - 1. Ids are checked for syntax and
// otherwise ignored. A line with fewer than `dim` values is an error. Unlike read_sparse_line,
// these functions do not first fill `dline` with the missing value; otherwise they behave alike.
[[nodiscard]] SYLVORA_API int read_dense_line(const std::string& lineinfo, int dim, float*& dline,
                                              std::string& labelstr, std::string& qidStr);
[[nodiscard]] SYLVORA_API int read_dense_line(const std::string& lineinfo, int dim, double*& dline,
                                              std::string& labelstr, std::string& qidStr);

// Returns the next uniform deviate in (0, 0.99999988]. The algorithm is L'Ecuyer's combined
// generator with a Bays-Durham shuffle table (ran2 of Press et al., Numerical Recipes in C, 2nd
// ed.), except that the table is never refreshed: after initialisation it keeps its 32 values.
//
// `idum` is the caller's state word. A word of zero or below (re)initialises the generator from its
// absolute value; zero counts as 1, and a value above 2^34 is first reduced modulo 2147483563. The
// table and the second generator are shared by the whole process, but functions that a learner with
// a stream of its own calls (RandomStream.h) draw from that. So a stream is repeatable only if it
// begins with an initialisation and nobody else draws meanwhile. Safe to call from any thread, but
// the order of concurrent draws then depends on the scheduler.
SYLVORA_API double ranz(long* idum);

#endif  // SYLVORA_GOD_H
