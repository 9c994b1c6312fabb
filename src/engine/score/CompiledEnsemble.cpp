// Compiling an ensemble; see CompiledEnsemble.h.
#include "CompiledEnsemble.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>
#include <utility>

#include "PaddedTree.h"
#include "god/Truncation.h"
#include "god/UsableMemory.h"

namespace sylvora {
namespace engine {
namespace {

// Whether the value is a number or the NaN that x86-64 arithmetic makes. Sums of such values do not
// depend on the order of the operands. Other NaNs do: the sum of two NaNs is the first operand.
bool IsNumberOrDefaultNan(double value) {
    static const volatile double zero = 0.0;
    const double made = zero / zero;
    uint64_t bits = 0, madeBits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    std::memcpy(&madeBits, &made, sizeof madeBits);
    return value == value || bits == madeBits;
}

// Whether a leaf has a usable value: a class in [0, numClass), or in a regression an output.
bool CanScore(const PackedNode& leaf, int numClass) {
    if (numClass == 0) return IsNumberOrDefaultNan(leaf.avgPredict);
    const int cls = Truncate<int>(leaf.avgPredict);
    return cls >= 0 && cls < numClass;
}

// Returns the depth of a tree; -1 if its nodes are not a valid tree that can be scored. Children
// must follow their parent, which excludes cycles, and have one parent only. Unreachable nodes are
// ignored.
int MeasureDepth(const EnsembleSource& source, size_t tree) {
    const PackedNode* nodes = source.Tree(tree);
    const int numNodes = static_cast<int>(source.NumNodes(tree));
    std::vector<int> depthV(source.NumNodes(tree), -1);  // by node; -1: not reached
    if (depthV.empty()) return -1;
    depthV[0] = 0;
    int deepest = 0;
    for (int k = 0; k < numNodes; ++k) {
        const int depth = depthV[static_cast<size_t>(k)];
        const PackedNode& node = nodes[k];
        if (depth < 0) continue;
        deepest = std::max(deepest, depth);
        if (node.IsLeaf() && !CanScore(node, source.numClass)) return -1;
        if (node.IsLeaf()) continue;
        if (node.splitFea < 0 || node.splitFea >= source.dimFea) return -1;
        for (const int child : {node.lson, node.rson}) {
            if (child <= k || child >= numNodes || depthV[static_cast<size_t>(child)] >= 0)
                return -1;
            depthV[static_cast<size_t>(child)] = depth + 1;
        }
    }
    return deepest;
}

// Compiles one ensemble; used once. The steps of Run() fill the fields of `compiled` in their
// order.
class Compiler {
  public:
    explicit Compiler(const EnsembleSource& ensemble) : source(ensemble) {}

    std::unique_ptr<const CompiledEnsemble> Run(const BlockKernel& kernel);

  private:
    bool CheckGroups() const;
    bool MeasureTrees();
    void PlanQuantisers();
    bool AddToQuantiser(size_t tree);
    void FinishQuantiser();
    void FormBundles();
    bool IsMostlyPadding(const Bundle& bundle) const;
    size_t NumNodes(const Bundle& bundle) const;
    size_t CodedBytes(const Bundle& bundle) const;
    double PlannedBytes() const;
    void ReserveValues();
    void PairBundles();
    bool FillBundle(Bundle& bundle);
    void FillCoded(const Bundle& bundle, size_t tree);
    void LinkSubtrees();
    void FormPieces();

