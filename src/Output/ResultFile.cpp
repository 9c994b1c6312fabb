// Writes result files; see Output.h for the format.
#include "ResultFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <locale>
#include <utility>

#include "../god/Report.h"

namespace sylvora {
namespace {

std::string PathOf(const ResultRows& rows) {
    return Text(rows.base, ".txt.", rows.round);
}

void WriteCounts(std::ostream& out, const VecInt& counts) {
    for (size_t j = 0; j < counts.size(); ++j) out << j << ':' << counts[j] << '\t';
}

// The common part of the exported functions: reports a file that could not be written in full, but
// always returns 0.
int WriteAndReport(const ResultRows& rows) {
    static_cast<void>(Guarded([&] {
        const WriteFailure lost = WriteResult(rows);
        return lost.path.empty() ? 0 : Fail(lost.Message());
    }));
    return 0;
}

}  // namespace

std::string WriteFailure::Message() const {
    return Text("ERROR: Can not write file ", path, " in full: ", std::strerror(error), "!\n");
}

WriteFailure WriteResult(const ResultRows& rows, const StopCondition& isStopped) {
    std::string path = PathOf(rows);
    std::ofstream out;
    if (!OpenDirectly(path, isStopped, out)) return {};
    out.imbue(std::locale::classic());
    for (int i = 0; i < rows.count; ++i) {
        out << rows.scoreV[i] << '\t' << rows.labelV[i];
        if (rows.classCountVV != nullptr) {
            out << '\t';
            const size_t row = static_cast<size_t>(i);
            if (row < rows.classCountVV->size()) WriteCounts(out, (*rows.classCountVV)[row]);
        }
        out << '\n';
    }
    if (CloseStream(out)) return {};
    return {std::move(path), errno};
}

}  // namespace sylvora

int Output(double* ResV, std::string file, int idx, double* labV, int n) {
    return sylvora::WriteAndReport({ResV, labV, n, file, idx, nullptr});
}

int OutputCls(double* ResV, VecVecInt distClsVV, std::string file, int idx, double* labV, int n) {
    return sylvora::WriteAndReport({ResV, labV, n, file, idx, &distClsVV});
}
