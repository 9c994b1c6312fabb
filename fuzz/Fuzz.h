// Shared by all fuzz targets: an assertion that aborts the program, and the counts that a run
// reports at its end.
#ifndef SYLVORA_FUZZ_FUZZ_H
#define SYLVORA_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace sylvora::fuzz {

// Aborts unless the condition holds. libFuzzer treats the abort as a crash and keeps the input.
// Uses stdio, because Messages may have redirected the C++ streams.
inline void Demand(bool fMet, const std::string& demand) {
    if (fMet) return;
    std::fprintf(stderr, "NOT MET: %s\n", demand.c_str());
    std::abort();
}

inline void Report(const std::string& figures) {
    std::fprintf(stderr, "FIGURES: %s\n", figures.c_str());
}

// Counts inputs; the counts are reported when the program ends.
class Counter {
  public:
    ~Counter() {
        Report(std::to_string(numTried) + " tried, " + std::to_string(numRefused) + " refused, " +
               std::to_string(numTried - numRefused) + " taken");
    }

    // Counts an input that ended with `status`, and checks that there is a message exactly if it is
    // -1.
    void Add(int status, const std::string& said) {
        ++numTried;
        numRefused += status == 0 ? 0 : 1;
        Demand(status == 0 || status == -1, "a status is 0 or -1");
        Demand((status == 0) == said.empty(), "a refusal, and only that, has a message: " + said);
        Demand(said.empty() || said.back() == '\n', "a message ends its line: " + said);
    }

  private:
    long numTried = 0;
    long numRefused = 0;
};

inline std::string TextOf(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace sylvora::fuzz

#endif  // SYLVORA_FUZZ_FUZZ_H