    const EnsembleSource& source;
    std::unique_ptr<CompiledEnsemble> compiled = std::make_unique<CompiledEnsemble>();
    std::vector<int> depthV;      // by tree
    std::vector<int> quantiserV;  // by tree; -1: walked
    // The quantiser being planned: its trees, the number of thresholds by feature, and its bands.
    std::vector<size_t> openTreeV;
    std::unordered_map<int, int> openCountV;
    int numOpenBands = 0;
    // By tree: its first subtrees. Indices, because the arrays move while they grow.
    std::vector<size_t> firstLeafSubtreeV;
    std::vector<size_t> firstInnerSubtreeV;
};

std::unique_ptr<const CompiledEnsemble> Compiler::Run(const BlockKernel& kernel) {
    if (!CheckGroups() || !MeasureTrees()) return nullptr;
    compiled->kernel = &kernel;
    compiled->numClass = source.numClass;
    PlanQuantisers();
    FormBundles();
    if (PlannedBytes() > UsableMemory()) return nullptr;
    ReserveValues();
    PairBundles();
    for (Bundle& bundle : compiled->bundleV) {
        if (!FillBundle(bundle)) return nullptr;
    }
    LinkSubtrees();
    FormPieces();
    return std::move(compiled);
}

// There must be a shrink per group, and tree numbers must fit into an int.
bool Compiler::CheckGroups() const {
    for (const float shrink : source.shrinkV) {
        if (!IsNumberOrDefaultNan(shrink)) return false;
    }
    return source.shrinkV.size() == source.trees->NumGroups() &&
           source.NumTrees() < std::numeric_limits<int>::max();
}

bool Compiler::MeasureTrees() {
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        depthV.push_back(MeasureDepth(source, tree));
        if (depthV.back() < 0) return false;
    }
    return true;
}

// Assigns shallow trees to quantisers in order, a new one whenever the limits are reached. Deep
// trees, which are walked, may lie between the trees of a quantiser.
void Compiler::PlanQuantisers() {
    quantiserV.assign(source.NumTrees(), -1);
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        if (depthV[tree] > kMaxBlockDepth) continue;
        if (!AddToQuantiser(tree)) {
            FinishQuantiser();
            AddToQuantiser(tree);
        }
        openTreeV.push_back(tree);
    }
    FinishQuantiser();
}

// Adds the tree's thresholds to the counts, as if all were distinct, which is an upper bound.
// Returns false, with the counts unchanged, if the quantiser would exceed its limits. The first
// tree always fits: a tree of depth 8 has at most 255 tests.
bool Compiler::AddToQuantiser(size_t tree) {
    std::vector<int> featureV;
    PaddedTree(source.Tree(tree), depthV[tree]).ForEachTest([&](int splitFea, double) {
        featureV.push_back(splitFea);
    });
    bool fFits = true;
    for (const int splitFea : featureV) {
        const int count = openCountV[splitFea]++;
        numOpenBands += count % kBandThresholds == 0 ? 1 : 0;
        fFits &= count < RowQuantiser::kMaxThresholds;
    }
    fFits &= numOpenBands <= kMaxBands;
    for (size_t k = 0; !fFits && k < featureV.size(); ++k) {
        const auto counted = openCountV.find(featureV[k]);
        numOpenBands -= --counted->second % kBandThresholds == 0 ? 1 : 0;
        if (counted->second == 0) openCountV.erase(counted);
    }
    return fFits;
}

// Makes the planned quantiser, unless it would have more features than trees: quantising a feature
// costs about as much as coding saves on a tree. Its trees are then walked.
void Compiler::FinishQuantiser() {
    if (openCountV.size() <= openTreeV.size() && !openTreeV.empty()) {
        RowQuantiser quantiser;
        for (const size_t tree : openTreeV) {
            quantiserV[tree] = static_cast<int>(compiled->quantiserV.size());
            PaddedTree(source.Tree(tree), depthV[tree])
                .ForEachTest(
                    [&](int splitFea, double threshold) { quantiser.Add(splitFea, threshold); });
        }
        quantiser.Finish();
        compiled->quantiserV.push_back(std::move(quantiser));
    }
    openTreeV.clear();
    openCountV.clear();
    numOpenBands = 0;
}

// Fills bundles in the order of the trees. An ensemble without trees has one empty bundle, to which
// the pieces of its empty groups belong.
void Compiler::FormBundles() {
    std::vector<Bundle>& bundleV = compiled->bundleV;
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        const bool fFits = !bundleV.empty() && bundleV.back().numTrees < kBundleTrees &&
                           bundleV.back().quantiser == quantiserV[tree];
        if (!fFits) bundleV.push_back({tree, 0, quantiserV[tree], kMinBlockDepth, 0, 0, 0, 0, 0});
        Bundle& bundle = bundleV.back();
        ++bundle.numTrees;
        bundle.depth = std::max(bundle.depth, depthV[tree]);
    }
    if (bundleV.empty()) bundleV.push_back({0, 0, -1, 0, 0, 0, 0, 0, 0});
    for (Bundle& bundle : bundleV) {
        if (bundle.IsCoded() && IsMostlyPadding(bundle)) bundle.quantiser = -1;
    }
}

