// Divides rows into chunks, the units of work that workers take.
#ifndef SYLVORA_BASE_CHUNKS_H
#define SYLVORA_BASE_CHUNKS_H

namespace sylvora {

// The items [0, count) in chunks of `size` > 0; the last one may be shorter. Chunk k is [Begin(k),
// End(k)) for k in [0, Num()). Nothing overflows while `count` is an int: End() never adds beyond
// it.
struct Chunks {
    int count;
    int size;

    int Num() const { return count / size + (count % size != 0); }
    int Begin(int chunk) const { return chunk * size; }
    int End(int chunk) const { return count - Begin(chunk) > size ? Begin(chunk) + size : count; }
};

}  // namespace sylvora

#endif  // SYLVORA_BASE_CHUNKS_H
