// Splits a data line into tokens, with fast paths for the common forms of a pair.
#ifndef SYLVORA_GOD_LINETOKENS_H
#define SYLVORA_GOD_LINETOKENS_H

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "NumberParsing.h"
#include "ShortPair.h"

namespace sylvora {

constexpr long kMaxIdDigits = 9;  // an id of so many digits cannot overflow an int

// A cursor over the tokens of one line. The text is borrowed. Not safe for concurrent use.
//
// Invariant: between calls, `at` is at the end of the last token taken, or at the start of the
// line.
class Tokens {
  public:
    // `line` is part of `text`, all of which must be readable.
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

    // Takes the next token if it is a pair in a common form: an id of at most kMaxIdDigits digits,
    // and a value that ConvertPlainReal accepts. Otherwise returns false; Next then returns the
    // token.
    template <typename Value>
    bool TryTakePair(int& id, Value& value) {
        SkipSpaces();
        double number = 0.0;
        if (at < endOfShort) {
            if (const char* const behind = ConvertShortPair(at, id, number)) {
                value = static_cast<Value>(number);
                at = behind;
                return true;
            }
        }
        const char* const colon = ScanId(id);
        if (colon == nullptr) return false;
        const char* const behind = ConvertPlainReal(colon + 1, end, number);
        if (behind == nullptr || (behind != end && !IsSpace(*behind))) return false;
        value = static_cast<Value>(number);
        at = behind;
        return true;
    }

    // The same, but converts only the id. The value may be any text except the empty one.
    bool TryTakeId(int& id) {
        SkipSpaces();
        const char* const colon = ScanId(id);
        if (colon == nullptr || colon + 1 == end || IsSpace(colon[1])) return false;
        at = colon + 1;
        SkipToken();
        return true;
    }

    // The part of the line that has not been read.
    std::string_view Rest() const { return {at, static_cast<size_t>(end - at)}; }

  private:
    // ConvertShortPair may be called for pairs that begin before this: both its windows are then
    // inside the text.
    static const char* EndOfShort(std::string_view line, std::string_view text) {
        const char* const last = text.data() + text.size();
        const bool fRoom =
            line.data() - text.data() >= kBeforePair && last - line.data() >= kPairWindow;
        return fRoom ? last - kPairWindow + 1 : line.data();
    }

    void SkipSpaces() {
        while (at != end && IsSpace(*at)) ++at;
    }

    void SkipToken() {
        while (at != end && !IsSpace(*at)) ++at;
    }

    // Converts an id of 1 to kMaxIdDigits digits. Returns the colon after it, or null if the token
    // does not begin so. Does not move `at`.
    const char* ScanId(int& id) {
        const char* const last = at + std::min<long>(end - at, kMaxIdDigits);
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

}  // namespace sylvora

#endif  // SYLVORA_GOD_LINETOKENS_H
