// The readers of data lines (see god.h for the grammar). One loop over tokens serves all of them;
// they differ in where a value goes, in what ends the line and in whether a fault is reported.
#include "DataLines.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "../god.h"
#include "NumberParsing.h"
#include "Report.h"
#include "ShortPair.h"

namespace {

using sylvora::Fail;
using sylvora::IsDigit;
using sylvora::IsSpace;
using sylvora::kMissing;
using sylvora::LineHead;
using sylvora::ParseNumber;

constexpr size_t kShortestToken = 3;  // anything shorter ends the line
constexpr long kMostDigits = 9;       // of an id that cannot leave the range

class Tokens {
  public:
    // `text` holds the line and may be read anywhere.
    Tokens(std::string_view line, std::string_view text)
        : at(line.data()), end(at + line.size()), endOfShort(EndOfShort(line, text)) {}
    explicit Tokens(std::string_view line) : Tokens(line, line) {}

    // The next token, empty at the end of the line.
    std::string_view Next() {
        SkipSpaces();
        const char* const begin = at;
        SkipToken();
        return {begin, static_cast<size_t>(at - begin)};
    }

    // Takes the next token if it is a pair as nearly all are: an id of a few digits, and a value
    // that the conversion reads without doubts about its syntax. False leaves the token to Next.
    template <typename Value>
    bool TakePlainPair(int& id, Value& value) {
        SkipSpaces();
        double number = 0.0;
        if (at < endOfShort) {
            if (const char* const behind = sylvora::ConvertShortPair(at, id, number)) {
                value = static_cast<Value>(number);
                at = behind;
                return true;
            }
        }
        const char* const colon = PlainId(id);
        if (colon == nullptr) return false;
        const char* const behind = sylvora::ConvertPlainReal(colon + 1, end, number);
        if (behind == nullptr || (behind != end && !IsSpace(*behind))) return false;
        value = static_cast<Value>(number);
        at = behind;
        return true;
    }

    // The same for the id alone; what is behind the colon may be anything but nothing at all.
    bool TakePlainId(int& id) {
        SkipSpaces();
        const char* const colon = PlainId(id);
        if (colon == nullptr || colon + 1 == end || IsSpace(colon[1])) return false;
        at = colon + 1;
        SkipToken();
        return true;
    }

    // What is left of the line.
    std::string_view Rest() const { return {at, static_cast<size_t>(end - at)}; }

  private:
    // Pairs that begin before this can be taken as short ones.
    static const char* EndOfShort(std::string_view line, std::string_view text) {
        const char* const last = text.data() + text.size();
        const bool fRoom = line.data() - text.data() >= sylvora::kBeforePair &&
                           last - line.data() >= sylvora::kPairWindow;
        return fRoom ? last - sylvora::kPairWindow + 1 : line.data();
    }

    void SkipSpaces() {
        while (at != end && IsSpace(*at)) ++at;
    }

    void SkipToken() {
        while (at != end && !IsSpace(*at)) ++at;
    }

    // The colon behind an id of digits alone that cannot leave the range; null without one.
    const char* PlainId(int& id) {
        const char* const last = at + std::min<long>(end - at, kMostDigits);
        const char* p = at;
        int number = 0;
        for (; p != last && IsDigit(*p); ++p) number = number * 10 + (*p - '0');
        if (p == at || p == end || *p != ':') return nullptr;
        id = number;
        return p;
    }

