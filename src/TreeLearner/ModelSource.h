// Where a model is read from: white-space separated tokens of a file.
#ifndef SYLVORA_TREELEARNER_MODELSOURCE_H
#define SYLVORA_TREELEARNER_MODELSOURCE_H

#include <fstream>
#include <locale>
#include <string>

#include "../god/StreamReading.h"

namespace sylvora {

// Once a token is missing or malformed, everything read afterwards keeps its preset, so presets
// that no model has make a damaged file show. Throws std::bad_alloc.
class ModelSource {
  public:
    explicit ModelSource(const std::string& file) : in(file) { in.imbue(std::locale::classic()); }

    // Not for a directory, which opens but cannot be read.
    bool IsOpen() { return in.is_open() && (in.peek(), !in.bad()); }
    bool IsEmpty() { return in.peek() == std::ifstream::traits_type::eof(); }
    bool IsGood() const { return in.good(); }
    // Whether the token that was read last runs to the end of the file, which can then have been
    // cut inside it: what is written ends with a line feed.
    bool IsCut() const { return in.eof(); }

    template <typename Value>
    ModelSource& operator>>(Value& value) {
        ReadFrom(in, [&] { in >> value; });
        return *this;
    }

  private:
    std::ifstream in;
};

}  // namespace sylvora

#endif  // SYLVORA_TREELEARNER_MODELSOURCE_H