// Whether a coded bundle would take more than kMaxPaddingRatio times the memory of its trees'
// nodes: a single leaf, padded to eight levels, becomes 256 leaves.
bool Compiler::IsMostlyPadding(const Bundle& bundle) const {
    constexpr size_t kMaxPaddingRatio = 12;
    return CodedBytes(bundle) > kMaxPaddingRatio * sizeof(PackedNode) * NumNodes(bundle);
}

size_t Compiler::NumNodes(const Bundle& bundle) const {
    size_t numNodes = 0;
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        numNodes += source.NumNodes(tree);
    }
    return numNodes;
}

// An upper bound on what a coded bundle takes: row tests that it shares with no other bundle, leaf
// values, and the subtrees of its trees. A tree has at most as many of these as it has positions
// for them, and at most two for each node.
size_t Compiler::CodedBytes(const Bundle& bundle) const {
    const size_t numLeaves = size_t{1} << bundle.depth;
    size_t numSubtrees = 0;
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        numSubtrees += std::min(numLeaves >> 2, 2 * source.NumNodes(tree));
    }
    const size_t numTrees = static_cast<size_t>(bundle.numTrees);
    return numLeaves * (sizeof(RowTests) + numTrees * sizeof(double)) +
           numSubtrees * sizeof(InnerSubtree);
}

// The peak memory of compilation, in bytes. While an array grows, the old copy and one of twice the
// size exist together.
double Compiler::PlannedBytes() const {
    double bytes = 0.0;
    for (const Bundle& bundle : compiled->bundleV) {
        constexpr double kGrowing = 3.0;
        const double needed = bundle.IsCoded()
                                  ? static_cast<double>(CodedBytes(bundle))
                                  : static_cast<double>(NumNodes(bundle)) *
                                        static_cast<double>(sizeof(CompactNode) + sizeof(double));
        bytes += kGrowing * needed;
    }
    return bytes;
}

// Allocates the longest arrays once, at their final size.
void Compiler::ReserveValues() {
    size_t numLeaves = 0, numWalked = 0;
    for (const Bundle& bundle : compiled->bundleV) {
        if (bundle.IsCoded()) {
            numLeaves += static_cast<size_t>(bundle.numTrees) << bundle.depth;
        } else {
            numWalked += NumNodes(bundle);
        }
    }
    compiled->leafValueV.reserve(numLeaves);
    compiled->walked.Reserve(numWalked);
}

// Assigns row tests to the coded bundles, shared by the two bundles of a pair. Lanes and positions
// that no tree fills keep the test that sends every row left.
void Compiler::PairBundles() {
    size_t numTests = 0;
    const Bundle* first = nullptr;  // a coded bundle whose upper lanes are free
    for (Bundle& bundle : compiled->bundleV) {
        if (first != nullptr && first->PairsWith(bundle)) {
            bundle.firstTests = first->firstTests;
            bundle.firstLane = kBundleTrees;
            first = nullptr;
            continue;
        }
        first = bundle.IsCoded() ? &bundle : nullptr;
        bundle.firstTests = numTests;
        numTests += bundle.IsCoded() ? size_t{1} << bundle.depth : 0;
    }
    RowTests none;
    std::fill_n(none.bandV, kRowTrees, uint8_t{0});
    std::fill_n(none.testV, kRowTrees, CountByte(kAlwaysLeft));
    compiled->rowTestsV.assign(numTests, none);
}

