// Random ensembles for scoring tests, rows with difficult values, and a naive scorer that walks
// tree by tree.
#ifndef SYLVORA_TESTS_ENGINE_SCORE_RANDOMENSEMBLE_H
#define SYLVORA_TESTS_ENGINE_SCORE_RANDOMENSEMBLE_H

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "engine/score/EnsembleSource.h"
#include "god/Report.h"

namespace sylvora::tests {

inline std::string Bytes(const std::vector<double>& valueV) {
    return {reinterpret_cast<const char*>(valueV.data()), valueV.size() * sizeof(double)};
}

// How the trees of an ensemble are grown.
struct Shape {
    const char* name = "";
    size_t numGroups = 20;
    int maxDepth = 6;
    double leafShare = 0.2;  // of the nodes above maxDepth
    int dimFea = 5;
    int numValues = 1000;              // distinct thresholds of a feature; 0: extreme ones
    std::vector<size_t> groupV = {1};  // trees per group, repeated
    int numClass = 0;
    bool fSpecialValues = false;  // NaN and infinity among thresholds and values
    bool fOutliers = false;       // a few thresholds are far from all others
    bool fChain = false;          // each left child is a leaf; the deepest pair is at maxDepth
};

class RandomEnsemble {
  public:
    RandomEnsemble(const Shape& wanted, unsigned seed) : shape(wanted), random(seed) {
        source.dimFea = shape.dimFea;
        source.numClass = shape.numClass;
        for (size_t g = 0; g < shape.numGroups; ++g) {
            const size_t numTrees = shape.groupV[g % shape.groupV.size()];
            source.shrinkV.push_back(static_cast<float>(Real() - 0.3));
            for (size_t t = 0; t < numTrees; ++t) GrowTree();
            trees->EndGroup();
        }
        source.trees = trees;
    }

    engine::EnsembleSource source;

    // Values equal to thresholds, next to them, random ones, extreme ones, and NaN.
    std::vector<double> Rows(size_t numRows, size_t stride) {
        std::vector<double> valueV(numRows * stride);
        for (double& value : valueV) value = RowValue();
        return valueV;
    }

    int Below(int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); }
    double Real() { return std::uniform_real_distribution<double>()(random); }

  private:
    static constexpr double kInfinity = std::numeric_limits<double>::infinity();

    double Extreme() {
        static const double values[] = {0.0,        -0.0,     1.0,          -1.0,  kInfinity,
                                        -kInfinity, 5e-324,   1e-310,       1e300, -1e300,
                                        1.7e308,    -1.7e308, -2147483648.0};
        return values[Below(sizeof values / sizeof values[0])];
    }

    double Threshold() {
        if (shape.fSpecialValues && Below(20) == 0) return Below(2) == 0 ? std::nan("") : Extreme();
        if (shape.numValues == 0) return Below(2) == 0 ? Extreme() : Extreme() * Real();
        if (shape.fOutliers && Below(1000) == 0) return 1e300;
        return (Below(shape.numValues) - shape.numValues / 2) * 0.37;
    }

    double RowValue() {
        const int kind = Below(8);
        if (kind == 0) return std::nan("");
        if (kind == 1) return Extreme();
        if (kind == 2 || thresholdV.empty()) return (Real() - 0.5) * shape.numValues;
        const double threshold = thresholdV[random() % thresholdV.size()];
        if (kind == 3) return std::nextafter(threshold, kInfinity);
        return kind == 4 ? std::nextafter(threshold, -kInfinity) : threshold;
    }

    double LeafValue() {
        if (shape.numClass > 0) return Below(shape.numClass) + (Below(4) == 0 ? 0.5 : 0.0);
        if (shape.fSpecialValues && Below(300) == 0) return Below(2) == 0 ? kInfinity : -0.0;
        return (Real() - 0.5) * std::pow(10.0, Below(7) - 3);
    }

