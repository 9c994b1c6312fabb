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
    constexpr long Product(long a, long b) const { return a * b % modulus; }

    // The result of `count` calls of Next on a word in range, by repeated squaring.
    constexpr long Jump(long word, long count) const {
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

// Deliberately, no slot of the table is ever refreshed: models depend on the fixed table.
long OutputAfter(long output, const long* table, long second) {
    const long next = table[output / kPerSlot] - second;
    return next < 1 ? next + kLargest : next;
}

double DrawUnlocked(GeneratorState& state, long* word) {
    if (*word <= 0) Initialise(state, word);
    *word = kFirst.Next(*word);
    state.secondWord = kSecond.Next(state.secondWord);
    state.lastOutput = OutputAfter(state.lastOutput, state.table, state.secondWord);
    return std::min(kScale * static_cast<double>(state.lastOutput), kBelowOne);
}

// An output depends on the one before, through a slot of the table, so one draw waits for the
// other. But which of the 32 slots the first draw took is soon forgotten: two chains of outputs
// that meet in a slot are the same from there on. So a block of draws is computed in runs side by
// side; all but the first begin with a wrong output, and are corrected until they meet the right
// chain.
constexpr int kRuns = 4;
constexpr int kRunDraws = 1024;
constexpr int kBlockDraws = kRuns * kRunDraws;

// The words that change with each draw.
struct Chain {
    long second, output;

    void Step(const long* table) {
        second = kSecond.Product(second, kSecond.factor);
        output = OutputAfter(output, table, second);
    }
};

// The next kBlockDraws outputs. The second word must be in range, the table too.
void DrawBlock(GeneratorState& state, int* outputV) {
    constexpr long kRunFactor = kSecond.Jump(1, kRunDraws);
    Chain chainV[kRuns];
    long secondV[kRuns];  // before each run
    for (int r = 0; r < kRuns; ++r) {
        secondV[r] = state.secondWord;
        chainV[r] = {state.secondWord, state.lastOutput};
        state.secondWord = kSecond.Product(state.secondWord, kRunFactor);
    }
    for (int i = 0; i < kRunDraws; ++i) {
        for (int r = 0; r < kRuns; ++r) {
            chainV[r].Step(state.table);
            outputV[r * kRunDraws + i] = static_cast<int>(chainV[r].output);
        }
    }
    for (int r = 1; r < kRuns; ++r) {
        int* const runV = outputV + r * kRunDraws;
        Chain right = {secondV[r], runV[-1]};
        for (int i = 0; i < kRunDraws; ++i) {
            right.Step(state.table);
            if (runV[i] == right.output) break;
            runV[i] = static_cast<int>(right.output);
        }
    }
    state.lastOutput = outputV[kBlockDraws - 1];
}

// Whether outputs stay within [1, kLargest].
bool IsTableInRange(const GeneratorState& state) {
    return std::all_of(state.table, state.table + GeneratorState::kTableSize,
                       [](long entry) { return entry >= 0 && entry <= kLargest; });
}

int IndexOf(long output, int n) {
    const double deviate = std::min(kScale * static_cast<double>(output), kBelowOne);
    return std::min(static_cast<int>(n * deviate), n - 1);
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
    const bool fInRange = IsTableInRange(state);
    int outputV[kBlockDraws];
    for (; fInRange && count - i >= kBlockDraws; i += kBlockDraws) {
        DrawBlock(state, outputV);
        for (int k = 0; k < kBlockDraws; ++k) indexV[i + k] = IndexOf(outputV[k], n - i - k);
    }
    Chain chain = {state.secondWord, state.lastOutput};
    for (; i < count; ++i) {
        chain.Step(state.table);
        indexV[i] = IndexOf(chain.output, n - i);
    }
    state.secondWord = chain.second;
    state.lastOutput = chain.output;
}

}  // namespace sylvora

double ranz(long* idum) {
    sylvora::RandomStream::State& stream = sylvora::CurrentStream();
    const std::lock_guard<std::mutex> lock(stream.mutex);
    return sylvora::DrawUnlocked(stream.generator, sylvora::WordOf(stream, idum));
}
