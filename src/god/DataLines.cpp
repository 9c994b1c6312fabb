// The readers of data lines (see god.h for the grammar). One loop over tokens serves the sparse and
// the dense form; they differ in where a value goes and in what ends the line.
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "../god.h"
#include "NumberParsing.h"
#include "Report.h"

namespace {

using sylvora::Fail;
using sylvora::ParseNumber;

constexpr double kMissing = -2147483648.0;
constexpr size_t kShortestToken = 3;  // anything shorter ends the line

class Tokens {
  public:
    explicit Tokens(std::string_view text) : rest(text) {}

    // The next token, empty at the end of the line.
    std::string_view Next() {
        size_t begin = 0;
        while (begin < rest.size() && IsSpace(rest[begin])) ++begin;
        size_t end = begin;
        while (end < rest.size() && !IsSpace(rest[end])) ++end;
        const std::string_view token = rest.substr(begin, end - begin);
        rest.remove_prefix(end);
        return token;
    }

  private:
    static bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    std::string_view rest;
};

// Reads label, query id and at most `dim` pairs; store(id, count, value) places a pair and returns
// a status. `count` receives the number of pairs.
template <typename Value, typename Store>
int ReadPairs(std::string_view line, int dim, int& count, std::string& label, std::string& qid,
              Store store) {
    Tokens tokens(line);
    label.assign(tokens.Next());
    qid.clear();
    count = 0;
    for (;;) {
        const std::string_view token = tokens.Next();
        if (token.size() < kShortestToken) return 0;
        const size_t colon = token.find(':');
        if (colon == std::string_view::npos) return Fail("ERROR: wrong feature format!\n");
        const std::string_view idText = token.substr(0, colon);
        const std::string_view valueText = token.substr(colon + 1);
        if (idText == "qid" || idText == "QID") {
            qid.assign(valueText);
            continue;
        }
        Value value{};
        if (!ParseNumber(valueText, value)) {
            return Fail("ERROR: feature value is not a digit: \"", valueText, "\"!\n");
        }
        int id = 0;
        if (!ParseNumber(idText, id)) {
            return Fail("ERROR: feature id is not an integer: \"", idText, "\"!\n");
        }
        if (store(id, count, value) != 0) return -1;
        if (++count == dim) return 0;
    }
}

template <typename Value>
int ReadDense(std::string_view line, int dim, Value* row, std::string& label, std::string& qid) {
    int count = 0;
    const auto byPosition = [row, dim](int, int position, Value value) {
        if (position < dim) row[position] = value;
        return 0;
    };
    if (ReadPairs<Value>(line, dim, count, label, qid, byPosition) != 0) return -1;
    if (count < dim) return Fail("ERROR: Imcomplete feature line for dense data!\n");
    return 0;
}

}  // namespace

int read_sparse_line(const std::string& lineinfo, int dim, double*& dline, int& nCount,
                     std::string& labelstr, std::string& qidStr, bool fsparseData) {
    std::fill(dline, dline + std::max(dim, 0), kMissing);
    const auto byId = [row = dline, dim, fsparseData](int id, int, double value) {
        if (!fsparseData) return 0;
        if (id < 1 || id > dim) {
            return Fail("ERROR: Illegal feature id: \"", id, "\", which is supposed to be in [1, ",
                        dim, "]\n");
        }
        row[id - 1] = value;
        return 0;
    };
    return sylvora::Guarded(
        [&] { return ReadPairs<double>(lineinfo, dim, nCount, labelstr, qidStr, byId); });
}

int read_dense_line(const std::string& lineinfo, int dim, float*& dline, std::string& labelstr,
                    std::string& qidStr) {
    return sylvora::Guarded([&] { return ReadDense(lineinfo, dim, dline, labelstr, qidStr); });
}

int read_dense_line(const std::string& lineinfo, int dim, double*& dline, std::string& labelstr,
                    std::string& qidStr) {
    return sylvora::Guarded([&] { return ReadDense(lineinfo, dim, dline, labelstr, qidStr); });
}
