// Writers of the result files; see Output.h for the format.
#include <cstdio>
#include <fstream>
#include <locale>
#include <string>

#include "../Output.h"

namespace {

std::ofstream OpenResultFile(const std::string& base, int idx) {
    char appd[1024];
    std::snprintf(appd, sizeof appd, ".txt.%d", idx);
    std::ofstream out(base + appd);
    out.imbue(std::locale::classic());
    return out;
}

}  // namespace

int Output(double* ResV, std::string file, int idx, double* labV, int n) {
    std::ofstream out = OpenResultFile(file, idx);
    for (int i = 0; i < n; ++i) out << ResV[i] << '\t' << labV[i] << '\n';
    return 0;
}

int OutputCls(double* ResV, VecVecInt distClsVV, std::string file, int idx, double* labV, int n) {
    std::ofstream out = OpenResultFile(file, idx);
    for (int i = 0; i < n; ++i) {
        out << ResV[i] << '\t' << labV[i] << '\t';
        if (static_cast<size_t>(i) < distClsVV.size()) {
            const VecInt& counts = distClsVV[static_cast<size_t>(i)];
            for (size_t j = 0; j < counts.size(); ++j) out << j << ':' << counts[j] << '\t';
        }
        out << '\n';
    }
    return 0;
}
