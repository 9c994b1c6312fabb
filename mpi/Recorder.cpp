// Records what a rank writes; see Recorder.h.
#include "Recorder.h"

namespace sylvora::mpi {

std::string Recorder::Text() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return text.substr(text.size() > kMostBytes ? text.size() - kMostBytes : 0);
}

Recorder::int_type Recorder::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

std::streamsize Recorder::xsputn(const char* bytes, std::streamsize count) {
    const std::lock_guard<std::mutex> lock(mutex);
    text.append(bytes, static_cast<std::size_t>(count));
    if (text.size() > 2 * kMostBytes) text.erase(0, text.size() - kMostBytes);
    return fShown ? buffer->sputn(bytes, count) : count;
}

int Recorder::sync() {
    const std::lock_guard<std::mutex> lock(mutex);
    return fShown ? buffer->pubsync() : 0;
}

}  // namespace sylvora::mpi