    const char* at;
    const char* end;
    const char* endOfShort;
};

// Complains on standard error, or not at all.
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

// Reads a token that is no plain pair: 1 for a pair, 0 for a query id, -1 for a fault.
template <typename Value, typename Complain>
int ReadToken(std::string_view token, LineHead& head, int& id, Value& value, Complain complain) {
    const size_t colon = token.find(':');
    if (colon == std::string_view::npos) return complain("ERROR: wrong feature format!\n");
    const std::string_view idText = token.substr(0, colon);
    const std::string_view valueText = token.substr(colon + 1);
    if (IsQueryId(idText)) {
        head.queryId = valueText;
        return 0;
    }
    if (!ParseNumber(valueText, value)) {
        return complain("ERROR: feature value is not a digit: \"", valueText, "\"!\n");
    }
    if (!ParseNumber(idText, id)) {
        return complain("ERROR: feature id is not an integer: \"", idText, "\"!\n");
    }
    return 1;
}

// Reads label, query id and at most `dim` pairs of a line in a text; store(id, count, value) places
// a pair and returns a status.
template <typename Value, typename Complain, typename Store>
int ReadPairs(std::string_view line, std::string_view text, int dim, LineHead& head,
              Complain complain, Store store) {
    Tokens tokens(line, text);
    head = {tokens.Next(), {}, {}, 0, 0};
    for (;;) {
        int id = 0;
        Value value{};
        if (!tokens.TakePlainPair(id, value)) {
            const std::string_view token = tokens.Next();
            if (token.size() < kShortestToken) return 0;
            const int read = ReadToken(token, head, id, value, complain);
            if (read < 0) return -1;
            if (read == 0) continue;
        }
        if (store(id, head.numPairs, value) != 0) return -1;
        if (++head.numPairs == dim) {
            head.rest = tokens.Rest();
            return 0;
        }
    }
}

// Reads a line into a row by ids; without fStore, its pairs are only checked and counted.
template <typename Complain>
int ReadSparse(std::string_view line, std::string_view text, int dim, double* row, bool fStore,
               LineHead& head) {
    std::fill(row, row + std::max(dim, 0), kMissing);
    int largestId = 0;
    const auto byId = [row, dim, fStore, &largestId](int id, int, double value) {
        if (!fStore) return 0;
        if (static_cast<unsigned>(id) - 1 >= static_cast<unsigned>(dim)) {
            return Complain()("ERROR: Illegal feature id: \"", id,
                              "\", which is supposed to be in [1, ", dim, "]\n");
        }
        row[id - 1] = value;
        largestId = std::max(largestId, id);
        return 0;
    };
    const int status = ReadPairs<double>(line, text, dim, head, Complain(), byId);
    head.largestId = largestId;
    return status;
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

// Whether a colon behind `before` may end an id above `largest`; false for the digits of a smaller
// one and for the mark of a query id.
bool MayBeLarger(std::string_view before, int largest) {
    const char* const begin = before.data();
    const char* const colon = begin + before.size();
    const char* p = colon;
    int id = 0;
    for (int unit = 1; p != begin && IsDigit(p[-1]) && colon - p < kMostDigits; unit *= 10) {
        id += unit * (*--p - '0');
    }
    if (p == begin) return true;
    if (p != colon) return !IsSpace(p[-1]) || id > largest;
    return colon - begin <= 3 || !IsSpace(colon[-4]) || !IsQueryId({colon - 3, 3});
}

}  // namespace

int sylvora::ParseSparseLine(std::string_view line, std::string_view text, int dim, double* row,
                             LineHead& head) {
    return ReadSparse<Silent>(line, text, dim, row, true, head);
}

bool sylvora::ParseNumberIn(std::string_view text, std::string_view token, double& result) {
    const char* const last = token.data() + token.size();
    if (last - text.data() < kRealWindow || token.empty()) return ParseNumber(token, result);
    const size_t point = token.find('.');
    return ConvertShortReal(token.data(), last,
                            point < token.size() ? token.data() + point : nullptr, result) ||
           ParseNumber(token, result);
}

// Nearly all lines are told by the digits before their colons.
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

int sylvora::LargestFeatureId(std::string_view line) {
    Tokens tokens(line);
    tokens.Next();  // the label
    int largest = 0;
    for (;;) {
        int id = 0;
        if (!tokens.TakePlainId(id)) {
            const std::string_view token = tokens.Next();
            const std::string_view idText = token.substr(0, token.find(':'));
            if (token.size() < kShortestToken || idText.size() == token.size()) return largest;
            if (IsQueryId(idText)) continue;
            if (!ParseNumber(idText, id)) return largest;
        }
        largest = std::max(largest, id);
    }
}

int read_sparse_line(const std::string& lineinfo, int dim, double*& dline, int& nCount,
                     std::string& labelstr, std::string& qidStr, bool fsparseData) {
    return sylvora::Guarded([&] {
        LineHead head;
        const int status = ReadSparse<Loud>(lineinfo, lineinfo, dim, dline, fsparseData, head);
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
