// Writing and reading the block behind a model, which has a ModelDescription; its grammar is in
// BlockWriter.cpp. Whether a description fits its model is checked elsewhere
// (TreeLearner/Description.h). All functions throw std::bad_alloc.
#ifndef SYLVORA_MODELTEXT_BLOCK_H
#define SYLVORA_MODELTEXT_BLOCK_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "../ModelText.h"
#include "TextSum.h"

namespace sylvora {

constexpr std::string_view kBlockBegin = "[description]";
constexpr std::string_view kBlockEnd = "[end]";

// Writes a block without its last line. `before` is the sum of the text before the block.
// `treeSizeV` has the number of nodes of each tree; if there are covers, these numbers add up to
// their number. Errors stay in the state of `out`.
void WriteBlock(std::ostream& out, const ModelDescription& description, const TextSum& before,
                const std::vector<size_t>& treeSizeV);
// The last line of a block whose other lines have the sum `lines`.
std::string BlockEndLine(const TextSum& lines);

// The position in `rest`, the text after the last node of a model, at which a block begins, whole
// or not; npos if there is no sign of a block.
size_t FindBlock(std::string_view rest);
// Reads the block that `text` begins with; nothing may follow it. `before` is the sum of the text
// before it. Returns an empty string, or what is wrong as the end of a sentence that begins with
// "The description". `description` must be empty; a failure can leave something in it.
std::string ReadBlock(std::string_view text, const TextSum& before, ModelDescription& description);

}  // namespace sylvora

#endif  // SYLVORA_MODELTEXT_BLOCK_H
