// The length and the checksum of a text.
#ifndef SYLVORA_MODELTEXT_TEXTSUM_H
#define SYLVORA_MODELTEXT_TEXTSUM_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace sylvora {

// A plain value. The checksum is CRC-32 as in IEEE 802.3 and zlib's crc32().
class TextSum {
  public:
    // Appends `size` bytes to the text.
    void Add(const char* text, size_t size);
    // "<bytes> <checksum>": a decimal number and eight lower-case hexadecimal digits.
    std::string Figures() const;

  private:
    uint64_t length = 0;
    uint32_t state = 0;  // the checksum so far
};

}  // namespace sylvora

#endif  // SYLVORA_MODELTEXT_TEXTSUM_H
