// All messages of the library. A message is composed first and then written at once, so messages of
// different threads do not mix. Numbers have six significant digits and a decimal point, whatever
// the locale is.
#ifndef SYLVORA_GOD_REPORT_H
#define SYLVORA_GOD_REPORT_H

#include <iostream>
#include <locale>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

namespace sylvora {

// Concatenates the pieces. Throws std::bad_alloc.
template <typename... Piece>
std::string Text(const Piece&... pieces) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // otherwise lack of memory would silently truncate the text
    text.imbue(std::locale::classic());
    (text << ... << pieces);
    return text.str();
}

// Writes to standard error. If there is no memory to compose the message, writes the pieces one by
// one.
template <typename... Piece>
void Warn(const Piece&... pieces) {
    try {
        std::cerr << Text(pieces...) << std::flush;
    } catch (const std::bad_alloc&) {
        (std::cerr << ... << pieces) << std::flush;
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
    std::cout << Text(pieces...);
}

// Runs `operation` and returns its status. If it runs out of memory, reports that and returns -1.
template <typename Operation>
[[nodiscard]] int Guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    std::cerr << "ERROR: Failed to allocate memory!\n" << std::flush;
    return -1;
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_REPORT_H
