// RAII for file descriptors.
#ifndef SYLVORA_OUTPUT_DESCRIPTOR_H
#define SYLVORA_OUTPUT_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace sylvora {

// Owns an open file descriptor, or -1 for none. The destructor closes it and preserves errno.
class Descriptor {
  public:
    explicit Descriptor(int opened = -1) : fd(opened) {}
    ~Descriptor() {
        if (fd < 0) return;
        const int error = errno;
        ::close(fd);
        errno = error;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }

    int Get() const { return fd; }

  private:
    int fd;
};

}  // namespace sylvora

#endif  // SYLVORA_OUTPUT_DESCRIPTOR_H
