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

// Whether sums come out the same whatever the order of their operands: x86-64 makes one NaN, and
// passes on those that it is given.
bool IsPlainNumber(double value) {
    static const volatile double zero = 0.0;
    const double made = zero / zero;
    return value == value || std::memcmp(&value, &made, sizeof value) == 0;
}

bool CanScore(const PackedNode& leaf, int numClass) {
    if (numClass == 0) return IsPlainNumber(leaf.avgPredict);
    const int cls = Truncate<int>(leaf.avgPredict);
    return cls >= 0 && cls < numClass;
}

// The depth of a tree; -1 if it is none: sons come after their parent and have only one.
int MeasureDepth(const EnsembleSource& source, size_t tree) {
    const PackedNode* nodes = source.Tree(tree);
    const int numNodes = static_cast<int>(source.NumNodes(tree));
    std::vector<int> depthV(source.NumNodes(tree), -1);  // -1: no way leads there
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
        for (const int son : {node.lson, node.rson}) {
            if (son <= k || son >= numNodes || depthV[static_cast<size_t>(son)] >= 0) return -1;
            depthV[static_cast<size_t>(son)] = depth + 1;
        }
    }
    return deepest;
}

class Compiler {
  public:
    explicit Compiler(const EnsembleSource& ensemble) : source(ensemble) {}

    std::unique_ptr<const CompiledEnsemble> Run(const BlockKernel& kernel);

  private:
    bool CheckGroups() const;
    bool MeasureTrees();
    void PlanSections();
    bool AddToSection(size_t tree);
    void CloseSection();
    void CutBundles();
    bool IsMostlyPadding(const Bundle& bundle) const;
    size_t NumNodes(const Bundle& bundle) const;
    size_t CodedBytes(const Bundle& bundle) const;
    double PlannedBytes() const;
    void ReserveValues();
    void PairBundles();
    bool FillBundle(Bundle& bundle);
    void FillCoded(const Bundle& bundle, size_t tree);
    void LinkChunks();
    void CutGroups();

    const EnsembleSource& source;
    std::unique_ptr<CompiledEnsemble> compiled = std::make_unique<CompiledEnsemble>();
    std::vector<int> depthV;    // by tree
    std::vector<int> sectionV;  // by tree; -1: walked
    // The section that is being planned: its trees, and thresholds by feature.
    std::vector<size_t> openTreeV;
    std::unordered_map<int, int> openCountV;
    int numOpenBands = 0;
    // Chunks of each tree, for whom addresses are known at the end only.
    std::vector<size_t> firstLeafChunkV;
    std::vector<size_t> firstJoinV;
};

std::unique_ptr<const CompiledEnsemble> Compiler::Run(const BlockKernel& kernel) {
    if (!CheckGroups() || !MeasureTrees()) return nullptr;
    compiled->kernel = &kernel;
    compiled->numClass = source.numClass;
    PlanSections();
    CutBundles();
    if (PlannedBytes() > UsableMemory()) return nullptr;
    ReserveValues();
    PairBundles();
    for (Bundle& bundle : compiled->bundleV) {
        if (!FillBundle(bundle)) return nullptr;
    }
    LinkChunks();
    CutGroups();
    return std::move(compiled);
}

bool Compiler::CheckGroups() const {
    for (const float shrink : source.shrinkV) {
        if (!IsPlainNumber(shrink)) return false;
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

// Trees of a section need not be neighbours: walked ones may lie between.
void Compiler::PlanSections() {
    sectionV.assign(source.NumTrees(), -1);
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        if (depthV[tree] > kMaxBlockDepth) continue;
        if (!AddToSection(tree)) {
            CloseSection();
            AddToSection(tree);
        }
        openTreeV.push_back(tree);
    }
    CloseSection();
}

// Counts the tree's thresholds, as if all were different; false, with nothing counted, when the
// section would have too many. A single tree always fits.
bool Compiler::AddToSection(size_t tree) {
    std::vector<int> featureV;
    PaddedTree(source.Tree(tree), depthV[tree]).ForEachTest([&](int splitFea, double) {
        featureV.push_back(splitFea);
    });
    bool fFits = true;
    for (const int splitFea : featureV) {
        const int count = openCountV[splitFea]++;
        numOpenBands += count % kBandThresholds == 0 ? 1 : 0;
        fFits &= count < ThresholdCodes::kMaxThresholds;
    }
    fFits &= numOpenBands <= kMaxBands;
    for (size_t k = 0; !fFits && k < featureV.size(); ++k) {
        const auto counted = openCountV.find(featureV[k]);
        numOpenBands -= --counted->second % kBandThresholds == 0 ? 1 : 0;
        if (counted->second == 0) openCountV.erase(counted);
    }
    return fFits;
}

// Looking up a feature costs about what is gained on a tree.
void Compiler::CloseSection() {
    if (openCountV.size() <= openTreeV.size() && !openTreeV.empty()) {
        ThresholdCodes codes;
        for (const size_t tree : openTreeV) {
            sectionV[tree] = static_cast<int>(compiled->sectionV.size());
            PaddedTree(source.Tree(tree), depthV[tree])
                .ForEachTest(
                    [&](int splitFea, double threshold) { codes.Add(splitFea, threshold); });
        }
        codes.Finish();
        compiled->sectionV.push_back(std::move(codes));
    }
    openTreeV.clear();
    openCountV.clear();
    numOpenBands = 0;
}

void Compiler::CutBundles() {
    std::vector<Bundle>& bundleV = compiled->bundleV;
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        const bool fFits = !bundleV.empty() && bundleV.back().numTrees < kBundleTrees &&
                           bundleV.back().section == sectionV[tree];
        if (!fFits) bundleV.push_back({tree, 0, sectionV[tree], kMinBlockDepth, 0, 0, 0, 0, 0});
        Bundle& bundle = bundleV.back();
        ++bundle.numTrees;
        bundle.depth = std::max(bundle.depth, depthV[tree]);
    }
    if (bundleV.empty()) bundleV.push_back({0, 0, -1, 0, 0, 0, 0, 0, 0});
    for (Bundle& bundle : bundleV) {
        if (bundle.IsCoded() && IsMostlyPadding(bundle)) bundle.section = -1;
    }
}