// Fills the coded or walked form of the bundle's trees. Returns false if there are too many walked
// nodes.
bool Compiler::FillBundle(Bundle& bundle) {
    bundle.firstLeaf = compiled->leafValueV.size();
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        uint32_t root = 0;
        firstLeafSubtreeV.push_back(compiled->leafSubtreeV.size());
        firstInnerSubtreeV.push_back(compiled->innerSubtreeV.size());
        if (bundle.IsCoded()) {
            FillCoded(bundle, tree);
        } else if (!compiled->walked.Append(source.Tree(tree), source.NumNodes(tree), root)) {
            return false;
        }
        compiled->rootV.push_back(root);
    }
    return true;
}

// Appends a coded tree in both forms: lanes of row tests for the row kernel, subtrees for the block
// kernel. They share the leaf values.
void Compiler::FillCoded(const Bundle& bundle, size_t tree) {
    const RowQuantiser& quantiser = compiled->quantiserV[static_cast<size_t>(bundle.quantiser)];
    const PaddedTree padded(source.Tree(tree), bundle.depth);
    padded.FillRowTests(quantiser, bundle.firstLane + static_cast<int>(tree - bundle.firstTree),
                        compiled->rowTestsV.data() + bundle.firstTests);
    padded.AppendValues(compiled->leafValueV);
    padded.AppendSubtrees(quantiser, compiled->leafSubtreeV, compiled->innerSubtreeV);
}

// Points each tree at its subtrees. The arrays must not grow any more.
void Compiler::LinkSubtrees() {
    firstLeafSubtreeV.push_back(compiled->leafSubtreeV.size());
    firstInnerSubtreeV.push_back(compiled->innerSubtreeV.size());
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        compiled->blockTreeV.push_back(
            {compiled->leafSubtreeV.data() + firstLeafSubtreeV[tree],
             compiled->innerSubtreeV.data() + firstInnerSubtreeV[tree],
             static_cast<int>(firstLeafSubtreeV[tree + 1] - firstLeafSubtreeV[tree]),
             static_cast<int>(firstInnerSubtreeV[tree + 1] - firstInnerSubtreeV[tree])});
    }
}

// Divides groups into pieces at the ends of bundles. A group without trees becomes an empty piece
// of the current bundle.
//
// Invariant: trees [0, tree) are in pieces, and `bundle` contains `tree` or ends there.
void Compiler::FormPieces() {
    std::vector<GroupPiece>& pieceV = compiled->pieceV;
    Bundle* bundle = compiled->bundleV.data();
    size_t tree = 0;
    for (size_t g = 0; g < source.shrinkV.size(); ++g) {
        const double shrink = source.shrinkV[g];
        const size_t numGroupTrees = source.trees->GroupSize(g);
        compiled->shrinkV.insert(compiled->shrinkV.end(), numGroupTrees, shrink);
        const size_t endTree = tree + numGroupTrees;
        do {
            if (tree < endTree && tree == bundle->EndTree()) {
                bundle->endPiece = pieceV.size();
                (++bundle)->firstPiece = pieceV.size();
            }
            const size_t first = tree;
            tree = std::min(endTree, bundle->EndTree());
            const int numTrees = static_cast<int>(tree - first);
            const bool fSingle = numGroupTrees == 1;
            if (fSingle && pieceV.size() > bundle->firstPiece && pieceV.back().fSingles) {
                ++pieceV.back().numTrees;
            } else {
                pieceV.push_back({static_cast<int>(first - bundle->firstTree), numTrees, fSingle,
                                  tree == endTree, shrink, static_cast<double>(numGroupTrees)});
            }
        } while (tree < endTree);
    }
    bundle->endPiece = pieceV.size();
}

}  // namespace

std::unique_ptr<const CompiledEnsemble> CompiledEnsemble::Compile(const EnsembleSource& source,
                                                                  const BlockKernel& kernel) {
    return Compiler(source).Run(kernel);
}

}  // namespace engine
}  // namespace sylvora
