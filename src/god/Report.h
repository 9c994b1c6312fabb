// The one way in which the library speaks: a message is put together first and then written in one
// piece, so that messages of several threads do not mix. Numbers in messages, as in every file,
// have the stream's default format in the classic locale: six significant digits, a decimal point.
#ifndef SYLVORA_GOD_REPORT_H
#define SYLVORA_GOD_REPORT_H

#include <iostream>
#include <locale>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

namespace sylvora {

template <typename... Piece>
std::string Text(const Piece&... pieces) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // or a text that finds no memory would just end
    text.imbue(std::locale::classic());
    (text << ... << pieces);
    return text.str();
}

// Writes to standard error; where no memory is left to put the message together, in pieces.
template <typename... Piece>
void Warn(const Piece&... pieces) {
    try {
        std::cerr << Text(pieces...) << std::flush;
    } catch (const std::bad_alloc&) {
        (std::cerr << ... << pieces) << std::flush;
    }
}

// Writes to standard error and returns the status of a failure.
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

// Runs an operation that reports through its status; memory that runs out inside it, where no
// message of its own is due, becomes a failure like any other.
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
