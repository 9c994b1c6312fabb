// CRC-32, eight bytes at a time: M. E. Kounavis and F. L. Berry, "Novel Table Lookup-Based
// Algorithms for High-Performance CRC Generation" (2008), known as slicing by 8.
#include "TextSum.h"

#include <array>

namespace sylvora {
namespace {

constexpr size_t kSlices = 8;
typedef std::array<std::array<uint32_t, 256>, kSlices> Tables;

// Entry [0][b] is the remainder of byte b; entry [s][b] that of byte b and s zero bytes.
constexpr Tables MakeTables() {
    constexpr uint32_t kPolynomial = 0xedb88320;  // bits reversed
    Tables tables = {};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t remainder = b;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kPolynomial : 0);
        }
        tables[0][b] = remainder;
    }
    for (size_t s = 1; s < kSlices; ++s) {
        for (size_t b = 0; b < 256; ++b) {
            const uint32_t before = tables[s - 1][b];
            tables[s][b] = (before >> 8) ^ tables[0][before & 0xff];
        }
    }
    return tables;
}

constexpr Tables kTables = MakeTables();

}  // namespace

void TextSum::Add(const char* text, size_t size) {
    length += size;
    uint32_t remainder = ~state;
    for (; size >= kSlices; size -= kSlices, text += kSlices) {
        uint32_t next = 0;
        for (size_t i = 0; i < kSlices; ++i) {
            uint32_t byte = static_cast<unsigned char>(text[i]);
            if (i < sizeof remainder) byte ^= (remainder >> (8 * i)) & 0xff;
            next ^= kTables[kSlices - 1 - i][byte];
        }
        remainder = next;
    }
    for (; size > 0; --size, ++text) {
        const uint32_t byte = static_cast<unsigned char>(*text);
        remainder = (remainder >> 8) ^ kTables[0][(remainder ^ byte) & 0xff];
    }
    state = ~remainder;
}

std::string TextSum::Figures() const {
    std::string figures = std::to_string(length) + ' ';
    for (int shift = 28; shift >= 0; shift -= 4) {
        figures += "0123456789abcdef"[(state >> shift) & 0xf];
    }
    return figures;
}

}  // namespace sylvora
