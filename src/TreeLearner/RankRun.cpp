// Checks and exchanges of a training by several ranks; see RankRun.h.
#include "RankRun.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "../Checkpoint/Digest.h"
#include "../god/RandomGenerator.h"
#include "../god/Report.h"
#include "EnsembleView.h"
#include "RunCheckpoint.h"
#include "TrainingRows.h"
#include "base/Chunks.h"
#include "base/WorkerPool.h"
#include "engine/train/RankedWalk.h"

using sylvora::Digest;
using sylvora::Fail;

namespace {

// A digest as words that can be exchanged.
std::vector<uint64_t> WordsOf(const Digest& digest) {
    const std::string figures = digest.Figures();
    std::vector<uint64_t> wordV(figures.size() / sizeof(uint64_t));
    std::memcpy(wordV.data(), figures.data(), figures.size());
    return wordV;
}

template <typename Number>
void Add(const Number* values, int count, Digest& digest) {
    for (int i = 0; values != nullptr && i < count; ++i) {
        digest.AddReal(static_cast<double>(values[i]));
    }
}

void AddStream(const long* seed, Digest& digest) {
    const sylvora::GeneratorState state = sylvora::Draws::StateNow(seed);
    for (const long word : {state.word, state.secondWord, state.lastOutput}) {
        digest.Add(static_cast<uint64_t>(word));
    }
    for (const long entry : state.table) digest.Add(static_cast<uint64_t>(entry));
}

// The predictions, in pieces of fixed size that the workers share.
void AddPredictions(const double* predictV, int numRows, sylvora::WorkerPool& pool,
                    Digest& digest) {
    constexpr int kPieceRows = 1 << 15;
    const sylvora::Chunks pieces = {numRows, kPieceRows};
    std::vector<Digest> pieceV(static_cast<size_t>(pieces.Num()));
    pool.For(pieces.Num(), [&](int piece, int) {
        Digest own;
        Add(predictV + pieces.Begin(piece), pieces.End(piece) - pieces.Begin(piece), own);
        pieceV[static_cast<size_t>(piece)] = own;
    });
    for (const Digest& piece : pieceV) digest.Add(piece);
}

}  // namespace

int TreeLearner::RankRun::Begin() {
    if (CheckStart() != 0) return -1;
    // Every rank computed the means of its own columns.
    double* const meanV = learner.featureMean;
    const std::vector<double> allV =
        GatherColumns(std::vector<double>(meanV, meanV + learner.dimFea));
    std::copy(allV.begin(), allV.end(), meanV);
    return 0;
}

int TreeLearner::RankRun::CheckStart() {
    const bool fOffered = learner.sampleFeaType == nullptr && learner.borrowed != nullptr &&
                          ranks.NumColumns() == learner.dimFea;
    if (!All(fOffered)) {
        return Fail(
            "ERROR: A training by several ranks needs DataBorrow, an owner for every column, and "
            "no sampler of the program!\n");
    }
    Digest digest;
    for (const auto& [name, value] : RunCheckpoint::SettingsOf(learner)) {
        digest.AddText(name);
        digest.AddText(value);
    }
    digest.Add(static_cast<uint64_t>(learner.CfgInfo.fileCheckpoint.empty()));
    for (const int size : {learner.sampleSize, learner.dimFea, learner.numTree, learner.sizeGroup,
                           learner.numClass}) {
        digest.Add(static_cast<uint64_t>(size));
    }
    Add(learner.labelTrV, learner.sampleSize, digest);
    Add(learner.numPairDistinctQueV, learner.sampleSize, digest);
    Add(learner.queryIdV, learner.sampleSize, digest);
    AddStream(learner.randGenerators[0], digest);
    const int other = RankThatDiffers(WordsOf(digest));
    if (other < 0) return 0;
    return Fail("ERROR: Rank ", other,
                " has other settings, labels, weights, queries or another seed than rank 0!\n");
}

