// Stream buffers for texts in memory and for texts whose checksum is wanted.
#ifndef SYLVORA_MODELTEXT_TEXTBUFFERS_H
#define SYLVORA_MODELTEXT_TEXTBUFFERS_H

#include <streambuf>
#include <string>

#include "TextSum.h"

namespace sylvora {

// Appends what is written to a string, which it borrows. Throws std::bad_alloc and
// std::length_error; a stream lets them through if its exceptions() have badbit.
class StringBuffer : public std::streambuf {
  public:
    explicit StringBuffer(std::string& target) : text(target) {}

  protected:
    int_type overflow(int_type next) override {
        if (!traits_type::eq_int_type(next, traits_type::eof())) {
            text += traits_type::to_char_type(next);
        }
        return traits_type::not_eof(next);
    }
    std::streamsize xsputn(const char* piece, std::streamsize size) override {
        text.append(piece, static_cast<size_t>(size));
        return size;
    }

  private:
    std::string& text;
};

// Passes what is written on to another buffer, which it borrows, and sums it up. The pieces are
// deliberately smaller than the buffer of a file: what cannot be written stays in that buffer, so
// that closing the file fails with the reason.
class SummingBuffer : public std::streambuf {
  public:
    explicit SummingBuffer(std::streambuf& next) : target(next) {
        setp(piece, piece + sizeof piece);
    }

    // The sum of what was written since construction or Restart; flush first.
    const TextSum& Sum() const { return sum; }
    void Restart() { sum = TextSum(); }
    // Whether the last character that was flushed is a line feed.
    bool EndsLine() const { return last == '\n'; }

  protected:
    int_type overflow(int_type next) override {
        if (sync() != 0) return traits_type::eof();
        if (!traits_type::eq_int_type(next, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(next);
            pbump(1);
        }
        return traits_type::not_eof(next);
    }
    int sync() override {
        const std::streamsize size = pptr() - pbase();
        if (size == 0) return 0;
        sum.Add(piece, static_cast<size_t>(size));
        last = piece[size - 1];
        setp(piece, piece + sizeof piece);
        return target.sputn(piece, size) == size ? 0 : -1;
    }

  private:
    std::streambuf& target;
    TextSum sum;
    char last = '\0';
    char piece[512];
};

}  // namespace sylvora

#endif  // SYLVORA_MODELTEXT_TEXTBUFFERS_H
