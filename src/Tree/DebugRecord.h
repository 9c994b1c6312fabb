// What a growing tree writes to the debug report.
//
//   block   = number of split nodes LF
//             { sampled column " " ... LF }                                    per split node
//             { column " " threshold " " score " " value " " rows LF }         per split node
#ifndef SYLVORA_TREE_DEBUGRECORD_H
#define SYLVORA_TREE_DEBUGRECORD_H

#include <iosfwd>
#include <vector>

#include "../Libdef.h"
#include "../Node.h"

namespace sylvora {

// Records the split nodes of one tree, in split order, and adds to the totals per column. The
// record itself belongs to the tree; this frees it.
class DebugRecord {
  public:
    // `total` may be null: then no totals are kept.
    DebugRecord(single_tree_debuginfo_t*& treeRecord, fea_debuginfo_t* total);
    ~DebugRecord();
    DebugRecord(const DebugRecord&) = delete;
    DebugRecord& operator=(const DebugRecord&) = delete;

    // Allocates room for `numSplit` split nodes of `numSampled` columns; 0, or -1 with a message.
    [[nodiscard]] int Allocate(int numSplit, int numSampled);
    // Adds a split node with its sampled columns and the score of its cut. Nodes beyond the room
    // are not recorded.
    void Add(const NodeCR& node, const std::vector<int>& selFeaV, double criteria);
    // Writes the block of a tree with `countInter` split nodes.
    void Write(std::ostream& out, int countInter) const;

  private:
    single_tree_debuginfo_t*& record;
    fea_debuginfo_t* totals;
    int numRoom = 0;
    int numRecorded = 0;
    int numColumns = 0;
};

}  // namespace sylvora

#endif  // SYLVORA_TREE_DEBUGRECORD_H