void TreeLearner::RankRun::ShareBytes(std::string& bytes) {
    const std::vector<size_t> sizeV = ranks.Gather(bytes.size());
    bytes.resize(sizeV[0]);
    ranks.Broadcast(bytes.data(), bytes.size(), 0);
}

bool TreeLearner::RankRun::All(bool fMine) {
    const std::vector<int> allV = ranks.Gather(static_cast<int>(fMine));
    return std::find(allV.begin(), allV.end(), 0) == allV.end();
}

// The first rank whose words are not those of rank 0; -1 if there is none.
int TreeLearner::RankRun::RankThatDiffers(const std::vector<uint64_t>& mineV) {
    const std::vector<uint64_t> allV = ranks.GatherEach(mineV);
    for (int rank = 1; rank < ranks.Size(); ++rank) {
        const uint64_t* const words = allV.data() + static_cast<size_t>(rank) * mineV.size();
        if (!std::equal(words, words + mineV.size(), allV.data())) return rank;
    }
    return -1;
}

int TreeLearner::RankRun::CheckStep(const char* unit, int done) {
    Digest digest;
    AddPredictions(learner.predictV, learner.sampleSize, *learner.workers, digest);
    AddStream(learner.randGenerators[0], digest);
    digest.Add(static_cast<uint64_t>(learner.sharedSeed));
    const int other = RankThatDiffers(WordsOf(digest));
    if (other < 0) return 0;
    return Fail("ERROR: After ", unit, " ", done, ", rank ", other,
                " has other predictions or random numbers than rank 0: the ranks must run the same "
                "program on the same data!\n");
}

int TreeLearner::RankRun::CheckStop(int round, bool fOver) {
    if (learner.CfgInfo.earlyStop == 0) return 0;
    Digest digest;
    digest.Add(static_cast<uint64_t>(fOver));
    digest.Add(static_cast<uint64_t>(learner.evaluationRecord.bestRound));
    const int other = RankThatDiffers(WordsOf(digest));
    if (other < 0) return 0;
    return Fail("ERROR: After round ", round, ", earlyStop has another best round at rank ", other,
                " than at rank 0: evaluation sets and metrics must be the same at all ranks!\n");
}

void TreeLearner::RankRun::FindOutputs() {
    const bool fOpen = learner.IsPacking() && learner.packedTrees->HasOpenGroup();
    const sylvora::TreeView tree = fOpen ? sylvora::TreeView(learner.packedTrees->FirstOpen())
                                         : sylvora::TreeView(*learner.TreeGroup[0]);
    std::vector<sylvora::engine::WalkSplit> splitV;
    std::vector<double> thresholdV, leafOutputV;
    for (size_t k = 0; k < tree.NumNodes(); ++k) {
        const sylvora::engine::PackedNode node = tree.Node(k);
        sylvora::engine::WalkSplit split;
        if (!node.IsLeaf()) split = {node.splitFea, node.lson, node.rson};
        splitV.push_back(split);
        thresholdV.push_back(node.splitElemFea);
        leafOutputV.push_back(node.avgPredict);
    }
    sylvora::LargeArray<int> rowV(static_cast<size_t>(learner.sampleSize));
    std::iota(rowV.begin(), rowV.end(), 0);
    outputV.resize(rowV.size());
    const sylvora::engine::Matrix values = sylvora::TrainingRows(learner);
    sylvora::engine::WalkSteps steps;
    steps.markLeft = [&](int node, const int* rows, int count, uint8_t* fLeftV) {
        const size_t at = static_cast<size_t>(node);
        for (int i = 0; i < count; ++i) {
            fLeftV[i] = values.At(rows[i], splitV[at].column) <= thresholdV[at];
        }
    };
    steps.atLeaf = [&](int leaf, const int* row, const int* end) {
        const double output = leafOutputV[static_cast<size_t>(leaf)];
        for (; row < end; ++row) outputV[static_cast<size_t>(*row)] = output;
    };
    sylvora::engine::WalkByRanks(splitV, std::move(rowV), ranks, *learner.workers, steps);
}
