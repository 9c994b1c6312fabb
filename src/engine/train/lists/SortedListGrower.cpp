// Growing a tree on sorted lists; see SortedListGrower.h.
//
// While a level has fewer nodes than there are workers, all work together on one node after the
// other, a column each; then each takes runs of neighbouring nodes, whose stretches of the lists
// are neighbours in memory.
#include "SortedListGrower.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "engine/train/ColumnSampling.h"

namespace sylvora {
namespace engine {
namespace {

constexpr int kRunsPerWorker = 8;  // of a level, so that workers finish together
constexpr int kLeastRunRows = 512;

}  // namespace

// A node that waits to be split, then what became of it.
struct SortedListGrower::OpenNode {
    int idxNode = 0;
    SplitPoint split = {};  // column -1: stays a leaf
    GrownNode sons[2] = {};
    bool fOpenV[2] = {};
};

// The room that one worker, or the team, needs for a node.
struct SortedListGrower::Worker {
    // Calls task(index, scratch) for the indices below count.
    template <typename Task>
    void For(int count, const Task& task) {
        if (pool != nullptr) {
            pool->For(count, [&](int i, int w) { task(i, *partV[static_cast<size_t>(w)]); });
            return;
        }
        for (int i = 0; i < count; ++i) task(i, *this);
    }

