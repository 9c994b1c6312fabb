// The part of the debug report that describes one tree.
//
//   block   = number of split nodes LF
//             { sampled column " " ... LF }                                    per split node
//             { column " " threshold " " score " " value " " rows LF }         per split node
//
// Columns are 0-based; -1 stands for an empty slot of the sample.
#ifndef SYLVORA_TREE_DEBUGRECORD_H
#define SYLVORA_TREE_DEBUGRECORD_H

#include <iosfwd>
#include <vector>

#include "../Libdef.h"
#include "../Node.h"

namespace sylvora {

// Records the split nodes of one tree, in the order of the splits, and adds to the totals per
// column. The tree has the pointer to the record; this class allocates and frees what it points to.
// Not safe for concurrent use. Several trees may share the totals only if they grow one by one.
class DebugRecord {
  public:
    // Both arguments are borrowed. `total` may be null: no totals are then kept.
    DebugRecord(single_tree_debuginfo_t*& treeRecord, fea_debuginfo_t* total);
    ~DebugRecord();
    DebugRecord(const DebugRecord&) = delete;
    DebugRecord& operator=(const DebugRecord&) = delete;

    // Allocates the record for `numSplit` split nodes with `numSampled` sampled columns each.
    // Without this call only totals are kept. Returns 0, or -1 after a message.
    [[nodiscard]] int Allocate(int numSplit, int numSampled);
    // Adds a split node with its sampled columns and the score of its split. Nodes beyond the
    // allocated number only count in the totals.
    void Add(const NodeCR& node, const std::vector<int>& selFeaV, double criteria);
    // Replaces the values of the split nodes in the record by those of `nodeV`, all nodes of the
    // tree.
    void UpdateValues(const std::vector<NodeCR*>& nodeV);
    // Writes the block of a tree with `countInter` split nodes.
    void Write(std::ostream& out, int countInter) const;

  private:
    single_tree_debuginfo_t*& record;
    fea_debuginfo_t* totals;
    int numAllocated = 0;  // split nodes that the record can hold
    int numRecorded = 0;   // split nodes in the record
    int numColumns = 0;    // sampled columns per split node
};

}  // namespace sylvora

#endif  // SYLVORA_TREE_DEBUGRECORD_H