    void GrowTree() {
        std::vector<engine::PackedNode> nodeV(1);
        std::vector<int> depthV = {0};  // breadth first
        for (size_t k = 0; k < nodeV.size(); ++k) {
            const int depth = depthV[k];
            const bool fLeaf =
                depth == shape.maxDepth || (shape.fChain ? (k % 2 == 1) : Real() < shape.leafShare);
            const int lson = static_cast<int>(nodeV.size());
            engine::PackedNode& node = nodeV[k];
            node.fLeaf = fLeaf;
            node.splitFea = fLeaf ? -1 : Below(shape.dimFea);
            node.lson = fLeaf ? -1 : lson;
            node.rson = fLeaf ? -1 : lson + 1;
            node.splitElemFea = Threshold();
            node.avgPredict = LeafValue();
            thresholdV.push_back(node.splitElemFea);
            if (fLeaf) continue;
            nodeV.resize(nodeV.size() + 2);
            depthV.resize(nodeV.size(), depth + 1);
        }
        trees->treeV.emplace_back(nodeV.data(), nodeV.size(), 0);
    }

    Shape shape;
    std::mt19937_64 random;
    std::shared_ptr<engine::PackedTrees> trees = std::make_shared<engine::PackedTrees>();
    std::vector<double> thresholdV;  // of all nodes so far
};

inline double LeafValueOf(const engine::EnsembleSource& source, size_t tree, const double* row) {
    const engine::PackedNode* nodes = source.Tree(tree);
    const engine::PackedNode* node = nodes;
    while (!node->IsLeaf()) {
        node = nodes + (row[node->splitFea] <= node->splitElemFea ? node->lson : node->rson);
    }
    return node->avgPredict;
}

// The reference that the engine is tested against. In a classification every tree votes.
inline double ScoreOf(const engine::EnsembleSource& source, const double* row) {
    double result = 0.0;
    std::vector<int> countV(static_cast<size_t>(source.numClass), 0);
    int highest = 0;
    size_t tree = 0;
    for (size_t g = 0; g < source.shrinkV.size(); ++g) {
        const size_t numTrees = source.trees->GroupSize(g);
        double sum = 0.0;
        double winner = 0.0;
        for (size_t j = 0; j < numTrees; ++j) {
            const double value = LeafValueOf(source, tree++, row);
            sum += value;
            if (source.numClass == 0) continue;
            const int count = ++countV[static_cast<size_t>(value)];
            if (count > highest) winner = value;
            highest = std::max(highest, count);
        }
        const double mean = sum / static_cast<double>(numTrees);
        result += source.shrinkV[g] * (source.numClass == 0 ? mean : winner);
    }
    return result;
}

// The ensemble as a model file, with all digits of each number.
inline std::string ModelText(const engine::EnsembleSource& source) {
    std::ostringstream out;
    out.precision(17);
    out << source.shrinkV.size() << ' ' << source.numClass << ' ' << source.dimFea
        << "\n1 1 64 6 5 0 Square DOC GBDT\n";
    for (int j = 0; j < source.dimFea; ++j) out << "0 ";
    size_t tree = 0;
    for (size_t g = 0; g < source.shrinkV.size(); ++g) {
        out << "\nidxTreeArray: " << g << " size: " << source.trees->GroupSize(g)
            << " shrink: " << source.shrinkV[g];
        for (size_t j = 0; j < source.trees->GroupSize(g); ++j, ++tree) {
            out << "\n0 " << source.NumNodes(tree);
            for (size_t k = 0; k < source.NumNodes(tree); ++k) {
                const engine::PackedNode& node = source.Tree(tree)[k];
                out << '\n'
                    << k << (node.IsLeaf() ? " TERMINAL " : " INTERMEDIATE ") << node.splitFea
                    << ' ' << node.splitElemFea << ' ' << node.lson << ' ' << node.rson << ' '
                    << node.avgPredict;
            }
        }
    }
    return out.str() + "\n";
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_ENGINE_SCORE_RANDOMENSEMBLE_H
