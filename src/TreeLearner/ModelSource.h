// Reads the white-space separated tokens of a model file.
#ifndef SYLVORA_TREELEARNER_MODELSOURCE_H
#define SYLVORA_TREELEARNER_MODELSOURCE_H

#include <algorithm>
#include <fstream>
#include <istream>
#include <locale>
#include <string>
#include <string_view>
#include <vector>

#include "../god/NumberParsing.h"
#include "../god/StreamReading.h"

namespace sylvora {

// A file buffer that shows the characters read ahead, so that a token can be converted in place.
class OpenBuffer : public std::filebuf {
  public:
    // The buffered characters, possibly none. Valid until the next read.
    std::string_view Ahead() const { return {gptr(), static_cast<size_t>(egptr() - gptr())}; }
    // Skips `count` characters, at most as many as Ahead has.
    void Take(size_t count) { gbump(static_cast<int>(count)); }
};

// After a token that is missing or malformed, nothing more is read and every value keeps what it
// was preset to. Callers preset values that no valid model has, so the damage shows. Numbers are
// read in the classic locale. Throws std::bad_alloc. Not thread-safe; not copyable.
class ModelSource {
  public:
    explicit ModelSource(const std::string& file) : in(&buffer), bufferV(kBufferSize) {
        in.imbue(std::locale::classic());
        buffer.pubsetbuf(bufferV.data(), kBufferSize);
        if (buffer.open(file, std::ios::in) == nullptr) in.setstate(std::ios::failbit);
    }

    // False for a directory, too: it opens, but cannot be read.
    bool IsOpen() { return buffer.is_open() && (in.peek(), !in.bad()); }
    bool IsEmpty() { return in.peek() == std::istream::traits_type::eof(); }
    bool IsGood() const { return in.good(); }
    // Whether the last token runs to the end of the file. A complete model ends with a line feed,
    // so the file may have been truncated inside that token.
    bool IsCut() const { return in.eof(); }

    template <typename Value>
    ModelSource& operator>>(Value& value) {
        if (!in.good() || !TakeUsual(value)) ReadFrom(in, [&] { in >> value; });
        return *this;
    }

  private:
    static constexpr std::streamsize kBufferSize = 1 << 16;  // bytes

    // Fast path for tokens that are entirely in the buffer, white space after them included, and,
    // for numbers, of a simple form. Gives what the stream would give. Otherwise returns false and
    // takes nothing, and the stream reads the token.
    template <typename Value>
    bool TakeUsual(Value& value) {
        const std::string_view ahead = buffer.Ahead();
        size_t begin = 0;
        while (begin < ahead.size() && IsSpace(ahead[begin])) ++begin;
        size_t end = begin;
        while (end < ahead.size() && !IsSpace(ahead[end])) ++end;
        if (end == ahead.size() || !Convert(ahead.substr(begin, end - begin), value)) return false;
        buffer.Take(end);
        return true;
    }

    static bool Convert(std::string_view token, std::string& value) {
        value.assign(token);
        return true;
    }
    static bool Convert(std::string_view token, double& value) {
        const char* const last = token.data() + token.size();
        double number = 0.0;
        if (ConvertPlainReal(token.data(), last, number) != last) return false;
        value = number;
        return true;
    }
    static bool Convert(std::string_view token, int& value) {
        constexpr size_t kShort = 9;  // so few characters cannot overflow an int
        const std::string_view digits = token.substr(token.front() == '-' ? 1 : 0);
        const bool fPlain = !digits.empty() && token.size() <= kShort &&
                            std::all_of(digits.begin(), digits.end(), IsDigit);
        return fPlain && ParseNumber(token, value);
    }

    OpenBuffer buffer;
    std::istream in;
    std::vector<char> bufferV;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELSOURCE_H
