// Random small data sets that provoke ties, near-ties, extreme values and constant columns.
#ifndef SYLVORA_TESTS_DIFFERENTIAL_HOSTILESETS_H
#define SYLVORA_TESTS_DIFFERENTIAL_HOSTILESETS_H

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "TrainingRun.h"

namespace hostile {

constexpr double kMissing = -2147483648.0;

class Maker {
  public:
    explicit Maker(unsigned seed) : random(seed) {}

    Set Make() {
        Set set;
        static const char* const kTypes[] = {"GBDT",   "GBDT", "GBDT",
                                             "GBRank", "CART", "RandomForest"};
        CheckCfgCLS& c = set.cfg;
        c.modelType = kTypes[Below(6)];
        c.fRegCls = "REG";
        const int numRows = 1 + (Below(8) == 0 ? Below(3) : Below(200));
        const int numColumns = 1 + Below(6);
        FillRows(set, numRows, numColumns);
        FillLabels(set);
        SetTree(c);
        if (c.modelType == "GBRank") {
            c.lossFunc = Below(2) == 0 ? "CrossEntropy" : "HingeSquareRank";
            c.randomMode = Below(2) == 0 ? "DOC" : "QUERY";
        } else if (c.modelType == "GBDT") {
            static const char* const kLosses[] = {"Square", "Logistic", "HingeSquare",
                                                  "Exponential"};
            c.lossFunc = kLosses[fSigns ? Below(4) : 0];
        }
        return set;
    }

    // Settings and data for a forest or a single classification tree; at most mostRows rows.
    Set MakeListed(int mostRows) {
        Set set;
        CheckCfgCLS& c = set.cfg;
        const bool fClasses = Below(2) == 0;
        c.modelType = fClasses && Below(2) == 0 ? "CART" : "RandomForest";
        c.fRegCls = fClasses ? "CLS" : "REG";
        FillRows(set, 1 + Below(mostRows), 1 + Below(8));
        if (fClasses) {
            FillClasses(set, 2 + Below(5));
        } else {
            FillLabels(set);
        }
        SetTree(c);
        return set;
    }

    // Settings and data for boosted trees on columns of all kinds; with `fWeights`, weighted rows.
    Set MakeLarger(int numRows, bool fWeights = false) {
        Set set;
        set.cfg.modelType = fWeights ? "GBRank" : "GBDT";
        set.cfg.lossFunc = fWeights ? "CrossEntropy" : "Square";
        FillRows(set, numRows, 7);
        FillLabels(set);
        SetTree(set.cfg);
        set.cfg.fRegCls = "REG";
        set.cfg.numTree = 3;
        set.cfg.maxDepth = 6;
        set.cfg.maxLeaf = Below(2) == 0 ? 64 : 20;
        return set;
    }

  private:
    void FillRows(Set& set, int numRows, int numColumns) {
        set.rows.assign(static_cast<size_t>(numRows), VecDle(static_cast<size_t>(numColumns)));
        for (int column = 0; column < numColumns; ++column) FillColumn(set.rows, column);
    }

    void SetTree(CheckCfgCLS& c) {
        c.numTree = 1 + Below(4);
        c.maxDepth = 1 + Below(6);
        c.maxLeaf = 1 + Below(20);
        c.numBound = 1 + Below(6);
        c.ratio = Below(2) == 0 ? 1.0 : 0.6;
        c.valSmpRt = Below(2) == 0 ? 1.0 : 0.7;
        c.valShrink = Below(2) == 0 ? 0.1 : 1.0;
        c.numThread = Below(3) == 0 ? 3 : 1;
        c.fSetThread = true;
        c.fileModel = "/dev/null";
    }

    int Below(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }
    double Normal() { return std::normal_distribution<double>()(random); }

    void FillColumn(VecVecDle& rows, int column) {
        const int kind = Below(14);
        const size_t at = static_cast<size_t>(column);
        const size_t other = column > 0 ? static_cast<size_t>(Below(column)) : 0;
        const double scale = std::pow(10.0, Below(7) == 0 ? Below(600) - 300 : 0);
        const double base = Normal();
        for (VecDle& row : rows) {
            switch (column == 0 ? kind % 9 : kind) {
                case 0:
                    row[at] = Normal() * scale;
                    break;
                case 1:
                    row[at] = Below(3);
                    break;
                case 2:
                    row[at] = Below(40) * 0.25 - 5;
                    break;
                case 3:
                    row[at] = Below(4) == 0 ? Normal() : kMissing;
                    break;
                case 4:
                    row[at] = Below(2) == 0 ? -0.0 : Below(2);
                    break;
                case 5:
                    row[at] = base + Below(60) * 4e-11;
                    break;  // chains of close values
                case 6:
                    row[at] = Step(base, Below(5));
                    break;  // adjacent doubles
                case 7:
                    row[at] = Infinity(Below(12));
                    break;
                case 8:
                    row[at] = 7;
                    break;
                case 9:
                    row[at] = row[other];
                    break;  // duplicate
                case 10:
                    row[at] = -row[other];
                    break;  // mirrored
                case 11:
                    row[at] = row[other] * 1e-12;
                    break;  // same ranks, other gaps
                case 12:
                    row[at] = 1 - row[other];
                    break;
                default:
                    row[at] = row[other] + Normal() * 1e-9;
                    break;
            }
        }
    }

    // Every class occurs, if there are enough rows.
    void FillClasses(Set& set, int numClasses) {
        const int noise = Below(3) * 3;
        for (const VecDle& row : set.rows) {
            const int rows = static_cast<int>(set.labels.size());
            const int seen = row[0] > 0.2 ? numClasses - 1 : row[0] < -0.5 ? 1 : 0;
            const int cls = Below(10) < noise ? Below(numClasses) : seen;
            set.labels.push_back(rows < numClasses ? rows : cls);
        }
    }

    static double Step(double from, int steps) {
        for (; steps > 0; --steps) from = std::nextafter(from, 1e308);
        return from;
    }

    double Infinity(int choice) {
        constexpr double kInf = std::numeric_limits<double>::infinity();
        if (choice < 3) return choice == 0 ? kInf : choice == 1 ? -kInf : 1.7e308;
        return choice == 3 ? -1.7e308 : Normal();
    }

    void FillLabels(Set& set) {
        const int kind = Below(8);
        const double scale = std::pow(10.0, Below(27) - 14);
        fSigns = kind == 0;
        int query = 0;
        for (const VecDle& row : set.rows) {
            double label = Normal();
            if (kind == 0) label = Below(2) * 2 - 1;
            if (kind == 1) label = Below(4);
            if (kind == 2) label = 3.5;
            if (kind == 3) label *= scale;
            if (kind == 4 && Below(30) == 0) label = 1e5;
            if (kind >= 5 && std::isfinite(row[0])) label += row[0] > 0 ? 2 : 0;
            if (set.cfg.modelType == "GBRank") label = Below(4);
            set.labels.push_back(label);
            if (!set.queries.empty() && Below(9) == 0) ++query;
            set.queries.push_back(query);
        }
    }

    std::mt19937 random;
    bool fSigns = false;
};

}  // namespace hostile

#endif  // SYLVORA_TESTS_DIFFERENTIAL_HOSTILESETS_H
