// Parsing of data lines (grammar in god.h). All readers share one loop over the tokens, ReadPairs.
// They differ in where they store a value, in what ends the line and in whether they report errors.
#include "DataLines.h"

#include <emmintrin.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

#include "../god.h"
#include "LineTokens.h"
#include "NumberParsing.h"
#include "Report.h"
#include "ShortPair.h"

namespace {

using sylvora::Fail;
using sylvora::IsDigit;
using sylvora::IsSpace;
using sylvora::kMaxIdDigits;
using sylvora::kMissing;
using sylvora::LineHead;
using sylvora::LineIds;
using sylvora::LineRules;
using sylvora::ParseNumber;
using sylvora::Tokens;

constexpr size_t kShortestToken = 3;  // anything shorter ends the line

// The two ways to handle an error: report it on standard error, or only return the status.
struct Loud {
    template <typename... Piece>
    int operator()(const Piece&... pieces) const {
        return Fail(pieces...);
    }
};
struct Silent {
    template <typename... Piece>
    int operator()(const Piece&...) const {
        return -1;
    }
};

bool IsQueryId(std::string_view idText) {
    return idText == "qid" || idText == "QID";
}

// Whether `idText`, which ParseNumber converted to `id`, is an odd id (see LineIds): ParseNumber
// ignores an exponent and keeps only the low 32 bits of a value beyond int.
bool IsOddId(std::string_view idText, int id) {
    if (id < 1) return false;
    const std::string_view digits = idText.substr(idText.front() == '+' ? 1 : 0);
    long value = 0;
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, value);
    return read.ec != std::errc() || read.ptr != end || value != id;
}

// The rest of the line from the token on, with the white space before it.
std::string_view From(std::string_view token, std::string_view line) {
    const char* begin = token.data();
    while (begin != line.data() && IsSpace(begin[-1])) --begin;
    return line.substr(static_cast<size_t>(begin - line.data()));
}

// The slow path, for a token that TryTakePair refused. Returns 1 for a pair, 0 for a query id and
// -1 for an error.
template <typename Value, typename Complain>
int ReadToken(std::string_view token, LineHead& head, int& id, Value& value, Complain complain) {
    const size_t colon = token.find(':');
    if (colon == std::string_view::npos) return complain("ERROR: wrong feature format!\n");
    const std::string_view idText = token.substr(0, colon);
    const std::string_view valueText = token.substr(colon + 1);
    if (IsQueryId(idText)) {
        head.queryId = valueText;
        head.numBeforeQuery = head.numPairs;
        return 0;
    }
    if (!ParseNumber(valueText, value)) {
        return complain("ERROR: feature value is not a digit: \"", valueText, "\"!\n");
    }
    if (!ParseNumber(idText, id)) {
        return complain("ERROR: feature id is not an integer: \"", idText, "\"!\n");
    }
    if (IsOddId(idText, id)) head.fOddId = true;
    return 1;
}

// Reads the label, the query id and at most `mostPairs` pairs of `line`, which is part of `text`.
// store(id, k, value) stores the k-th pair, k from 0, and returns a status other than 0 to stop.
template <typename Value, typename Complain, typename Store>
int ReadPairs(std::string_view line, std::string_view text, int mostPairs, LineHead& head,
              Complain complain, Store store) {
    Tokens tokens(line, text);
    head = {};
    head.label = tokens.Next();
    for (;;) {
        int id = 0;
        Value value{};
        if (!tokens.TryTakePair(id, value)) {
            const std::string_view token = tokens.Next();
            if (token.size() < kShortestToken) {
                head.fHidesRow = !token.empty() && sylvora::HidesRow(From(token, line));
                return 0;
            }
            const int read = ReadToken(token, head, id, value, complain);
            if (read < 0) return -1;
            if (read == 0) continue;
        }
        if (store(id, head.numPairs, value) != 0) return -1;
        if (++head.numPairs == mostPairs) {
            head.fHidesRow = sylvora::HidesRow(tokens.Rest());
            return 0;
        }
    }
}

// Reads a line into a row; the id of a pair selects the column.
template <typename Complain>
int ReadSparse(std::string_view line, std::string_view text, const LineRules& rules, double* row,
               LineHead& head) {
    const int dim = rules.dim;
    const double absent = rules.absent;
    std::fill(row, row + std::max(dim, 0), absent);
    int largestId = 0;
    int numRepeated = 0;
    int numLarger = 0;
    const auto byId = [&, dim, absent, row](int id, int, double value) {
        if (static_cast<unsigned>(id) - 1 >= static_cast<unsigned>(dim)) {
            if (rules.fIgnoreLarger && id > 0) {
                largestId = std::max(largestId, id);
                ++numLarger;
                return 0;
            }
            return Complain()("ERROR: Illegal feature id: \"", id,
                              "\", which is supposed to be in [1, ", rules.mostPairs, "]\n");
        }
        if (id > largestId) {
            largestId = id;
        } else if (row[id - 1] != absent) {
            ++numRepeated;
        }
        row[id - 1] = value;
        return 0;
    };
    const int status = ReadPairs<double>(line, text, rules.mostPairs, head, Complain(), byId);
    head.largestId = largestId;
    head.numLarger = numLarger;
    head.numCells = head.numPairs - numLarger - numRepeated;
    return status;
}

