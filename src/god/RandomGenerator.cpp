// The random generator (see ranz in god.h), its process-wide stream and streams of their own.
#include "RandomGenerator.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "../claim.h"
#include "../god.h"
#include "CallContext.h"

long gseed = 0;

namespace sylvora {
namespace {

// A multiplicative congruential generator: word -> factor * word mod modulus.
// quotient = modulus / factor and remainder = modulus % factor, as Schrage's method needs them.
struct Multiplier {
    long modulus, factor, quotient, remainder;

    bool IsInRange(long word) const { return word > 0 && word < modulus; }

    // For `a` and `b` in range. Product(word, factor) equals Next(word).
    long Product(long a, long b) const { return a * b % modulus; }

    // The result of `count` calls of Next on a word in range, by repeated squaring.
    long Jump(long word, long count) const {
        long power = factor;
        for (; count > 0; count /= 2) {
            if (count % 2 != 0) word = Product(word, power);
            power = Product(power, power);
        }
        return word;
    }

    // By Schrage's method. Also defined for words out of range, which Product must not be given.
    long Next(long word) const {
        const long k = word / quotient;
        const long next = factor * (word - k * quotient) - k * remainder;
        return next < 0 ? next + modulus : next;
    }
};

constexpr Multiplier kFirst = {2147483563, 40014, 53668, 12211};
constexpr Multiplier kSecond = {2147483399, 40692, 52774, 3791};
constexpr long kTableSize = GeneratorState::kTableSize;
constexpr long kLargest = kFirst.modulus - 1;
constexpr long kPerSlot = 1 + kLargest / kTableSize;
constexpr double kScale = 1.0 / static_cast<double>(kFirst.modulus);
constexpr double kBelowOne = 0.99999988;
constexpr int kWarmUps = 8;
// A start word above this could make the table index leave the table. Smaller ones are used as they
// are, even above the modulus: streams of existing models depend on it.
constexpr long kLargestStart = 1L << 34;

long StartWord(long seed) {
    const unsigned long magnitude = 0UL - static_cast<unsigned long>(seed);
    const long start = static_cast<long>(magnitude);
    if (start <= 0) return 1;
    return start <= kLargestStart ? start : std::max(start % kFirst.modulus, 1L);
}

void Initialise(GeneratorState& state, long* word) {
    *word = StartWord(*word);
    state.secondWord = *word;
    for (long j = kTableSize + kWarmUps - 1; j >= 0; --j) {
        *word = kFirst.Next(*word);
        if (j < kTableSize) state.table[j] = *word;
    }
    state.lastOutput = state.table[0];
}

double DrawUnlocked(GeneratorState& state, long* word) {
    if (*word <= 0) Initialise(state, word);
    *word = kFirst.Next(*word);
    state.secondWord = kSecond.Next(state.secondWord);
    // Deliberately, the slot is not refreshed with *word: models depend on the fixed table.
    state.lastOutput = state.table[state.lastOutput / kPerSlot] - state.secondWord;
    if (state.lastOutput < 1) state.lastOutput += kLargest;
    return std::min(kScale * static_cast<double>(state.lastOutput), kBelowOne);
}

}  // namespace

// Also the state of the process-wide stream, whose word is gseed.
struct RandomStream::State {
    std::mutex mutex;          // guards the other members
    GeneratorState generator;  // its `word` is unused: each caller passes its own
    long word = 0;             // of slot 0; not used by the process-wide stream
};

namespace {

RandomStream::State processWide;

// The stream that the calling thread draws from.
RandomStream::State& CurrentStream() {
    const CallContext* const context = CurrentContext();
    const bool fOwn = context != nullptr && context->stream != nullptr;
    return fOwn ? context->stream->Own() : processWide;
}

// Where the caller's state word is. Learners pass the address of gseed for slot 0, whatever they
// draw from; it stands for the word of the stream.
template <typename Word>
Word* WordOf(RandomStream::State& stream, Word* seed) {
    return seed == &gseed && &stream != &processWide ? &stream.word : seed;
}

}  // namespace

RandomStream::RandomStream(long seed) : state(std::make_unique<State>()) {
    Seed(seed);
}

RandomStream::~RandomStream() = default;

// A word of 0 or less initialises the generator at the first draw.
void RandomStream::Seed(long seed) {
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->generator = GeneratorState();
    state->word = seed > 0 ? -seed : seed;
}

bool GeneratorState::operator==(const GeneratorState& other) const {
    return word == other.word && secondWord == other.secondWord && lastOutput == other.lastOutput &&
           std::equal(table, table + kTableSize, other.table);
}

Draws::Draws(long* seed) : Draws(CurrentStream(), seed) {}

Draws::Draws(RandomStream::State& stream, long* seed)
    : lock(stream.mutex), state(stream.generator), word(WordOf(stream, seed)) {}

GeneratorState Draws::StateNow(const long* seed) {
    RandomStream::State& stream = CurrentStream();
    const std::lock_guard<std::mutex> lock(stream.mutex);
    GeneratorState state = stream.generator;
    state.word = *WordOf(stream, seed);
    return state;
}

bool Draws::Skip(long* seed, const GeneratorState& before, const GeneratorState& after) {
    RandomStream::State& stream = CurrentStream();
    const std::lock_guard<std::mutex> lock(stream.mutex);
    long* const word = WordOf(stream, seed);
    stream.generator.word = *word;
    if (!(stream.generator == before)) return false;
    stream.generator = after;
    *word = after.word;
    return true;
}

int Draws::Index(int n) {
    const int index = static_cast<int>(n * DrawUnlocked(state, word));
    return std::min(index, n - 1);
}

// Draws one by one until both words are in range. From there on a plain product replaces Schrage's
// method, and the first word jumps to its final value at once: no draw depends on it.
void Draws::FisherYates(int n, int count, int* indexV) {
    int i = 0;
    for (; i < count && !(kFirst.IsInRange(*word) && kSecond.IsInRange(state.secondWord)); ++i) {
        indexV[i] = Index(n - i);
    }
    *word = kFirst.Jump(*word, count - i);
    long second = state.secondWord;
    long output = state.lastOutput;
    for (; i < count; ++i) {
        second = kSecond.Product(second, kSecond.factor);
        output = state.table[output / kPerSlot] - second;
        output += output < 1 ? kLargest : 0;
        const double deviate = std::min(kScale * static_cast<double>(output), kBelowOne);
        indexV[i] = std::min(static_cast<int>((n - i) * deviate), n - i - 1);
    }
    state.secondWord = second;
    state.lastOutput = output;
}

}  // namespace sylvora

double ranz(long* idum) {
    sylvora::RandomStream::State& stream = sylvora::CurrentStream();
    const std::lock_guard<std::mutex> lock(stream.mutex);
    return sylvora::DrawUnlocked(stream.generator, sylvora::WordOf(stream, idum));
}
