// What the driver's jobs share: their settings, the clock, memory, and the lines that scripts/bench
// reads.
//
//   line = "bench: " key " " number
#ifndef SYLVORA_BENCH_MEASURE_H
#define SYLVORA_BENCH_MEASURE_H

#include <chrono>
#include <map>
#include <string>

namespace sylvora::bench {

// The settings of a job: arguments "key=value".
class Job {
  public:
    Job(int argc, char** argv);

    // Both throw std::runtime_error when the key was not given or is no number.
    const std::string& Text(const std::string& key) const;
    int Number(const std::string& key) const;

  private:
    std::map<std::string, std::string> settingM;
};

class StopWatch {
  public:
    double Seconds() const { return std::chrono::duration<double>(Clock::now() - start).count(); }

  private:
    typedef std::chrono::steady_clock Clock;
    Clock::time_point start = Clock::now();
};

// Seconds that one call takes, from as many calls as fill half a second, at least three, after one
// that is not counted.
template <typename Operation>
double SecondsPerCall(const Operation& operation) {
    constexpr double kLongEnough = 0.5;
    constexpr int kFewest = 3;
    operation();
    const StopWatch watch;
    int numCalls = 0;
    while (numCalls < kFewest || watch.Seconds() < kLongEnough) {
        operation();
        ++numCalls;
    }
    return watch.Seconds() / numCalls;
}

// A line of /proc/self/status in bytes: "VmRSS" (resident now), "VmHWM" (the most so far).
double MemoryBytes(const std::string& field);

void Say(const std::string& key, double value);

// Throws std::runtime_error when a call of the library failed; it has said why.
void Require(int status, const std::string& call);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_MEASURE_H
