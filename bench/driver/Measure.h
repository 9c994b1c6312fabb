// What the driver's jobs share: settings, clocks, memory, and the output that scripts/bench reads.
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

    // The value of a key. Throws std::runtime_error if the key is missing or, for Number, if the
    // value is not a number.
    const std::string& Text(const std::string& key) const;
    int Number(const std::string& key) const;

  private:
    std::map<std::string, std::string> settingM;
};

// Elapsed time and the processor time of all threads of this process. On a machine that others use
// as well, the latter is the better measure of a single thread.
struct Seconds {
    double wall = 0.0;
    double cpu = 0.0;
};

Seconds operator-(const Seconds& a, const Seconds& b);
Seconds operator/(const Seconds& a, double count);

// Runs from its construction on.
class StopWatch {
  public:
    Seconds Read() const { return Now() - start; }

  private:
    static Seconds Now();

    Seconds start = Now();
};

// The mean time of a call. Makes one call that is not counted, then calls for half a second, at
// least three times.
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

// A field of /proc/self/status in bytes: "VmRSS" (resident now) or "VmHWM" (its peak so far).
double MemoryBytes(const std::string& field);

// Prints one line.
void Say(const std::string& key, double value);
// Prints the lines KEY_s and KEY_cpu.
void Say(const std::string& key, const Seconds& seconds);

// Throws std::runtime_error if a library call returned an error. The library has printed the
// reason.
void Require(int status, const std::string& call);

}  // namespace sylvora::bench

#endif  // SYLVORA_BENCH_MEASURE_H
