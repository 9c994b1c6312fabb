// Output files that are written where they are: devices, FIFOs, and files that may be cut short.
#ifndef SYLVORA_OUTPUT_DIRECTOUTPUT_H
#define SYLVORA_OUTPUT_DIRECTOUTPUT_H

#include <fstream>
#include <functional>
#include <string>

namespace sylvora {

// Asked several times a second while something is waited for; true ends the waiting.
typedef std::function<bool()> StopQuestion;

// Opens `path` for writing and truncates it, or makes it, as std::ofstream::open does; but where it
// leads to a FIFO that nobody reads, waits for a reader only until `isStopped` says so (without the
// question, for ever). False with errno; ECANCELED: the waiting was ended. Throws std::bad_alloc.
[[nodiscard]] bool OpenDirectly(const std::string& path, const StopQuestion& isStopped,
                                std::ofstream& stream);

// Flushes and closes a stream. False (with errno) when not all that was written to it has arrived.
[[nodiscard]] bool CloseStream(std::ofstream& stream);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_DIRECTOUTPUT_H
