// Output files that are written in place: devices, FIFOs, and files that may be left incomplete.
#ifndef SYLVORA_OUTPUT_DIRECTOUTPUT_H
#define SYLVORA_OUTPUT_DIRECTOUTPUT_H

#include <fstream>
#include <functional>
#include <string>

namespace sylvora {

// Called several times a second during a wait, on the waiting thread; true ends the wait.
typedef std::function<bool()> StopCondition;

// Opens `path` for writing like std::ofstream::open: creates or truncates the file. If the path is
// a FIFO without a reader, waits for one until isStopped() returns true; an empty `isStopped` waits
// forever. Returns false with errno set if the file could not be opened; ECANCELED means that
// `isStopped` ended the wait. Throws std::bad_alloc.
[[nodiscard]] bool OpenDirectly(const std::string& path, const StopCondition& isStopped,
                                std::ofstream& stream);

// Flushes and closes a stream. Returns false with errno set if not all of its output was written.
[[nodiscard]] bool CloseStream(std::ofstream& stream);

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_DIRECTOUTPUT_H
