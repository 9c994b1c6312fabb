// Tiny trainings whose settings and data come from the input bytes: the engine against the
// reference implementation, several threads against one. All model types and losses.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "../tests/differential/TrainingRun.h"
#include "Fuzz.h"
#include "god/Report.h"

using namespace sylvora;
using namespace sylvora::fuzz;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kOddValues[] = {0.0,
                                 -0.0,
                                 1.0,
                                 -1.0,
                                 -2147483648.0,
                                 1e300,
                                 -1e300,
                                 5e-324,
                                 2.2e-308,
                                 kInfinity,
                                 -kInfinity,
                                 0.1,
                                 std::numeric_limits<double>::quiet_NaN()};

class SetMaker {
  public:
    SetMaker(const uint8_t* data, size_t size) : bytes(data, size) {}

    hostile::Set Make() {
        ChooseModel();
        ChooseLimits();
        const size_t numRows = static_cast<size_t>(Between(1, 70));
        set.rows.assign(numRows, VecDle(static_cast<size_t>(Between(1, 5))));
        for (size_t column = 0; column < set.rows[0].size(); ++column) FillColumn(column);
        for (size_t row = 0, query = 0; row < numRows; ++row) {
            const int byte = Between(0, 255);
            set.labels.push_back(Label(byte));
            query += row > 0 && byte >= 224 ? 1 : 0;
            set.queries.push_back(static_cast<int>(query));
        }
        return set;
    }

    int Between(int low, int high) { return bytes.ConsumeIntegralInRange(low, high); }

  private:
    void ChooseModel() {
        CheckCfgCLS& c = set.cfg;
        static const char* const kModels[][3] = {
            {"GBDT", "REG", "Square"},         {"GBDT", "REG", "Logistic"},
            {"GBDT", "REG", "HingeSquare"},    {"GBDT", "REG", "Exponential"},
            {"GBRank", "REG", "CrossEntropy"}, {"GBRank", "REG", "HingeSquareRank"},
            {"CART", "REG", "Label"},          {"CART", "CLS", "Label"},
            {"RandomForest", "REG", "Label"},  {"RandomForest", "CLS", "Label"},
            {"GBDT", "REG", "LogLoss"},        {"GBDT", "REG", "Absolute"},
            {"GBDT", "REG", "Huber"},          {"GBDT", "REG", "Quantile"}};
        const auto& model = kModels[Between(0, 13)];
        c.modelType = model[0];
        c.fRegCls = model[1];
        c.lossFunc = model[2];
        labelKind = Between(0, 3);
    }

    void ChooseLimits() {
        CheckCfgCLS& c = set.cfg;
        c.numTree = Between(1, 4);
        c.maxDepth = Between(1, 6);
        c.maxLeaf = Between(1, 20);
        c.numBound = Between(1, 5);
        c.ratio = Between(1, 4) * 0.25;
        c.valSmpRt = Between(2, 4) * 0.25;
        c.valShrink = Between(1, 10) * 0.1;
        c.valTau = Between(0, 4) * 0.25;
        c.randomMode = Between(0, 1) == 0 ? "DOC" : "QUERY";
        c.fSetThread = true;
        c.numThread = 1;
        c.fileModel = "/dev/null";
    }

    // One byte per value; the kind of column decides what it means.
    void FillColumn(size_t column) {
        const int kind = Between(0, 9);
        const double base = bytes.ConsumeFloatingPointInRange(-1000.0, 1000.0);
        const size_t other = column > 0 ? static_cast<size_t>(Between(0, 255)) % column : 0;
        for (VecDle& row : set.rows) row[column] = Value(kind, base, Between(0, 255), row[other]);
    }

    static double Value(int kind, double base, int byte, double neighbour) {
        switch (kind) {
            case 0:
                return byte % 4;
            case 1:
                return byte * 0.25 - 5;
            case 2:
                return base + byte * 4e-11;  // chains of close values
            case 3:
                return base * std::pow(10.0, byte * 2 - 256);
            case 4:
                return byte < 128 ? kOddValues[static_cast<size_t>(byte) % 13] : byte;
            case 5:
                return -neighbour;
            case 6:
                return neighbour * 1e-12;
            case 7:
                return neighbour + byte * 1e-9;
            case 8:
                return std::nextafter(base, byte % 3 - 1.0);
            default:
                return base * byte;
        }
    }

    double Label(int byte) const {
        const bool fSigns = set.cfg.modelType == "GBDT" && set.cfg.lossFunc != "Square";
        if (fSigns) return byte % 2 * 2 - 1;
        if (set.cfg.fRegCls == "CLS" || labelKind == 0) return byte % 3;
        if (labelKind == 1) return byte * 0.37;
        return labelKind == 2 ? byte * 1e13 : (byte % 16 == 0 ? 1e5 : byte * 1e-9);
    }

    FuzzedDataProvider bytes;
    hostile::Set set;
    int labelKind = 0;
};

// False if the number of threads may change the model: two workers update a last query of one row
// (deliberately kept, because models depend on it).
bool IsForAnyThreads(const hostile::Set& set) {
    const size_t numRows = set.queries.size();
    return set.cfg.modelType != "GBRank" || numRows == 1 ||
           set.queries[numRows - 1] == set.queries[numRows - 2];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Counter counter;
    static const char* const kTunings[] = {
        "", "smallNode=0 mostBins=16 directPercent=0 fewKeys=0",
        "smallNode=0 mostBins=2 fewKeys=4 teamRows=4 rankBits=1"};
    SetMaker maker(data, size);
    hostile::Set set = maker.Make();
    const char* const tuning = kTunings[maker.Between(0, 2)];
    const int numThread = maker.Between(0, 1) == 0 ? 1 : 3;
    std::string reference = hostile::Outcome(set, "1", "");
    int status = 0;
    std::memcpy(&status, reference.data(), sizeof status);
    counter.Add(status, status == 0 ? "" : "\n");
    if (numThread > 1) {
        const std::string alone = std::move(reference);
        set.cfg.numThread = numThread;
        reference = hostile::Outcome(set, "1", "");
        Demand(reference == alone || !IsForAnyThreads(set), "several threads as one");
    }
    Demand(
        hostile::Outcome(set, "0", tuning) == reference,
        Text("the engine with ", numThread, " threads and \"", tuning, "\" equals the reference"));
    return 0;
}
