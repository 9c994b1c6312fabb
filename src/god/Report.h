// All messages of the library. A message is composed first and then written at once, so messages of
// different threads do not mix. It goes to the sink of the calling thread's context
// (CallContext.h), or to a standard stream if there is none. Numbers have six significant digits
// and a decimal point, whatever the locale is.
#ifndef SYLVORA_GOD_REPORT_H
#define SYLVORA_GOD_REPORT_H

#include <iostream>
#include <locale>
#include <new>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "../Ranks.h"
#include "CallContext.h"

namespace sylvora {

// What a sink is told of a message: the stream that it would go to otherwise.
constexpr int kStandardOutput = 1, kStandardError = 2;

// Concatenates the pieces. Throws std::bad_alloc.
template <typename... Piece>
std::string Text(const Piece&... pieces) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // otherwise lack of memory would silently truncate the text
    text.imbue(std::locale::classic());
    (text << ... << pieces);
    return text.str();
}

// A message composed without allocating memory. What does not fit is left out.
class ShortText : private std::streambuf {
  public:
    template <typename... Piece>
    explicit ShortText(const Piece&... pieces) {
        setp(text, text + sizeof text - 1);
        std::ostream out(this);
        out.imbue(std::locale::classic());
        (out << ... << pieces);
        if (!out) pptr()[-1] = '\n';
        *pptr() = '\0';
    }
    char* Data() { return text; }
    size_t Size() const { return static_cast<size_t>(pptr() - pbase()); }

  private:
    char text[1024];
};

// Writes to standard error. If there is no memory to compose the message, writes the pieces one by
// one.
template <typename... Piece>
void Warn(const Piece&... pieces) {
    try {
        std::string text = Text(pieces...);
        if (!SendToSink(kStandardError, text.data(), text.size())) std::cerr << text << std::flush;
    } catch (const std::bad_alloc&) {
        if (HasSink()) {
            ShortText text(pieces...);
            SendToSink(kStandardError, text.Data(), text.Size());
        } else {
            (std::cerr << ... << pieces) << std::flush;
        }
    }
}

// Writes to standard error and returns -1, the status of a failure.
template <typename... Piece>
[[nodiscard]] int Fail(const Piece&... pieces) {
    Warn(pieces...);
    return -1;
}

// Writes to standard output.
template <typename... Piece>
void Print(const Piece&... pieces) {
    std::string text = Text(pieces...);
    if (!SendToSink(kStandardOutput, text.data(), text.size())) std::cout << text;
}

// Makes what was printed visible at once.
inline void FlushOutput() {
    if (!HasSink()) std::cout << std::flush;
}

// Runs `operation` and returns its status. If it runs out of memory or loses another rank, reports
// that and returns -1.
template <typename Operation>
[[nodiscard]] int Guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    } catch (const RanksLost& lost) {
        return Fail("ERROR: ", lost.what(), "!\n");
    }
    return Fail("ERROR: Failed to allocate memory!\n");
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_REPORT_H
