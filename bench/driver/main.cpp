// Our side of the workloads of scripts/bench: sylvora_bench JOB key=value... (see Jobs.h).
//
// Exit status: 0 on success, 1 if a job failed, 2 for an unknown job. A failure prints one line to
// standard error that begins with "ERROR: ".
#include <cstdio>
#include <exception>
#include <string>

#include "Generators.h"
#include "Jobs.h"

namespace sylvora::bench {
namespace {

struct NamedJob {
    const char* name;
    void (*run)(const Job& job);
};

constexpr NamedJob kJobs[] = {
    {"generate", GenerateData},
    {"wide", GenerateWideData},
    {"text", WriteLines},
    {"train", Train},
    {"fit", Fit},
    {"batch", ScoreBatch},
    {"predict", ScoreFloats},
    {"single", ScoreSingle},
    {"load", LoadModel},
    {"read", ReadLines},
};

int RunJob(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "";
    for (const NamedJob& job : kJobs) {
        if (name != job.name) continue;
        job.run(Job(argc, argv));
        return 0;
    }
    std::fprintf(stderr, "ERROR: unknown job \"%s\"; jobs are:", name.c_str());
    for (const NamedJob& job : kJobs) std::fprintf(stderr, " %s", job.name);
    std::fputc('\n', stderr);
    return 2;
}

}  // namespace

void GenerateData(const Job& job) {
    WriteRaw(Generate(job.Text("set"), job.Number("size")), job.Text("data"));
}

void GenerateWideData(const Job& job) {
    WriteRaw(GenerateWide(job.Number("rows"), job.Number("columns")), job.Text("data"));
}

void WriteLines(const Job& job) {
    WriteText(ReadRaw(job.Text("data")), job.Text("text"));
}

}  // namespace sylvora::bench

int main(int argc, char** argv) {
    try {
        return sylvora::bench::RunJob(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "ERROR: %s\n", failure.what());
        return 1;
    }
}
