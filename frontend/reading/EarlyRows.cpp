// Parses the blocks of a file speculatively and joins their rows in file order.
#include "EarlyRows.h"

#include <limits>
#include <utility>

#include "TextBlocks.h"
#include "god/DataLines.h"

namespace sylvora::frontend {
namespace {

double* Resize(double* row, int width) {
    const size_t numBytes = std::max(static_cast<size_t>(width), size_t{1}) * sizeof(double);
    void* const resized = std::realloc(row, numBytes);
    if (resized == nullptr) throw std::bad_alloc();
    return static_cast<double*>(resized);
}

RowRules WithAllPairs(RowRules rules) {
    rules.line.mostPairs = std::numeric_limits<int>::max();
    return rules;
}

}  // namespace

EarlyRows::EarlyRows(const RowRules& least, double memory)
    : rules(WithAllPairs(least)), mostMemory(memory), width(std::max(least.line.dim, 0)) {}

EarlyRows::~EarlyRows() {
    Clear();
}

void EarlyRows::Begin(size_t numBlocks) {
    mostOfBlock = mostMemory / static_cast<double>(std::max(numBlocks, size_t{1}));
}

// If a row is wider than `known`, the whole block is counted before it is parsed again, so that
// each block is parsed at most twice.
DataFile::Tally EarlyRows::ScanBlock(BlockReader& reader, size_t block) {
    if (fDropped) return CountLines(reader);
    BlockRows parsed;
    const int known = width;
    if (!Parse(reader, known, parsed)) {
        parsed = {};
        reader.Restart();
        const DataFile::Tally counted = CountLines(reader);
        reader.Restart();
        const bool fTooNarrow = !rules.line.fIgnoreLarger && counted.largestId > known;
        if (!fTooNarrow || !Widen(counted) || !Parse(reader, counted.largestId, parsed)) {
            Drop();
            return counted;
        }
    }
    const DataFile::Tally tally = parsed.tally;
    Take(block, std::move(parsed));
    return tally;
}

bool EarlyRows::Parse(BlockReader& reader, int asWide, BlockRows& parsed) const {
    parsed.width = asWide;
    for (std::string_view line; reader.Next(line);) {
        ++parsed.tally.numLines;
        if (!IsBlank(line) && !ParseLine(line, reader.Text(), parsed)) return false;
    }
    parsed.tally.TakeError(reader.Error());
    return true;
}

// False for a malformed line, including one with an id above the width unless such ids are ignored.
bool EarlyRows::ParseLine(std::string_view line, std::string_view text, BlockRows& parsed) const {
    DataFile::Tally& tally = parsed.tally;
    if (!Fits(parsed.rowV.size() + 1, parsed.width)) return false;
    Row row(Resize(nullptr, parsed.width));
    RowRules asWide = rules;
    asWide.line.dim = parsed.width;
    double label = 0.0;
    LineHead head;
    if (!ParseRow(line, text, asWide.line, row.get(), label, head)) return false;
    if (!PassesFiniteCheck(asWide, label, row.get())) return false;
    ++tally.numRows;
    tally.TakeId(head.largestId);
    AddToRuns(head.queryId, tally.numLines, parsed.runV);
    parsed.counts.Add(head, tally.numLines);
    parsed.mostPairs = std::max({parsed.mostPairs, head.numPairs, head.numBeforeQuery + 1});
    parsed.labelV.push_back(label);
    parsed.rowV.push_back(std::move(row));
    return true;
}

bool EarlyRows::Fits(size_t numRows, int asWide) const {
    return static_cast<double>(sizeof(double)) * static_cast<double>(numRows) * asWide <=
           mostOfBlock;
}

// Raises the width for later blocks to that of the counted block. False if its rows do not fit into
// memory. The loop is an atomic maximum.
bool EarlyRows::Widen(const DataFile::Tally& counted) {
    const int least = counted.largestId;
    if (!Fits(static_cast<size_t>(counted.numRows), least)) return false;
    for (int known = width; known < least && !width.compare_exchange_weak(known, least);) continue;
    return true;
}

// Blocks finish in any order. Every earlier block has been started, so waitingM always empties.
void EarlyRows::Take(size_t block, BlockRows&& parsed) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (fDropped) return;
    waitingM.emplace(block, std::move(parsed));
    while (!waitingM.empty() && waitingM.begin()->first == numTaken) {
        Append(waitingM.begin()->second);
        waitingM.erase(waitingM.begin());
        ++numTaken;
    }
}

void EarlyRows::Append(BlockRows& parsed) {
    for (const double label : parsed.labelV) labels.Append(label);
    for (Row& row : parsed.rowV) {
        rows.Append(row.get());
        static_cast<void>(row.release());
    }
    for (QueryRun& run : parsed.runV) {
        run.firstLine += numLines;
        run.lastLine += numLines;
        runV.push_back(std::move(run));
    }
    counts.Add(parsed.counts, numLines);
    mostPairs = std::max(mostPairs, parsed.mostPairs);
    numLines += parsed.tally.numLines;
    if (!parsed.rowV.empty()) rangeV.push_back({rows.Size(), parsed.width});
}

void EarlyRows::Drop() {
    const std::lock_guard<std::mutex> lock(mutex);
    fDropped = true;
    Clear();
}

void EarlyRows::Clear() {
    for (size_t i = 0; i < rows.Size(); ++i) std::free(rows.Get()[i]);
    rows = {};
    labels = {};
    waitingM.clear();
    runV = {};
    rangeV = {};
}

bool EarlyRows::Satisfies(const LineRules& wanted) const {
    return !fDropped && mostPairs <= wanted.mostPairs;
}

std::vector<QueryRun> EarlyRows::MoveTo(DataSet& set, int dim, ReadingThreads& threads) {
    const auto widen = [this, dim](int range, int) {
        const size_t at = static_cast<size_t>(range);
        const int narrow = rangeV[at].width;
        if (narrow == dim) return;
        for (size_t i = at > 0 ? rangeV[at - 1].end : 0; i < rangeV[at].end; ++i) {
            double*& row = rows.Get()[i];
            row = Resize(row, dim);
            std::fill(row + narrow, row + dim, rules.line.absent);
        }
    };
    const auto isNarrow = [dim](const RowRange& range) { return range.width < dim; };
    if (std::any_of(rangeV.begin(), rangeV.end(), isNarrow)) {
        threads.For(rangeV.size()).For(static_cast<int>(rangeV.size()), widen);
    }
    const size_t numRows = rows.Size();
    set = DataSet();
    set.dimFea = dim;
    set.labelV = labels.Release();
    set.rowVV = {rows.Release().release(), {numRows}};
    set.counts = counts;
    return std::move(runV);
}

}  // namespace sylvora::frontend
