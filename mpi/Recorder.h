// Records what a rank writes, so that rank 0 can print what the others found.
#ifndef SYLVORA_MPI_RECORDER_H
#define SYLVORA_MPI_RECORDER_H

#include <cstddef>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>

namespace sylvora::mpi {

// Takes the place of a stream's buffer, from Start to the end of its life. Thread-safe.
class Recorder : public std::streambuf {
  public:
    explicit Recorder(std::ostream& stream) : recorded(stream), buffer(stream.rdbuf(this)) {}
    ~Recorder() override { recorded.rdbuf(buffer); }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // From now on nothing is shown.
    void Hide() { fShown = false; }
    // The last bytes that were written, at most kMostBytes.
    std::string Text() const;

  protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    int sync() override;

  private:
    static constexpr std::size_t kMostBytes = 1 << 16;

    std::ostream& recorded;
    std::streambuf* const buffer;
    bool fShown = true;
    mutable std::mutex mutex;  // guards the text and the buffer
    std::string text;
};

}  // namespace sylvora::mpi

#endif  // SYLVORA_MPI_RECORDER_H