// Sets the whole row to the missing value; pairs are only checked and counted.
int CheckPairs(std::string_view line, int dim, double* row, LineHead& head) {
    std::fill(row, row + std::max(dim, 0), kMissing);
    return ReadPairs<double>(line, line, dim, head, Loud(), [](int, int, double) { return 0; });
}

template <typename Value>
int ReadDense(std::string_view line, int dim, Value* row, std::string& label, std::string& qid) {
    const auto byPosition = [row, dim](int, int position, Value value) {
        if (position < dim) row[position] = value;
        return 0;
    };
    LineHead head;
    const int status = ReadPairs<Value>(line, line, dim, head, Loud(), byPosition);
    label = head.label;
    qid = head.queryId;
    if (status != 0) return -1;
    if (head.numPairs < dim) return Fail("ERROR: Imcomplete feature line for dense data!\n");
    return 0;
}

// Whether the colon that follows `before` may end an id above `largest`. False only after an id of
// digits that is not larger, and after "qid" or "QID".
bool MayBeLarger(std::string_view before, int largest) {
    const char* const begin = before.data();
    const char* const colon = begin + before.size();
    const char* p = colon;
    int id = 0;
    for (int unit = 1; p != begin && IsDigit(p[-1]) && colon - p < kMaxIdDigits; unit *= 10) {
        id += unit * (*--p - '0');
    }
    if (p == begin) return true;
    if (p != colon) return !IsSpace(p[-1]) || id > largest;
    return colon - begin <= 3 || !IsSpace(colon[-4]) || !IsQueryId({colon - 3, 3});
}

}  // namespace

int sylvora::ParseSparseLine(std::string_view line, std::string_view text, const LineRules& rules,
                             double* row, LineHead& head) {
    return ReadSparse<Silent>(line, text, rules, row, head);
}

int sylvora::ReadSparseLine(std::string_view line, const LineRules& rules, double* row,
                            LineHead& head) {
    return ReadSparse<Loud>(line, line, rules, row, head);
}

bool sylvora::ParseNumberIn(std::string_view text, std::string_view token, double& result) {
    const char* const last = token.data() + token.size();
    if (last - text.data() < kRealWindow || token.empty()) return ParseNumber(token, result);
    const size_t point = token.find('.');
    return ConvertShortReal(token.data(), last,
                            point < token.size() ? token.data() + point : nullptr, result) ||
           ParseNumber(token, result);
}

// Looks only at the digits before each colon, which settle nearly every line.
bool sylvora::MayHaveLargerId(std::string_view line, int largest) {
    constexpr size_t kBlock = sizeof(__m128i);
    const __m128i colons = _mm_set1_epi8(':');
    size_t at = 0;
    for (; at + kBlock <= line.size(); at += kBlock) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line.data() + at));
        const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(block, colons));
        for (unsigned rest = static_cast<unsigned>(mask); rest != 0; rest &= rest - 1) {
            const size_t colon = at + static_cast<size_t>(__builtin_ctz(rest));
            if (MayBeLarger(line.substr(0, colon), largest)) return true;
        }
    }
    for (; at < line.size(); ++at) {
        if (line[at] == ':' && MayBeLarger(line.substr(0, at), largest)) return true;
    }
    return false;
}

LineIds sylvora::IdsOfLine(std::string_view line) {
    Tokens tokens(line);
    tokens.Next();  // the label
    LineIds ids;
    for (;;) {
        int id = 0;
        if (!tokens.TryTakeId(id)) {
            const std::string_view token = tokens.Next();
            const std::string_view idText = token.substr(0, token.find(':'));
            if (token.size() < kShortestToken || idText.size() == token.size()) return ids;
            if (IsQueryId(idText)) continue;
            if (!ParseNumber(idText, id)) return ids;
            if (IsOddId(idText, id)) {
                if (ids.odd.empty()) ids.odd = idText;
                continue;
            }
        }
        ids.largest = std::max(ids.largest, id);
    }
}

bool sylvora::HidesRow(std::string_view text) {
    for (size_t at = text.find('\r'); at < text.size(); at = text.find('\r', at)) {
        const std::string_view token = Tokens(text.substr(at)).Next();
        if (token.empty()) return false;
        if (token.find(':') == std::string_view::npos) return true;
        at = static_cast<size_t>(token.data() + token.size() - text.data());
    }
    return false;
}

int read_sparse_line(const std::string& lineinfo, int dim, double*& dline, int& nCount,
                     std::string& labelstr, std::string& qidStr, bool fsparseData) {
    return sylvora::Guarded([&] {
        LineHead head;
        const int status = fsparseData
                               ? ReadSparse<Loud>(lineinfo, lineinfo, {dim, dim}, dline, head)
                               : CheckPairs(lineinfo, dim, dline, head);
        nCount = head.numPairs;
        labelstr = head.label;
        qidStr = head.queryId;
        return status;
    });
}

int read_dense_line(const std::string& lineinfo, int dim, float*& dline, std::string& labelstr,
                    std::string& qidStr) {
    return sylvora::Guarded([&] { return ReadDense(lineinfo, dim, dline, labelstr, qidStr); });
}

int read_dense_line(const std::string& lineinfo, int dim, double*& dline, std::string& labelstr,
                    std::string& qidStr) {
    return sylvora::Guarded([&] { return ReadDense(lineinfo, dim, dline, labelstr, qidStr); });
}
