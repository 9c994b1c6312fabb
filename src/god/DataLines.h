// Data lines (see god.h for the grammar) for readers that go through large texts: views into the
// line instead of strings, and faults that are not reported where they are met.
#ifndef SYLVORA_GOD_DATALINES_H
#define SYLVORA_GOD_DATALINES_H

#include <string_view>

namespace sylvora {

// The value of an id that a line leaves out.
constexpr double kMissing = -2147483648.0;

// How a line becomes a row.
struct LineRules {
    int dim = 0;        // values of a row
    int mostPairs = 0;  // of a line; what follows them is not read. read_sparse_line takes `dim`
    bool fIgnoreLarger = false;  // ids above `dim` are counted only; otherwise they are a fault
    double absent = kMissing;    // the value of an id that the line leaves out
};

// What a line says beside its values; the views point into the line.
struct LineHead {
    std::string_view label;  // unchecked
    std::string_view queryId;
    int numPairs = 0;
    int numBeforeQuery = -1;  // pairs before the last query id; -1: there is none
    int numCells = 0;         // values of the row that the line gives
    int numLarger = 0;        // pairs whose ids are above `dim`
    int largestId = 0;        // of the pairs; 0: there are none
    bool fOddId = false;      // a pair has an odd id, see LineIds
    bool fHidesRow = false;   // behind what is read, a carriage return begins another row
};

// As read_sparse_line that stores its pairs, but silent: -1 says that it would have complained.
// `text` holds the line, which a line feed or the end of the text ends; it may be read anywhere,
// which is faster than to look for the end of the line all the time.
[[nodiscard]] int ParseSparseLine(std::string_view line, std::string_view text,
                                  const LineRules& rules, double* row, LineHead& head);

// The same with the messages of read_sparse_line, in which ids run from 1 to rules.mostPairs.
[[nodiscard]] int ReadSparseLine(std::string_view line, const LineRules& rules, double* row,
                                 LineHead& head);

// As ParseNumber on a token of a text.
[[nodiscard]] bool ParseNumberIn(std::string_view text, std::string_view token, double& result);

// False where a line surely has no feature id above `largest`, and no odd one: a quick look.
[[nodiscard]] bool MayHaveLargerId(std::string_view line, int largest);

// The feature ids of a line.
struct LineIds {
    int largest = 0;  // 0: none
    // The first that is not what it is read as ("1e3" is read as 1, as is "4294967297"), though
    // that is 1 or more; empty: none. Such ids are not counted in `largest`.
    std::string_view odd;
};

// Looks at all tokens up to a short one, which ends the line, or a wrong one.
[[nodiscard]] LineIds IdsOfLine(std::string_view line);

// Whether a carriage return in the text is followed by a token that is no pair, as the label of a
// row is: a file whose lines end with carriage returns only has its rows there.
[[nodiscard]] bool HidesRow(std::string_view text);

}  // namespace sylvora

#endif  // SYLVORA_GOD_DATALINES_H
