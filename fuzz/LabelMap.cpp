// Label maps: reading one must equal reading its lines one by one, where the first line for a label
// counts. The first byte is the number of classes, 0 for a regression.
#include <sstream>

#include "../tests/InMemory.h"
#include "Fuzz.h"
#include "TreeLearner.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

void SetTask(TreeLearner& learner, int numClass) {
    learner.CfgInfo.fRegCls = numClass > 0 ? "CLS" : "REG";
    learner.numClass = numClass;
}

int ReadByLine(const std::string& text, int numClass, std::map<double, double>& tranMap) {
    static tests::MemoryFile file;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        TreeLearner learner;
        SetTask(learner, numClass);
        const int status = learner.ReadLabelTran(file.Fill(line));
        tranMap.insert(learner.tranMap.begin(), learner.tranMap.end());
        if (status != 0) return status;
    }
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static tests::Messages messages;
    static tests::MemoryFile file;
    if (size == 0) return 0;
    const int numClass = data[0] % 8;
    const std::string text = TextOf(data + 1, size - 1);
    TreeLearner learner;
    SetTask(learner, numClass);
    const int status = learner.ReadLabelTran(file.Fill(text));
    const std::string said = messages.Take();
    counter.Add(status, said);
    std::map<double, double> byLine;
    Demand(ReadByLine(text, numClass, byLine) == status, "line by line: another status");
    Demand(messages.Take() == said, "line by line: not " + said);
    Demand(byLine == learner.tranMap, "line by line: another map");
    for (const auto& [label, used] : byLine) {
        Demand(numClass == 0 || (used >= 0 && used < numClass - 0.5), "a class");
    }
    return 0;
}
