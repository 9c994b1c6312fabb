// What the driver's jobs share: their settings, the clock, memory, and the lines that scripts/bench
// reads.
//
//   line = "bench: " key " " number
#ifndef SYLVORA_BENCH_MEASURE_H
#define SYLVORA_BENCH_MEASURE_H

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

// What passes on the wall, and the time of processors that all threads of this process take. On a
// machine that others use too the second says more about one thread.
struct Seconds {
    double wall = 0.0;
    double cpu = 0.0;
};

Seconds operator-(const Seconds& a, const Seconds& b);
Seconds operator/(const Seconds& a, double count);

class StopWatch {
  public:
    Seconds Read() const { return Now() - start; }

  private:
    static Seconds Now();

    Seconds start = Now();
};

// What one call takes, from as many calls as fill half a second, at least three, after one
// that is not counted.
template <typename Operation>
Seconds TimePerCall(const Operation& operation) {
    constexpr double kLongEnough = 0.5;
    constexpr int kFewest = 3;
    operation();
    const StopWatch watch;
    int numCalls = 0;
    while (numCalls < kFewest || watch.Read().wall < kLongEnough) {
        operation();
        ++numCalls;
    }
    return watch.Read() / numCalls;
}

// A line of /proc/self/status in bytes: "VmRSS" (resident now), "VmHWM" (the most so far).
double MemoryBytes(const std::string& field);

void Say(const std::string& key, double value);
// As KEY_s and KEY_cpu.
void Say(const std::string& key, const Seconds& seconds);

// Throws std::runtime_error when a call of the library failed; it has said why.
void Require(int status, const std::string& call);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_MEASURE_H
