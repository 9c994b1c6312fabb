// Settings, clocks, memory and output of the jobs; see Measure.h.
#include "Measure.h"

#include <time.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sylvora::bench {
namespace {

double ReadClock(clockid_t clock) {
    timespec now = {};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

Seconds operator-(const Seconds& a, const Seconds& b) {
    return {a.wall - b.wall, a.cpu - b.cpu};
}

Seconds operator/(const Seconds& a, double count) {
    return {a.wall / count, a.cpu / count};
}

Seconds StopWatch::Now() {
    return {ReadClock(CLOCK_MONOTONIC), ReadClock(CLOCK_PROCESS_CPUTIME_ID)};
}

Job::Job(int argc, char** argv) {
    for (int i = 2; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t sign = argument.find('=');
        if (sign == std::string::npos) throw std::runtime_error(argument + ": expected key=value");
        settingM[argument.substr(0, sign)] = argument.substr(sign + 1);
    }
}

const std::string& Job::Text(const std::string& key) const {
    const auto setting = settingM.find(key);
    if (setting == settingM.end()) throw std::runtime_error("missing: " + key + "=...");
    return setting->second;
}

int Job::Number(const std::string& key) const {
    int number = 0;
    std::istringstream text(Text(key));
    if (!(text >> number)) throw std::runtime_error(key + ": expected a number");
    return number;
}

double MemoryBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, field.size() + 1, field + ":") != 0) continue;
        double kilobytes = 0.0;
        std::istringstream(line.substr(field.size() + 1)) >> kilobytes;
        return kilobytes * 1024.0;
    }
    throw std::runtime_error("/proc/self/status has no " + field);
}

void Say(const std::string& key, double value) {
    std::printf("bench: %s %.9g\n", key.c_str(), value);
}

void Say(const std::string& key, const Seconds& seconds) {
    Say(key + "_s", seconds.wall);
    Say(key + "_cpu", seconds.cpu);
}

void Require(int status, const std::string& call) {
    if (status != 0) throw std::runtime_error(call + " failed");
}

}  // namespace sylvora::bench
