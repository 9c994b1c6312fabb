// Where a model is read from: white-space separated tokens of a file.
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

// A file's buffer whose characters can be looked at before they are taken.
class OpenBuffer : public std::filebuf {
  public:
    std::string_view Ahead() const { return {gptr(), static_cast<size_t>(egptr() - gptr())}; }
    void Take(size_t count) { gbump(static_cast<int>(count)); }
};

// Once a token is missing or malformed, everything read afterwards keeps its preset, so presets
// that no model has make a damaged file show. Throws std::bad_alloc.
class ModelSource {
  public:
    explicit ModelSource(const std::string& file) : in(&buffer), roomV(kRoom) {
        in.imbue(std::locale::classic());
        buffer.pubsetbuf(roomV.data(), kRoom);
        if (buffer.open(file, std::ios::in) == nullptr) in.setstate(std::ios::failbit);
    }

    // Not for a directory, which opens but cannot be read.
    bool IsOpen() { return buffer.is_open() && (in.peek(), !in.bad()); }
    bool IsEmpty() { return in.peek() == std::istream::traits_type::eof(); }
    bool IsGood() const { return in.good(); }
    // Whether the token that was read last runs to the end of the file, which can then have been
    // cut inside it: what is written ends with a line feed.
    bool IsCut() const { return in.eof(); }

    template <typename Value>
    ModelSource& operator>>(Value& value) {
        if (!in.good() || !TakeUsual(value)) ReadFrom(in, [&] { in >> value; });
        return *this;
    }

  private:
    static constexpr std::streamsize kRoom = 1 << 16;

    // Reads a token that the stream would read alike, but faster: it lies in the buffer whole, with
    // the white space behind it, and is a plain number where one is wanted.
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
        constexpr size_t kShort = 9;  // characters that cannot leave the range
        const std::string_view digits = token.substr(token.front() == '-' ? 1 : 0);
        const bool fPlain = !digits.empty() && token.size() <= kShort &&
                            std::all_of(digits.begin(), digits.end(), IsDigit);
        return fPlain && ParseNumber(token, value);
    }

    OpenBuffer buffer;
    std::istream in;
    std::vector<char> roomV;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELSOURCE_H
