// The tokens of a data line, and the quick ways to take those that nearly all of them are.
#ifndef SYLVORA_GOD_LINETOKENS_H
#define SYLVORA_GOD_LINETOKENS_H

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "NumberParsing.h"
#include "ShortPair.h"

namespace sylvora {

constexpr long kMostIdDigits = 9;  // of an id that cannot leave the range

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
            if (const char* const behind = ConvertShortPair(at, id, number)) {
                value = static_cast<Value>(number);
                at = behind;
                return true;
            }
        }
        const char* const colon = PlainId(id);
        if (colon == nullptr) return false;
        const char* const behind = ConvertPlainReal(colon + 1, end, number);
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

    // The colon behind an id of digits alone that cannot leave the range; null without one.
    const char* PlainId(int& id) {
        const char* const last = at + std::min<long>(end - at, kMostIdDigits);
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
