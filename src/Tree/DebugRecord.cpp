// The debug record of one tree; see DebugRecord.h.
#include "DebugRecord.h"

#include <cstdlib>
#include <ostream>

#include "../god/Report.h"

namespace sylvora {
namespace {

// Zero-filled, with malloc's allocator: single_tree_debuginfo_t owns plain arrays.
template <typename Value>
int AllocateList(Value*& list, size_t numEntries, const char* name) {
    list = static_cast<Value*>(std::calloc(numEntries, sizeof(Value)));
    if (list != nullptr) return 0;
    return Fail("ERROR: Failed to allocate memory for ", name, " in debug!\n");
}

}  // namespace

DebugRecord::DebugRecord(single_tree_debuginfo_t*& treeRecord, fea_debuginfo_t* total)
    : record(treeRecord), totals(total) {}

DebugRecord::~DebugRecord() {
    // After a failed Allocate some lists are null; free ignores those.
    if (record == nullptr) return;
    std::free(record->selected_fea_list);
    std::free(record->selected_feaValue_list);
    std::free(record->avg_predict);
    std::free(record->count_doc);
    std::free(record->candidate_fea_list);
    std::free(record->sqr_crit_list);
    std::free(record);
    record = nullptr;
}

// On failure the destructor frees what has been allocated.
int DebugRecord::Allocate(int numSplit, int numSampled) {
    record = static_cast<single_tree_debuginfo_t*>(std::calloc(1, sizeof *record));
    if (record == nullptr) return Fail("ERROR: Failed to allocate memory!\n");
    numAllocated = numSplit;
    numColumns = numSampled;
    const size_t numNodes = static_cast<size_t>(numSplit);
    const size_t numCandidates = numNodes * static_cast<size_t>(numSampled);
    const bool fAllocated =
        AllocateList(record->selected_fea_list, numNodes, "selected_fea_list") == 0 &&
        AllocateList(record->selected_feaValue_list, numNodes, "selected_feaValue_list") == 0 &&
        AllocateList(record->avg_predict, numNodes, "avg_predict") == 0 &&
        AllocateList(record->count_doc, numNodes, "count_doc") == 0 &&
        AllocateList(record->candidate_fea_list, numCandidates, "candidate_fea_list") == 0 &&
        AllocateList(record->sqr_crit_list, numNodes, "sqr_crit_list") == 0;
    return fAllocated ? 0 : -1;
}

void DebugRecord::Add(const NodeCR& node, const std::vector<int>& selFeaV, double criteria) {
    if (totals != nullptr) {
        for (const int column : selFeaV) {
            if (column >= 0) ++totals->candidate_num_list[column];
        }
        ++totals->selected_num_list[node.splitFea];
        totals->crit_sum_list[node.splitFea] += criteria;
    }
    // Totals are kept even without a record (numAllocated is then 0) and beyond its capacity.
    if (numRecorded == numAllocated) return;
    // The sampled columns of split node k are the entries [k * numColumns, (k + 1) * numColumns).
    int* candidates = record->candidate_fea_list +
                      static_cast<size_t>(numRecorded) * static_cast<size_t>(numColumns);
    for (const int column : selFeaV) *candidates++ = column;
    record->selected_fea_list[numRecorded] = node.splitFea;
    record->selected_feaValue_list[numRecorded] = node.splitElemFea;
    record->sqr_crit_list[numRecorded] = criteria;
    record->count_doc[numRecorded] = node.countDoc;
    record->avg_predict[numRecorded] = node.avgPredict;
    ++numRecorded;
}

// Nodes are split in the order of the vector.
void DebugRecord::UpdateValues(const std::vector<NodeCR*>& nodeV) {
    int numUpdated = 0;
    for (const NodeCR* node : nodeV) {
        if (node->splitFea < 0 || numUpdated == numRecorded) continue;
        record->avg_predict[numUpdated++] = node->avgPredict;
    }
}

// The number of split nodes comes first, even if the record has fewer.
void DebugRecord::Write(std::ostream& out, int countInter) const {
    out << countInter << '\n';
    const int* candidate = record->candidate_fea_list;
    for (int i = 0; i < numRecorded; ++i) {
        for (int j = 0; j < numColumns; ++j) out << *candidate++ << ' ';
        out << '\n';
    }
    for (int i = 0; i < numRecorded; ++i) {
        out << record->selected_fea_list[i] << ' ' << record->selected_feaValue_list[i] << ' '
            << record->sqr_crit_list[i] << ' ' << record->avg_predict[i] << ' '
            << record->count_doc[i] << '\n';
    }
}

}  // namespace sylvora
