// How many rows are cut into stretches for the workers.
#ifndef SYLVORA_BASE_CHUNKS_H
#define SYLVORA_BASE_CHUNKS_H

namespace sylvora {

// The items [0, count) in stretches of `size`, the last one perhaps shorter.
struct Chunks {
    int count;
    int size;

    int Num() const { return count / size + (count % size != 0); }
    int Begin(int chunk) const { return chunk * size; }
    int End(int chunk) const { return count - Begin(chunk) > size ? Begin(chunk) + size : count; }
};

}  // namespace sylvora

#endif  // SYLVORA_BASE_CHUNKS_H
