// Reading from streams that reports lack of memory.
#ifndef SYLVORA_GOD_STREAMREADING_H
#define SYLVORA_GOD_STREAMREADING_H

#include <ios>
#include <istream>
#include <string>

namespace sylvora {

// Runs `read`, which reads from `in`. A stream by itself treats lack of memory as the end of the
// text; this lets std::bad_alloc through. An input error still ends the text, with bad() set.
template <typename Read>
void ReadFrom(std::istream& in, Read read) {
    try {
        in.exceptions(std::ios::badbit);
        read();
    } catch (const std::ios_base::failure&) {
    }
}

// Reads the next line without its line feed. Returns false at the end of the text.
inline bool ReadLine(std::istream& in, std::string& line) {
    ReadFrom(in, [&] { std::getline(in, line); });
    return !in.fail();
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_STREAMREADING_H