// Whether a coded bundle would take far more memory than its trees have nodes: a single leaf,
// padded to eight levels, has 256 of them.
bool Compiler::IsMostlyPadding(const Bundle& bundle) const {
    constexpr size_t kMostPadding = 12;
    return CodedBytes(bundle) > kMostPadding * sizeof(PackedNode) * NumNodes(bundle);
}

size_t Compiler::NumNodes(const Bundle& bundle) const {
    size_t numNodes = 0;
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        numNodes += source.NumNodes(tree);
    }
    return numNodes;
}

// At most: the tests of a bundle that has no neighbour, leaf values, and the programs of its trees,
// which have no more chunks than positions for them, nor than nodes and the leaves' continuations.
size_t Compiler::CodedBytes(const Bundle& bundle) const {
    const size_t numLeaves = size_t{1} << bundle.depth;
    size_t numChunks = 0;
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        numChunks += std::min(numLeaves >> 2, 2 * source.NumNodes(tree));
    }
    const size_t numTrees = static_cast<size_t>(bundle.numTrees);
    return numLeaves * (sizeof(RowTests) + numTrees * sizeof(double)) +
           numChunks * sizeof(JoinChunk);
}

// Memory that the compiled form will take; arrays that grow hold up to twice what they need, beside
// the copy that they came from.
double Compiler::PlannedBytes() const {
    double bytes = 0.0;
    for (const Bundle& bundle : compiled->bundleV) {
        constexpr double kGrowing = 3.0;
        const double needed = bundle.IsCoded()
                                  ? static_cast<double>(CodedBytes(bundle))
                                  : static_cast<double>(NumNodes(bundle)) *
                                        static_cast<double>(sizeof(WalkNode) + sizeof(double));
        bytes += kGrowing * needed;
    }
    return bytes;
}

// The arrays that are long, in one piece.
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

// What no tree takes up leads to the left.
void Compiler::PairBundles() {
    size_t numTests = 0;
    const Bundle* first = nullptr;  // whose other lanes are free
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

bool Compiler::FillBundle(Bundle& bundle) {
    bundle.firstLeaf = compiled->leafValueV.size();
    for (size_t tree = bundle.firstTree; tree < bundle.EndTree(); ++tree) {
        uint32_t root = 0;
        firstLeafChunkV.push_back(compiled->leafChunkV.size());
        firstJoinV.push_back(compiled->joinV.size());
        if (bundle.IsCoded()) {
            FillCoded(bundle, tree);
        } else if (!compiled->walked.Append(source.Tree(tree), source.NumNodes(tree), root)) {
            return false;
        }
        compiled->rootV.push_back(root);
    }
    return true;
}

void Compiler::FillCoded(const Bundle& bundle, size_t tree) {
    const ThresholdCodes& codes = compiled->sectionV[static_cast<size_t>(bundle.section)];
    const PaddedTree padded(source.Tree(tree), bundle.depth);
    padded.FillRowTests(codes, bundle.firstLane + static_cast<int>(tree - bundle.firstTree),
                        compiled->rowTestsV.data() + bundle.firstTests);
    padded.AppendValues(compiled->leafValueV);
    padded.AppendChunks(codes, compiled->leafChunkV, compiled->joinV);
}

void Compiler::LinkChunks() {
    firstLeafChunkV.push_back(compiled->leafChunkV.size());
    firstJoinV.push_back(compiled->joinV.size());
    for (size_t tree = 0; tree < source.NumTrees(); ++tree) {
        compiled->blockTreeV.push_back(
            {compiled->leafChunkV.data() + firstLeafChunkV[tree],
             compiled->joinV.data() + firstJoinV[tree],
             static_cast<int>(firstLeafChunkV[tree + 1] - firstLeafChunkV[tree]),
             static_cast<int>(firstJoinV[tree + 1] - firstJoinV[tree])});
    }
}

// Goes through groups and bundles side by side; a group without trees is a piece, without trees, of
// the bundle that is at hand.
void Compiler::CutGroups() {
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