    WorkerPool* pool = nullptr;  // null: it works alone
    std::vector<Worker*> partV;  // the members of a team
    NodeFacts facts;
    ScanScratch scratch;
    std::vector<const Entry*> listV;  // by slot
    std::vector<Entry> madeV;         // lists that are not kept
    ListRoom room;
    std::vector<ListCut> cutV;    // by slot
    std::vector<Entry> otherV;    // for parting a list
    std::vector<uint8_t> fLeftV;  // by place in the node: belongs left
    std::vector<int> wrongV;      // positions of misplaced rows
};

SortedListGrower::SortedListGrower(SortedColumns& rowLists, WorkerPool& workers,
                                   const GrowthLimits& growthLimits, const Tuning& figures,
                                   Criterion& cutCriterion, const ReferenceSearch& plainSearch)
    : lists(rowLists),
      pool(workers),
      limits(growthLimits),
      tuning(figures),
      criterion(cutCriterion),
      plain(plainSearch),
      team(std::make_unique<Worker>()) {
    team->pool = &pool;
    for (int w = 0; w < pool.NumWorkers(); ++w) {
        workerV.push_back(std::make_unique<Worker>());
        team->partV.push_back(workerV.back().get());
    }
}

SortedListGrower::~SortedListGrower() = default;

bool SortedListGrower::Grow(const double* targets, const int* indexV, int num, long* seed) {
    if (num == 0 || !criterion.Take(targets, indexV, num, pool)) return false;
    targetV = targets;
    TakeRows(indexV, num);
    GrownNode root;
    root.countDoc = num;
    std::vector<OpenNode> levelV, nextV;
    if (criterion.Describe(root, workerV[0]->scratch)) levelV.emplace_back();
    nodeV.assign(1, root);
    numLeaf = 1;
    while (!levelV.empty()) {
        nextV.clear();
        GrowLevel(levelV, seed, nextV);
        levelV.swap(nextV);
    }
    return true;
}

void SortedListGrower::TakeRows(const int* indexV, int num) {
    rowV.assign(indexV, indexV + num);
    toV.resize(rowV.size());
    lists.Take(indexV, num, pool);
    // Where the last tree was given up halfway, counts were left in them.
    for (const auto& worker : workerV) worker->facts.classCountV.clear();
    for (const auto& worker : workerV) worker->scratch.classCountV.clear();
    team->facts.classCountV.clear();
}

void SortedListGrower::GrowLevel(std::vector<OpenNode>& levelV, long* seed,
                                 std::vector<OpenNode>& nextV) {
    for (size_t numDone = 0; numDone < levelV.size();) {
        const size_t numBatch = limits.BatchSize(levelV.size() - numDone, numLeaf);
        OpenNode* batch = &levelV[numDone];
        numDone += numBatch;
        drawnV = DrawColumns(lists.Data().numColumns, limits.numSelFea, numBatch, seed);
        SplitBatch(batch, numBatch);
        for (size_t b = 0; b < numBatch; ++b) {
            if (batch[b].split.column < 0) continue;
            AppendSons(batch[b], nextV);
            ++numLeaf;
            if (limits.fForest || numLeaf < limits.maxLeaf) continue;
            // The limit is reached: what waits, here and in the next level, stays a leaf.
            nextV.clear();
            return;
        }
    }
}

void SortedListGrower::SplitBatch(OpenNode* batch, size_t numBatch) {
    const size_t numDrawn = drawnV.size() / numBatch;
    const auto countOf = [&](size_t b) {
        return nodeV[static_cast<size_t>(batch[b].idxNode)].countDoc;
    };
    const auto split = [&](size_t b, Worker& worker) {
        SplitNode(batch[b], drawnV.data() + b * numDrawn, worker);
    };
    const bool fTeams = pool.NumWorkers() > 1 && numBatch < 2 * workerV.size();
    int64_t numRows = 0;
    for (size_t b = 0; b < numBatch; ++b) numRows += countOf(b);
    const int64_t runRows =
        std::max<int64_t>(numRows / (kRunsPerWorker * pool.NumWorkers()), kLeastRunRows);
    std::vector<std::pair<size_t, size_t>> runV;  // of nodes for one worker
    int64_t inRun = runRows;                      // rows in the last run: none yet, so begin one
    for (size_t b = 0; b < numBatch; ++b) {
        if (fTeams && countOf(b) >= tuning.teamRows) {
            split(b, *team);
            inRun = runRows;
            continue;
        }
        if (inRun >= runRows) {
            runV.emplace_back(b, b);
            inRun = 0;
        }
        runV.back().second = b + 1;
        inRun += countOf(b);
    }
    pool.For(static_cast<int>(runV.size()), [&](int run, int worker) {
        const auto [begin, end] = runV[static_cast<size_t>(run)];
        for (size_t b = begin; b < end; ++b) split(b, *workerV[static_cast<size_t>(worker)]);
    });
}

void SortedListGrower::SplitNode(OpenNode& open, const int* columnV, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    worker.listV.resize(static_cast<size_t>(std::min(limits.numSelFea, lists.Data().numColumns)));
    const NodeLists nodeLists = {
        lists, {rowV, node.startDoc, node.countDoc}, columnV, worker.listV};
    const Decision decision = FindCut(node, nodeLists, worker);
    if (decision.winner.slot >= 0) {
        TakeCut(open, nodeLists, decision.winner, worker);
    } else if (!decision.undecidedV.empty()) {
        AskPlainForm(open, nodeLists, decision.undecidedV, worker);
    }
    if (open.split.column < 0) return;
    MakeSons(open, worker);
    if (lists.AreKept() && (open.fOpenV[0] || open.fOpenV[1])) {
        PartLists(nodeLists.rows, node.startDoc + open.split.countL, worker);
    }
}

Decision SortedListGrower::FindCut(const GrownNode& node, const NodeLists& nodeLists,
                                   Worker& worker) {
    const size_t count = static_cast<size_t>(node.countDoc);
    const size_t numSlots = worker.listV.size();
    if (!lists.AreKept()) worker.madeV.resize(std::max(worker.madeV.size(), numSlots * count));
    worker.cutV.resize(numSlots);
    criterion.Begin(node, worker.facts);
    worker.For(nodeLists.NumSlots(), [&](int slot, Worker& part) {
        const size_t s = static_cast<size_t>(slot);
        Entry* const made = lists.AreKept() ? nullptr : worker.madeV.data() + s * count;
        worker.listV[s] = lists.List(nodeLists.columnV[s], nodeLists.rows, part.room, made);
        worker.cutV[s] = criterion.Scan(nodeLists, slot, worker.facts, part.scratch);
    });
    Decision decision = criterion.Decide(nodeLists, worker.cutV, worker.facts);
    criterion.End(node, worker.facts);
    return decision;
}

// The split point of a cut that is the plain form's; the rows are moved to its sides.
void SortedListGrower::TakeCut(OpenNode& open, const NodeLists& nodeLists, const ListCut& cut,
                               Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const Entry* list = nodeLists.Of(cut.slot);
    const double low = nodeLists.Value(list[cut.countL - 1], cut.slot);
    const double high = nodeLists.Value(list[cut.countL], cut.slot);
    SplitPoint& split = open.split;
    split.column = nodeLists.columnV[cut.slot];
    split.countL = cut.countL;
    if (!split.SetThreshold(low, high)) {
        MoveByValue(node, split, worker);
        return;
    }
    worker.fLeftV.resize(static_cast<size_t>(node.countDoc));
    const uint32_t first = static_cast<uint32_t>(node.startDoc);
    for (int i = 0; i < node.countDoc; ++i) {
        worker.fLeftV[PositionOf(list[i]) - first] = i < cut.countL;
    }
    MoveRows(node, split.countL, worker);
}

void SortedListGrower::AskPlainForm(OpenNode& open, const NodeLists& nodeLists,
                                    const std::vector<int>& slotV, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    const int* const rows = rowV.data() + node.startDoc;
    std::vector<double> gradV(static_cast<size_t>(node.countDoc));
    for (size_t i = 0; i < gradV.size(); ++i) gradV[i] = targetV[rows[i]];
    open.split =
        plain.Search(node, {rows, gradV.data(), nullptr, node.countDoc}, nodeLists.columnV, slotV);
    if (open.split.column >= 0) MoveByValue(node, open.split, worker);
}

void SortedListGrower::MoveByValue(const GrownNode& node, const SplitPoint& split, Worker& worker) {
    worker.fLeftV.resize(static_cast<size_t>(node.countDoc));
    const int* const rows = rowV.data() + node.startDoc;
    for (int i = 0; i < node.countDoc; ++i) {
        const double value = lists.Data().rowV[rows[i]][split.column];
        worker.fLeftV[static_cast<size_t>(i)] = split.BelongsLeft(value, i < split.countL);
    }
    MoveRows(node, split.countL, worker);
}

// The k-th row out of place in the left part changes places with the k-th row out of place in the
// right part, as the plain form's two cursors meet them.
void SortedListGrower::MoveRows(const GrownNode& node, int countL, Worker& worker) {
    const std::vector<uint8_t>& fLeftV = worker.fLeftV;
    std::vector<int>& wrongV = worker.wrongV;
    wrongV.resize(static_cast<size_t>(node.countDoc) + 1);
    const auto list = [&](int from, int to, uint8_t fWrong, int* wrong) {
        int* const first = wrong;
        for (int i = from; i < to; ++i) {
            *wrong = node.startDoc + i;
            wrong += fLeftV[static_cast<size_t>(i)] == fWrong;
        }
        return static_cast<int>(wrong - first);
    };
    const int* left = wrongV.data();
    const int numLeft = list(0, countL, 0, wrongV.data());
    const int* right = left + numLeft;
    const int numRight = list(countL, node.countDoc, 1, wrongV.data() + numLeft);
    uint32_t* const to = toV.data() + node.startDoc;
    std::iota(to, to + node.countDoc, static_cast<uint32_t>(node.startDoc));
    // The counts differ only for a threshold that is not between its neighbours.
    for (int k = 0; k < std::min(numLeft, numRight); ++k) {
        const size_t a = static_cast<size_t>(left[k]);
        const size_t b = static_cast<size_t>(right[k]);
        std::swap(rowV[a], rowV[b]);
        std::swap(toV[a], toV[b]);
        criterion.Swap(left[k], right[k]);
    }
}

void SortedListGrower::MakeSons(OpenNode& open, Worker& worker) {
    const GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    CutSlice(node, open.split.countL, open.sons);
    worker.For(2, [&](int son, Worker& part) {
        GrownNode& made = open.sons[son];
        made.parent = open.idxNode;
        made.depth = node.depth + 1;
        const bool fTooDeep = made.depth >= limits.maxDepth && !limits.fForest;
        const bool fMixed = criterion.Describe(made, part.scratch);
        open.fOpenV[son] = fMixed && made.countDoc > limits.numBound && !fTooDeep;
    });
}

void SortedListGrower::PartLists(const NodeRows& nodeRows, int middle, Worker& worker) {
    worker.For(lists.Data().numColumns, [&](int column, Worker& part) {
        part.otherV.resize(std::max(part.otherV.size(), static_cast<size_t>(nodeRows.count) + 1));
        lists.Part(column, nodeRows, toV.data() + nodeRows.begin, middle, part.otherV.data());
    });
}

void SortedListGrower::AppendSons(const OpenNode& open, std::vector<OpenNode>& nextV) {
    GrownNode& node = nodeV[static_cast<size_t>(open.idxNode)];
    RecordSplit(open.split, static_cast<int>(nodeV.size()), node);
    for (int son = 0; son < 2; ++son) {
        if (open.fOpenV[son]) {
            nextV.emplace_back();
            nextV.back().idxNode = static_cast<int>(nodeV.size());
        }
        nodeV.push_back(open.sons[son]);
    }
}

}  // namespace engine
}  // namespace sylvora
