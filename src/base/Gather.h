// Values of rows that lie here and there.
#ifndef SYLVORA_BASE_GATHER_H
#define SYLVORA_BASE_GATHER_H

namespace sylvora {

// With nothing else to do in the loop, many values are on their way at once.
template <typename Value>
void Gather(const Value* valueV, const int* rowV, int count, Value* to) {
    for (int i = 0; i < count; ++i) to[i] = valueV[rowV[i]];
}

// Calls visit(row) for those rows, few of them, that test(row) holds for. The test is 1 or 0
// without a branch: there is one for eight of them.
template <typename Test, typename Visit>
void ForSelected(const int* rowV, int count, const Test& test, const Visit& visit) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        unsigned bits = 0;
        for (int k = 0; k < 8; ++k) bits |= static_cast<unsigned>(test(rowV[i + k])) << k;
        for (; bits != 0; bits &= bits - 1) visit(rowV[i + __builtin_ctz(bits)]);
    }
    for (; i < count; ++i) {
        if (test(rowV[i])) visit(rowV[i]);
    }
}

}  // namespace sylvora

#endif  // SYLVORA_BASE_GATHER_H
