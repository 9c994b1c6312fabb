// The label map file.
//
//   file = { line LF };  line = label-in-the-data white label-to-use [...]
//
// Lines of fewer than two characters, and those that do not begin with two numbers, are skipped.
// Of several lines for one label the first counts.
#include <fstream>
#include <locale>
#include <sstream>
#include <string>

#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/StreamReading.h"
#include "CallScope.h"

// Replaces tranMap. Classes are checked against numClass, so the training set must come first.
int TreeLearner::ReadLabelTran(std::string file) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        tranMap.clear();
        std::ifstream in(file);
        // A directory opens, but cannot be read; it counts as missing.
        if (!in || (in.peek(), in.bad())) {
            sylvora::Warn("Notice: No label tran file found, using the original label!\n");
            return 0;
        }
        in.clear();
        std::string line;
        while (sylvora::ReadLine(in, line)) {
            if (line.size() <= 1) continue;
            std::istringstream numbers(line);
            numbers.imbue(std::locale::classic());
            double originalLabel = 0.0;
            double valTran = 0.0;
            if (!(numbers >> originalLabel >> valTran)) continue;
            if (CfgInfo.fRegCls == "CLS" && (valTran >= numClass - 0.5 || valTran < 0.0)) {
                return sylvora::Fail(
                    "ERROR: Class id must be trans to consecutive integers, there are ", numClass,
                    " classes but transformed label: ", valTran, " found!\n");
            }
            tranMap.emplace(originalLabel, valTran);
        }
        if (in.bad()) return sylvora::Fail("ERROR: Can not read ", file, " to its end!\n");
        if (!CfgInfo.fPrint) return 0;
        sylvora::Print("Read Label Tran:\n");
        for (const auto& [label, transformed] : tranMap) {
            sylvora::Print("\t", label, "\t", transformed, "\n");
        }
        return 0;
    });
}
