// Parsing of data lines (grammar in god.h) for readers of large files. Results are views into the
// line instead of strings, and errors can be detected without being reported.
//
// All functions are safe to call from any thread on distinct outputs.
#ifndef SYLVORA_GOD_DATALINES_H
#define SYLVORA_GOD_DATALINES_H

#include <string_view>

namespace sylvora {

// The missing value: stands for an id that a line leaves out.
constexpr double kMissing = -2147483648.0;

// How a line becomes a row.
struct LineRules {
    int dim = 0;        // columns of a row
    int mostPairs = 0;  // pairs read per line, the rest is ignored; read_sparse_line: `dim`
    bool fIgnoreLarger = false;  // ids above `dim` are only counted; otherwise they are an error
    double absent = kMissing;    // the value of an id that the line leaves out
};

// What a line contains besides its values. The views point into the line.
struct LineHead {
    std::string_view label;    // not validated
    std::string_view queryId;  // empty: none
    int numPairs = 0;
    int numBeforeQuery = -1;  // pairs before the last query id; -1: no query id
    int numCells = 0;         // columns of the row that the line sets
    int numLarger = 0;        // pairs with an id above `dim`
    int largestId = 0;        // largest id of a pair; 0: no pairs
    bool fOddId = false;      // some pair has an odd id, see LineIds
    bool fHidesRow = false;   // the unread rest of the line hides a row, see HidesRow
};

// Reads a line like read_sparse_line with fsparseData true, but reports nothing: -1 means that
// ReadSparseLine would report an error. `line` is part of `text` and ends at a line feed or at the
// end of `text`. All of `text` must be readable: fast paths read a little beyond the line, which
// saves a check for its end at every character.
[[nodiscard]] int ParseSparseLine(std::string_view line, std::string_view text,
                                  const LineRules& rules, double* row, LineHead& head);

// The same, but reports an error as read_sparse_line does. The message about an invalid id gives
// rules.mostPairs as the largest one.
[[nodiscard]] int ReadSparseLine(std::string_view line, const LineRules& rules, double* row,
                                 LineHead& head);

// ParseNumber for a token of `text`, all of which must be readable.
[[nodiscard]] bool ParseNumberIn(std::string_view text, std::string_view token, double& result);

// A fast filter: false only if the line has no feature id above `largest` and no odd one. May be
// true for other lines too.
[[nodiscard]] bool MayHaveLargerId(std::string_view line, int largest);

// The feature ids of a line.
struct LineIds {
    int largest = 0;  // the largest id that is not odd; 0: none
    // The first odd id, or empty. An odd id parses to a number of 1 or more that is not the number
    // written: "1e3" and "4294967297" both parse to 1.
    std::string_view odd;
};

// Collects the ids of a line up to the token that ends it or to the first invalid token.
[[nodiscard]] LineIds IdsOfLine(std::string_view line);

// Whether some carriage return in the text is followed by a token without a colon. Such a token
// looks like the label of another row: the lines of the file may end with carriage returns alone.
[[nodiscard]] bool HidesRow(std::string_view text);

}  // namespace sylvora

#endif  // SYLVORA_GOD_DATALINES_H
