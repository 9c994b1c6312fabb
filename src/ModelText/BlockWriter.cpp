// Writing the block behind a model. Its grammar:
//
//   block   = "[description] 1" LF
//             "model " sum LF                   of all text before the block
//             { "column " text LF }             none, or one per column
//             { "class " text LF }              none, or one per class
//             [ "link " text LF ]
//             [ "missing " text LF ]
//             [ "bestRound " number LF ]        from 1
//             { "setting " text " " text LF }   parameter and value
//             { "cover" { " " number } LF }     none, or one line per tree: the rows of each node
//             "[end] " sum LF                   of the other lines of the block; ends the text
//   sum     = bytes " " checksum                decimal; CRC-32 in eight digits of 0-9 and a-f
//   text    = { byte | escape }
//   escape  = "\\" | "\x" digit digit           a backslash; any byte, in digits of 0-9 and a-f
//
// A text is written with escapes for backslashes, for bytes below 32 and for byte 127, and in the
// name of a parameter also for blanks. So no line but the first and the last begins with "[". The
// block begins at the beginning of a line; a line feed is written before it if the debug report has
// none at its end.
//
// Later versions: a reader skips lines that begin with a word that it does not know, so new lines
// need no new version. Version 1 ends where old readers would read a block wrongly. The first line,
// up to the version, and the last line are the same in all versions.
#include <ostream>

#include "Block.h"

namespace sylvora {
namespace {

// The text with escapes; with `fWord`, blanks are escaped, too.
std::string Escaped(std::string_view text, bool fWord) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string escaped;
    for (const char c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            escaped += "\\\\";
        } else if (byte < 32 || byte == 127 || (fWord && c == ' ')) {
            escaped += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]};
        } else {
            escaped += c;
        }
    }
    return escaped;
}

void WriteLine(std::ostream& out, const char* key, std::string_view text) {
    constexpr bool kWord = false;
    out << key << ' ' << Escaped(text, kWord) << '\n';
}

void WriteCovers(std::ostream& out, const std::vector<int>& coverV,
                 const std::vector<size_t>& treeSizeV) {
    size_t first = 0;
    for (const size_t size : treeSizeV) {
        out << "cover";
        for (size_t k = 0; k < size; ++k) out << ' ' << coverV[first + k];
        out << '\n';
        first += size;
    }
}

}  // namespace

void WriteBlock(std::ostream& out, const ModelDescription& description, const TextSum& before,
                const std::vector<size_t>& treeSizeV) {
    out << kBlockBegin << " 1\nmodel " << before.Figures() << '\n';
    for (const std::string& name : description.columnV) WriteLine(out, "column", name);
    for (const std::string& name : description.classV) WriteLine(out, "class", name);
    if (!description.link.empty()) WriteLine(out, "link", description.link);
    if (!description.missing.empty()) WriteLine(out, "missing", description.missing);
    if (description.bestRound > 0) out << "bestRound " << description.bestRound << '\n';
    for (const auto& [name, value] : description.settingV) {
        constexpr bool kWord = true;
        out << "setting " << Escaped(name, kWord);
        WriteLine(out, "", value);
    }
    if (!description.coverV.empty()) WriteCovers(out, description.coverV, treeSizeV);
}

std::string BlockEndLine(const TextSum& lines) {
    return std::string(kBlockEnd) + ' ' + lines.Figures() + '\n';
}

}  // namespace sylvora
