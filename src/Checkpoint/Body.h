// The body of a checkpoint, which both its writer and its reader describe with one function.
//
//   body    = state predict shrinks groups trees covers
//   state   = done word second last { table } start shared dynShrink
//   predict = count { f64 }            the prediction of each row; none of a forest
//   shrinks = count { f32 }            one per group
//   groups  = count { u64 }            by group: the number of trees up to its end
//   trees   = count { tree }
//   tree    = count i32 { node }       the depth, then the nodes, root first
//   node    = f64 f64 i32 i32 i32 i32  threshold, value, feature, two children, flags: 1 for a
//                                      leaf, 2 for a narrow split
//   covers  = count { count { i32 } }  by tree: the rows of each node, if they are known
//
// `state` has 64-bit integers, but for dynShrink, a double; the table has 32. `count` is a u64.
// Numbers are little-endian.
#ifndef SYLVORA_CHECKPOINT_BODY_H
#define SYLVORA_CHECKPOINT_BODY_H

#include <cstdint>

#include "Checkpoint.h"

namespace sylvora {

constexpr char kCheckpointName[] = "sylvora checkpoint ";
constexpr char kCheckpointVersion[] = "1";

constexpr std::uint32_t kLeafFlag = 1, kNarrowFlag = 2;

// The fields of a state in the order of the file. `State` is CheckpointState, const or not.
template <typename State, typename Visit>
void ForStateFields(State& state, const Visit& visit) {
    visit(state.numDone);
    visit(state.generator.word);
    visit(state.generator.secondWord);
    visit(state.generator.lastOutput);
    for (auto& entry : state.generator.table) visit(entry);
    visit(state.sharedStart);
    visit(state.sharedWord);
    visit(state.dynShrink);
}

}  // namespace sylvora

#endif  // SYLVORA_CHECKPOINT_BODY_H
