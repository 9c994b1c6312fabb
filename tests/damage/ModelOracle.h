// An independent reader of model files, which shares only the format with the library. It says
// whether a damaged file must load, and what its ensemble scores.
#ifndef SYLVORA_TESTS_DAMAGE_MODELORACLE_H
#define SYLVORA_TESTS_DAMAGE_MODELORACLE_H

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "god.h"

namespace sylvora::tests {

class ModelOracle {
  public:
    explicit ModelOracle(const std::string& text) {
        std::istringstream in(text);
        fLoads = Read(in);
        const bool fShrinks = std::all_of(groupV.begin(), groupV.end(), [](const Group& group) {
            return std::isfinite(group.shrink);
        });
        fScores = fLoads && fShrinks && !groupV.empty() && dimFea > 0 && !in.eof();
        for (const Group& group : groupV) {
            for (const Tree& tree : group.treeV) fScores = fScores && IsTree(tree);
        }
    }

    // Whether the file must load, and whether the loaded model must be able to score.
    bool Loads() const { return fLoads; }
    bool Scores() const { return fScores; }
    bool HasGroups() const { return !groupV.empty(); }
    int DimFea() const { return dimFea; }
    const std::vector<double>& Thresholds() const { return thresholdV; }

    // With `fMajority` a group's vote ends at an absolute majority. Throws if a walk takes more
    // steps than its tree has nodes.
    double Score(const double* row, bool fMajority) const {
        double result = 0.0;
        std::map<int, long> countM;
        long highest = 0;
        for (const Group& group : groupV) {
            const double numTrees = static_cast<double>(group.treeV.size());
            double sum = 0.0;
            double winner = 0.0;
            for (const Tree& tree : group.treeV) {
                const double value = Walk(tree, row);
                sum += value;
                if (numClass == 0) continue;
                const long count = ++countM[static_cast<int>(value)];
                const bool fDecided = fMajority && static_cast<double>(count) > numTrees * 0.5;
                if (fDecided || count > highest) winner = value;
                if (fDecided) break;
                highest = std::max(highest, count);
            }
            result += group.shrink * (numClass == 0 ? sum / numTrees : winner);
        }
        return result;
    }

  private:
    struct Node {
        std::string status;
        int splitFea = -9, lson = -9, rson = -9;
        double threshold = 0.0, value = 0.0;
    };
    typedef std::vector<Node> Tree;
    struct Group {
        float shrink = 0.0f;
        std::vector<Tree> treeV;
    };

    bool Read(std::istream& in) {
        int numGroups = 0;
        std::string word;
        if (in.peek() == std::istream::traits_type::eof()) return false;
        in >> numGroups >> numClass >> dimFea;
        if (numGroups < 0 || numClass < 0 || dimFea < 0) return false;
        double real = 0.0;
        int integer = 0;
        in >> real >> real >> integer >> integer >> integer >> real >> word >> word >> word;
        for (int j = 0; j < dimFea && in; ++j) in >> real;
        for (int g = 0; g < numGroups; ++g) {
            if (!ReadGroup(in)) return false;
        }
        return true;
    }

    bool ReadGroup(std::istream& in) {
        std::string words[3];
        int number = 0, numTrees = -1;
        double shrink = 0.0;
        in >> words[0] >> number >> words[1] >> numTrees >> words[2] >> shrink;
        if (words[0] != "idxTreeArray:" || words[1] != "size:" || words[2] != "shrink:")
            return false;
        groupV.emplace_back();
        groupV.back().shrink = static_cast<float>(shrink);
        for (int t = 0; t < numTrees; ++t) {
            int depth = 0, numNodes = -1;
            in >> depth >> numNodes;
            groupV.back().treeV.emplace_back();
            for (int n = 0; n < numNodes; ++n) {
                if (!ReadNode(in, groupV.back().treeV.back())) return false;
            }
            if (numNodes < 0) return false;
        }
        return numTrees >= 0;
    }

    bool ReadNode(std::istream& in, Tree& tree) {
        Node node;
        int number = 0;
        std::string value;
        in >> number >> node.status >> node.splitFea >> node.threshold >> node.lson >> node.rson >>
            value;
        const bool fStatus = node.status == "INTERMEDIATE" || node.status == "TERMINAL";
        if (!fStatus || node.splitFea < -1 || node.splitFea >= dimFea) return false;
        if (value.find('\0') != std::string::npos) return false;
        if (!TryStrToDouble(value.c_str(), node.value)) return false;
        if (numClass > 0 && node.value >= numClass && node.value < 2147483648.0) return false;
        tree.push_back(node);
        thresholdV.push_back(node.threshold);
        return true;
    }

    bool IsLeaf(const Node& node) const { return node.status == "TERMINAL"; }

    // Checks that every node has at most one parent, which comes before it, so that no walk visits
    // a node twice.
    bool IsTree(const Tree& tree) const {
        std::vector<int> childV;
        for (size_t k = 0; k < tree.size(); ++k) {
            const Node& node = tree[k];
            if (IsLeaf(node)) {
                if (numClass > 0 && !(node.value > -1.0 && node.value < numClass)) return false;
                continue;
            }
            const auto [low, high] = std::minmax(node.lson, node.rson);
            if (node.splitFea < 0 || low <= static_cast<int>(k)) return false;
            if (high >= static_cast<int>(tree.size())) return false;
            childV.insert(childV.end(), {node.lson, node.rson});
        }
        std::sort(childV.begin(), childV.end());
        return !tree.empty() && std::adjacent_find(childV.begin(), childV.end()) == childV.end();
    }

    double Walk(const Tree& tree, const double* row) const {
        size_t at = 0;
        for (size_t step = 0; step < tree.size(); ++step) {
            const Node& node = tree[at];
            if (IsLeaf(node)) return node.value;
            const int next = row[node.splitFea] <= node.threshold ? node.lson : node.rson;
            at = static_cast<size_t>(next);
        }
        throw std::logic_error("a walk has more steps than its tree has nodes");
    }

    bool fLoads = false;
    bool fScores = false;
    int numClass = 0;
    int dimFea = 0;
    std::vector<Group> groupV;
    std::vector<double> thresholdV;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_DAMAGE_MODELORACLE_H
