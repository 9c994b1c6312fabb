// The reference implementation of reading data files, line by line and token by token. The
// command's reader must give the same rows and messages.
#ifndef SYLVORA_TESTS_FRONTEND_REFERENCEREADER_H
#define SYLVORA_TESTS_FRONTEND_REFERENCEREADER_H

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../Support.h"
#include "frontend/reading/RowReading.h"
#include "god.h"
#include "god/Report.h"

namespace sylvora::tests {

using frontend::RowCounts;

struct Rows {
    int dim = 0;
    long lineOfWidest = 0;  // the first line with the largest id; 0: no line has a feature
    VecDle labelV;
    VecVecDle rowVV;
    VecInt queryIdV;
    long lineWithoutQuery = 0;
    RowCounts counts;
    bool fOnce = false;  // the rows were parsed in the first pass
};

// What the rows must satisfy.
struct Wanted {
    bool fTogether = false;
    int dimLeast = 0;
    bool fIgnoreLarger = false;  // ids above dimLeast are ignored
    double absent = kMissing;
};

class ReferenceReader {
  public:
    ReferenceReader(const std::string& file, const Wanted& rules) : path(file), wanted(rules) {
        std::istringstream text(ReadFile(path));
        for (std::string line; std::getline(text, line);) lineV.push_back(line);
    }

    int Read(Rows& rows) {
        for (size_t i = 0; i < lineV.size(); ++i) {
            const int id = LargestId(lineV[i]);
            if (id > widest) rows.lineOfWidest = static_cast<long>(i) + 1;
            widest = std::max(widest, id);
        }
        widest = std::max(widest, wanted.dimLeast);
        rows.dim = wanted.fIgnoreLarger ? wanted.dimLeast : widest;
        for (numLine = 1; numLine <= static_cast<long>(lineV.size()); ++numLine) {
            const std::string& line = lineV[static_cast<size_t>(numLine) - 1];
            if (line.find_first_not_of(" \t\n\v\f\r") == std::string::npos) continue;
            if (ReadRow(line, rows) != 0) return -1;
            if (TakeQuery(rows) != 0 || CheckFinite(rows) != 0) return -1;
        }
        return 0;
    }

  private:
    // The texts of the ids up to the first short or malformed token.
    static std::vector<std::string> Ids(const std::string& line) {
        std::istringstream tokens(line);
        std::vector<std::string> idV;
        std::string token;
        for (tokens >> token; tokens >> token && token.size() >= 3;) {
            const size_t colon = token.find(':');
            if (colon == std::string::npos) break;
            const std::string id = token.substr(0, colon);
            if (id == "qid" || id == "QID") continue;
            int number = 0;
            if (!TryStrToInt(id.c_str(), number)) break;
            idV.push_back(id);
        }
        return idV;
    }

    static bool IsOdd(const std::string& id) { return id.find_first_of("eE") != std::string::npos; }

    static int LargestId(const std::string& line) {
        int largest = 0;
        for (const std::string& id : Ids(line)) {
            if (!IsOdd(id)) largest = std::max(largest, std::stoi(id));
        }
        return largest;
    }

    // True if a carriage return is followed by a token that looks like a label: one without a
    // colon.
    static bool HasRowBehindReturn(const std::string& line) {
        const size_t label = line.find_first_not_of(" \t\r");
        for (size_t at = line.find('\r', label); at != std::string::npos;
             at = line.find('\r', at + 1)) {
            std::string token;
            std::istringstream(line.substr(at)) >> token;
            if (!token.empty() && token.find(':') == std::string::npos) return true;
        }
        return false;
    }

    int ReadRow(const std::string& line, Rows& rows) {
        const std::vector<std::string> idV = Ids(line);
        const auto odd = std::find_if(idV.begin(), idV.end(), IsOdd);
        const bool fHidden = HasRowBehindReturn(line);
        const std::string twoRows =
            "has another row after a carriage return: lines end with LF or CR LF, not with CR "
            "alone";
        constexpr int kWiderThanAny = 1000;
        const int wide = odd != idV.end() ? kWiderThanAny : widest;
        VecDle row(static_cast<size_t>(wide));
        double* values = row.data();
        double valLabel = 0.0;
        int count = 0;
        std::string label;
        if (line.find('\0') != std::string::npos) {
            return Refuse("contains a zero byte; expected a line of text");
        }
        if (read_sparse_line(line, wide, values, count, label, queryId, true) != 0) {
            if (fHidden) return Refuse(twoRows);
            return Refuse(
                Text("expected: label [qid:query] id:value ..., with ids from 1 to ", wide));
        }
        if (!TryStrToDouble(label.c_str(), valLabel)) {
            return Refuse("the label \"" + label + "\" is not a number");
        }
        if (odd != idV.end()) {
            return Refuse("the id \"" + *odd +
                          "\" is wrong: ids are whole numbers from 1 to 2147483647, written in "
                          "digits");
        }
        if (fHidden) return Refuse(twoRows);
        rows.labelV.push_back(valLabel);
        Count(idV, count, rows);
        row.resize(static_cast<size_t>(rows.dim));
        std::replace(row.begin(), row.end(), kMissing, wanted.absent);
        rows.rowVV.push_back(row);
        return 0;
    }

    void Count(const std::vector<std::string>& idV, int numRead, Rows& rows) const {
        std::set<int> storedS;
        for (int i = 0; i < numRead; ++i) {
            const int id = std::stoi(idV[static_cast<size_t>(i)]);
            if (id <= rows.dim) {
                storedS.insert(id);
            } else if (rows.counts.numLarger++ == 0) {
                rows.counts.lineOfLarger = numLine;
            }
        }
        rows.counts.numCells += static_cast<long>(storedS.size());
    }

    int TakeQuery(Rows& rows) {
        if (queryId.empty()) {
            if (rows.lineWithoutQuery == 0) rows.lineWithoutQuery = numLine;
            return 0;
        }
        size_t number = 0;
        while (number < queryV.size() && queryV[number].first != queryId) ++number;
        if (number == queryV.size()) {
            queryV.push_back({queryId, numLine});
        } else if (wanted.fTogether && current != number) {
            return Refuse(Text("query \"", queryId, "\" already ended on line ",
                               queryV[number].second,
                               "; GBRank needs the rows of a query together"));
        }
        queryV[number].second = numLine;
        current = number;
        rows.queryIdV.push_back(static_cast<int>(number));
        return 0;
    }

    int CheckFinite(const Rows& rows) const {
        const VecDle& row = rows.rowVV.back();
        const auto isInfinite = [](double value) { return !std::isfinite(value); };
        const auto found = std::find_if(row.begin(), row.end(), isInfinite);
        if (!isInfinite(rows.labelV.back()) && found == row.end()) return 0;
        const std::string what = isInfinite(rows.labelV.back())
                                     ? "the label"
                                     : Text("the value of id ", found - row.begin() + 1);
        return Refuse(what + " is infinite; training needs finite numbers");
    }

    int Refuse(const std::string& complaint) const {
        return Fail("ERROR: data ", path, ", line ", numLine, ": ", complaint, "\n");
    }

    std::string path;
    Wanted wanted;
    std::vector<std::string> lineV;
    int widest = 0;
    long numLine = 0;
    std::string queryId;
    size_t current = 0;
    std::vector<std::pair<std::string, long>> queryV;  // each with its latest line
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_FRONTEND_REFERENCEREADER_H
