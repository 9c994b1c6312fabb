// Reads the white-space separated tokens of a model, from a file or from memory.
#ifndef SYLVORA_TREELEARNER_MODELSOURCE_H
#define SYLVORA_TREELEARNER_MODELSOURCE_H

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <istream>
#include <locale>
#include <string>
#include <string_view>
#include <vector>

#include "../ModelText/TextSum.h"
#include "../god/NumberParsing.h"
#include "../god/StreamReading.h"

namespace sylvora {

// Where the text of a model is. Borrows what it is given.
struct ModelOrigin {
    explicit ModelOrigin(const std::string& name) : file(&name) {}
    ModelOrigin(const char* begin, size_t length) : text(begin), size(length) {}

    const std::string* file = nullptr;  // null: the text is in memory
    const char* text = nullptr;
    size_t size = 0;  // bytes
};

// A file buffer that shows the characters read ahead, so that a token can be converted in place. A
// text in memory is a buffer that has been read already.
class OpenBuffer : public std::filebuf {
  public:
    // Reads from memory, in place.
    void Show(const char* text, size_t size) {
        char* const first = const_cast<char*>(text);  // never written: nothing is put back
        setg(first, first, first + size);
        unsummed = first;
    }
    // The buffered characters, possibly none. Valid until the next read.
    std::string_view Ahead() const { return {gptr(), static_cast<size_t>(egptr() - gptr())}; }
    // Skips `count` characters, at most as many as Ahead has.
    void Take(size_t count) { setg(eback(), gptr() + count, egptr()); }

    // Call KeepSum before the first read of a file whose sum is wanted.
    void KeepSum() { fSummed = true; }
    // The sum of the characters taken so far.
    TextSum SumSoFar() const {
        TextSum all = sum;
        all.Add(unsummed, static_cast<size_t>(gptr() - unsummed));
        return all;
    }

  protected:
    int_type underflow() override {
        if (!is_open()) return traits_type::eof();
        if (fSummed && unsummed != nullptr) sum = SumSoFar();
        const int_type next = std::filebuf::underflow();
        unsummed = gptr();
        return next;
    }

  private:
    bool fSummed = false;
    TextSum sum;                     // of the characters before `unsummed`
    const char* unsummed = nullptr;  // in the buffer
};

// After a token that is missing or malformed, nothing more is read and every value keeps what it
// was preset to. Callers preset values that no valid model has, so the damage shows. Numbers are
// read in the classic locale. Throws std::bad_alloc. Not thread-safe; not copyable.
class ModelSource {
  public:
    // `fSummed`: SumSoFar will be called.
    explicit ModelSource(const ModelOrigin& origin, bool fSummed = false)
        : in(&buffer), fMemory(origin.file == nullptr) {
        in.imbue(std::locale::classic());
        if (fMemory) {
            buffer.Show(origin.text, origin.size);
            return;
        }
        if (fSummed) buffer.KeepSum();
        bufferV.resize(kBufferSize);
        buffer.pubsetbuf(bufferV.data(), kBufferSize);
        if (buffer.open(*origin.file, std::ios::in) == nullptr) in.setstate(std::ios::failbit);
    }

    // False for a directory, too: it opens, but cannot be read.
    bool IsOpen() { return fMemory || (buffer.is_open() && (in.peek(), !in.bad())); }
    bool IsEmpty() { return in.peek() == std::istream::traits_type::eof(); }
    bool IsGood() const { return in.good(); }
    // Whether the last token runs to the end of the file. A complete model ends with a line feed,
    // so the file may have been truncated inside that token.
    bool IsCut() const { return in.eof(); }

    // The sum of the text up to the end of the last token.
    TextSum SumSoFar() const { return buffer.SumSoFar(); }
    // Reads the text behind the last token; the last call. `rest` is valid as long as this object.
    // Returns false if the file cannot be read to its end.
    [[nodiscard]] bool ReadRest(std::string_view& rest) {
        rest = buffer.Ahead();
        if (fMemory) return true;
        in.clear();
        ReadFrom(in, [&] {
            for (; in.peek() != std::istream::traits_type::eof(); buffer.Take(rest.size())) {
                rest = buffer.Ahead();
                restOfFile += rest;
            }
        });
        rest = restOfFile;
        return !in.bad();
    }

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
    const bool fMemory;
    std::vector<char> bufferV;
    std::string restOfFile;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELSOURCE_H
