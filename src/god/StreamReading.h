// Reading from streams when memory is short.
#ifndef SYLVORA_GOD_STREAMREADING_H
#define SYLVORA_GOD_STREAMREADING_H

#include <ios>
#include <istream>
#include <string>

namespace sylvora {

// Runs `read` on a stream, which by itself would take memory that runs out for a text that ends:
// here it is std::bad_alloc, as everywhere else. A file that cannot be read any further still ends,
// with bad() set.
template <typename Read>
void ReadFrom(std::istream& in, Read read) {
    try {
        in.exceptions(std::ios::badbit);
        read();
    } catch (const std::ios_base::failure&) {
    }
}

// Whether there was a line.
inline bool ReadLine(std::istream& in, std::string& line) {
    ReadFrom(in, [&] { std::getline(in, line); });
    return !in.fail();
}

}  // namespace sylvora

#endif  // SYLVORA_GOD_STREAMREADING_H
