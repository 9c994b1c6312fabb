// A digest of 128 bits, for changes that happen by accident.
#ifndef SYLVORA_CHECKPOINT_DIGEST_H
#define SYLVORA_CHECKPOINT_DIGEST_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace sylvora {

// A plain value, built up word by word; the order counts. Each step is a one-to-one function of the
// state and, for a given state, of the word. So two sequences of equal length that differ in a
// single word never have the same digest. Not for input that an adversary chooses.
class Digest {
  public:
    void Add(std::uint64_t word) {
        first = Fold((first ^ word) * kFirstFactor);
        second = Fold((second + word) * kSecondFactor);
    }
    void Add(const Digest& other) {
        Add(other.first);
        Add(other.second);
    }
    void AddReal(double value) {
        std::uint64_t word = 0;
        std::memcpy(&word, &value, sizeof word);
        Add(word);
    }
    // The bytes as words of eight, the first byte being the lowest. Fills up the last word with
    // zeros.
    void AddBytes(const char* bytes, size_t size) {
        for (size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
            std::uint64_t word = 0;
            std::memcpy(&word, bytes + at, size - at < sizeof word ? size - at : sizeof word);
            Add(word);
        }
    }
    // A text and its length.
    void AddText(const std::string& text) {
        Add(text.size());
        AddBytes(text.data(), text.size());
    }

    // 32 lower-case hexadecimal digits.
    static constexpr size_t kNumFigures = 32;
    std::string Figures() const {
        std::string text;
        for (const std::uint64_t word : {first, second}) {
            for (int shift = 60; shift >= 0; shift -= 4) {
                text += "0123456789abcdef"[(word >> shift) & 15];
            }
        }
        return text;
    }

  private:
    // Odd, so that a product is one-to-one: the fractional parts of the golden ratio and of the
    // square root of 2.
    static constexpr std::uint64_t kFirstFactor = 0x9e3779b97f4a7c15;
    static constexpr std::uint64_t kSecondFactor = 0x6a09e667f3bcc909;

    // Lets the high bits of a product change the low ones of the next.
    static std::uint64_t Fold(std::uint64_t word) { return word ^ (word >> 32); }

    std::uint64_t first = kSecondFactor;
    std::uint64_t second = kFirstFactor;
};

}  // namespace sylvora

#endif  // SYLVORA_CHECKPOINT_DIGEST_H
