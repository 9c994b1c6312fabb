// Checkpoints: the state of a training between two rounds of boosting, or two trees of a forest, in
// a file from which another process goes on.
//
//   file  = head body sum
//   head  = "sylvora checkpoint " version LF { name " " value LF } LF
//   body  = the state; see Body.h
//   sum   = 32 hexadecimal digits LF
//
// The head says what the training depends on, its fingerprint: a training goes on only from a file
// with the fingerprint of its own. `sum` is the digest of all bytes before it and of
// their number. See docs/formats.md.
#ifndef SYLVORA_CHECKPOINT_CHECKPOINT_H
#define SYLVORA_CHECKPOINT_CHECKPOINT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "../Libdef.h"
#include "../god/RandomGenerator.h"
#include "engine/score/PackedTrees.h"

namespace sylvora {

// What the model of a training depends on: names without blanks, and values; both without control
// characters.
typedef std::vector<std::pair<std::string, std::string>> Fingerprint;

// The state beside the arrays.
struct CheckpointState {
    long numDone = 0;          // rounds of boosting, or trees of a forest
    GeneratorState generator;  // with the state word of slot 0
    long sharedStart = 0;      // the state word of all other slots, before the first tree
    long sharedWord = 0;       // and now
    double dynShrink = 1.0;
};

// A checkpoint to write. Borrows its arrays.
struct CheckpointView {
    const Fingerprint& fingerprint;
    const CheckpointState& state;
    const double* predictV;  // numPredictions entries: one per row or, of a forest, none
    size_t numPredictions;
    const VecFt& shrinkV;  // one per group
    const engine::PackedTrees& trees;
};

// A checkpoint that was read. Owns its arrays.
struct Checkpoint {
    Fingerprint fingerprint;
    CheckpointState state;
    VecDle predictV;
    VecFt shrinkV;
    engine::PackedTrees trees;
};

// Replaces the file as a whole. Returns "" or, if it could not be written, a message of one line;
// an older file is then left as it was. The bytes depend on the checkpoint only.
[[nodiscard]] std::string WriteCheckpoint(const std::string& path, const CheckpointView& view);

// Reads the head only, which takes the same time for a file of any size: whether this is a
// checkpoint that this library reads, and of which training. Damage behind the head is not found.
// Without a file, `fingerprint` stays empty. Returns "" or what is wrong, as the rest of a sentence
// that begins with the file. Throws std::bad_alloc.
[[nodiscard]] std::string ReadCheckpointHead(const std::string& path, Fingerprint& fingerprint);

// As the rest of a sentence that begins with the file.
constexpr char kDamagedCheckpoint[] = "is damaged or not complete; remove it to begin again";

// Reads all bytes of a file. Returns and throws as above.
[[nodiscard]] std::string ReadCheckpointBytes(const std::string& path, std::string& bytes);

// Whether the bytes are those that were written: their digest fits.
[[nodiscard]] bool IsWholeCheckpoint(const std::string& bytes);

// Checks the bytes of a file and takes the checkpoint from them: every changed, missing or added
// byte is found, trees can be walked on rows of `numColumns` values, and the generator can be drawn
// from. Returns and throws as above.
[[nodiscard]] std::string ParseCheckpoint(const std::string& bytes, int numColumns,
                                          Checkpoint& checkpoint);

// A difference between two fingerprints: the name of an entry and its values, "none" where there is
// no such entry. An empty name: they are equal.
struct Difference {
    std::string name, inFile, own;
};

// The first difference between the fingerprint of a file and a training's own.
[[nodiscard]] Difference FirstDifference(const Fingerprint& file, const Fingerprint& own);

}  // namespace sylvora

#endif  // SYLVORA_CHECKPOINT_CHECKPOINT_H
