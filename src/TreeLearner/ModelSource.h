// Where a model is read from: white-space separated tokens of a file.
#ifndef SYLVORA_TREELEARNER_MODELSOURCE_H
#define SYLVORA_TREELEARNER_MODELSOURCE_H

#include <algorithm>
#include <fstream>
#include <limits>
#include <locale>
#include <string>

namespace sylvora {

// Once a token is missing or malformed, everything read afterwards keeps its preset, so presets
// that no model has make a damaged file show.
class ModelSource {
  public:
    explicit ModelSource(const std::string& file) : in(file) {
        in.imbue(std::locale::classic());
        in.seekg(0, std::ios::end);
        const std::streamoff end = in.tellg();
        in.clear();
        in.seekg(0);
        in.clear();
        if (end >= 0) numBytes = static_cast<size_t>(end);
    }

    // Not for a directory, which opens but cannot be read.
    bool IsOpen() { return in.is_open() && (in.peek(), !in.bad()); }
    bool IsEmpty() { return in.peek() == std::ifstream::traits_type::eof(); }
    bool IsGood() const { return in.good(); }

    template <typename Value>
    ModelSource& operator>>(Value& value) {
        in >> value;
        return *this;
    }

    // `count`, but no more than a file of this size can hold at `numBytesEach`, and one: counts in
    // a file are not trusted with memory.
    size_t Trusted(int count, size_t numBytesEach) const {
        return std::min(static_cast<size_t>(std::max(count, 0)), numBytes / numBytesEach + 1);
    }

  private:
    std::ifstream in;
    size_t numBytes = std::numeric_limits<size_t>::max();  // unknown: a pipe, say
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELSOURCE_H
