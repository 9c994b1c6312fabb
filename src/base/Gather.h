// Gathers values from scattered rows.
#ifndef SYLVORA_BASE_GATHER_H
#define SYLVORA_BASE_GATHER_H

namespace sylvora {

// to[i] = valueV[rowV[i]] for i in [0, count). The loop does nothing else, so the processor has
// many cache misses in flight at once.
template <typename Value>
void Gather(const Value* valueV, const int* rowV, int count, Value* to) {
    for (int i = 0; i < count; ++i) to[i] = valueV[rowV[i]];
}

// Calls visit(row), in the order of rowV, for each row with test(row). For tests that few rows
// pass: eight results are collected into a bit mask, so there is one branch for eight rows. The
// test should be free of branches and side effects.
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
