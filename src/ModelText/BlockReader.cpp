// Reading the block behind a model; its grammar is in BlockWriter.cpp. The last line is checked
// first, so that a damaged block is never read. What is checked afterwards only another writer can
// have got wrong.
#include <algorithm>
#include <charconv>
#include <utility>

#include "../god/Report.h"
#include "Block.h"

namespace sylvora {
namespace {

bool BeginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// Takes the text up to the first `end`, and the `end`, from the front of `text`. Without one, takes
// everything.
std::string_view TakeTo(char end, std::string_view& text) {
    const size_t size = std::min(text.find(end), text.size());
    const std::string_view taken = text.substr(0, size);
    text.remove_prefix(std::min(size + 1, text.size()));
    return taken;
}

// The value of a hexadecimal digit, -1 for any other character.
int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Replaces the escapes of `text`. Returns false for one that does not exist.
bool Unescape(std::string_view text, std::string& plain) {
    plain.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            plain += text[i];
        } else if (BeginsWith(text.substr(i), "\\\\")) {
            plain += text[++i];
        } else {
            if (text.size() - i < 4 || text[i + 1] != 'x') return false;
            const int high = DigitValue(text[i + 2]);
            const int low = DigitValue(text[i + 3]);
            if (high < 0 || low < 0) return false;
            plain += static_cast<char>(high * 16 + low);
            i += 3;
        }
    }
    return true;
}

// Converts a text that is nothing but a number of at least `least`.
bool ReadCount(std::string_view text, int least, int& count) {
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, count);
    return error == std::errc() && end == last && count >= least;
}

bool ReadSetting(std::string_view line, ModelDescription& description) {
    auto& [name, value] = description.settingV.emplace_back();
    if (line.find(' ') == std::string_view::npos) return false;
    return Unescape(TakeTo(' ', line), name) && Unescape(line, value);
}

bool ReadCovers(std::string_view line, ModelDescription& description) {
    while (!line.empty()) {
        if (!ReadCount(TakeTo(' ', line), 0, description.coverV.emplace_back())) return false;
    }
    return true;
}

// Reads one line between the second and the last. Returns false if it is malformed.
bool ReadField(std::string_view line, ModelDescription& description) {
    const std::string_view key = TakeTo(' ', line);
    if (key == "column") return Unescape(line, description.columnV.emplace_back());
    if (key == "class") return Unescape(line, description.classV.emplace_back());
    if (key == "link") return description.link.empty() && Unescape(line, description.link);
    if (key == "missing") return description.missing.empty() && Unescape(line, description.missing);
    if (key == "bestRound") {
        return description.bestRound == 0 && ReadCount(line, 1, description.bestRound);
    }
    if (key == "setting") return ReadSetting(line, description);
    if (key == "cover") return ReadCovers(line, description);
    return true;  // of a later version
}

// Checks the last line and removes it from `text`. Returns what is wrong.
std::string TakeEnd(std::string_view& text) {
    const size_t lineFeed = text.rfind('\n', text.size() - std::min<size_t>(text.size(), 2));
    const size_t begin = lineFeed == std::string_view::npos ? 0 : lineFeed + 1;
    const std::string_view last = text.substr(begin);
    if (!BeginsWith(last, kBlockEnd) || last.back() != '\n') {
        return "is cut off, or text follows it: its last line is not at the end";
    }
    text.remove_suffix(last.size());
    TextSum lines;
    lines.Add(text.data(), text.size());
    return last == BlockEndLine(lines) ? "" : "is damaged: it differs from its checksum";
}

// Takes the first two lines from `text`. Returns what is wrong.
std::string TakeBegin(std::string_view& text, const TextSum& before) {
    std::string_view first = TakeTo('\n', text);
    int version = 0;
    if (TakeTo(' ', first) != kBlockBegin || !ReadCount(first, 1, version)) {
        return "is damaged: its first line is missing";
    }
    if (version != 1) return Text("has version ", version, ", which needs a later library");
    if (TakeTo('\n', text) != "model " + before.Figures()) {
        return "belongs to another model, or the model has been changed or damaged";
    }
    return "";
}

}  // namespace

size_t FindBlock(std::string_view rest) {
    size_t found = std::string_view::npos;
    for (size_t lineFeed = rest.find('\n'); lineFeed != std::string_view::npos;
         lineFeed = rest.find('\n', lineFeed + 1)) {
        const std::string_view here = rest.substr(lineFeed + 1);
        // A debug report could, in theory, have the first line, so the last one counts. The last
        // line counts if the first is damaged, and a part of the first if the text was cut there.
        const bool fCutInFirst = !here.empty() && BeginsWith(kBlockBegin, here);
        const bool fEnd = BeginsWith(here, kBlockEnd) && found == std::string_view::npos;
        if (BeginsWith(here, kBlockBegin) || fEnd || fCutInFirst) found = lineFeed + 1;
    }
    return found;
}

std::string ReadBlock(std::string_view text, const TextSum& before, ModelDescription& description) {
    std::string fault = TakeEnd(text);
    if (fault.empty()) fault = TakeBegin(text, before);
    for (size_t number = 3; fault.empty() && !text.empty(); ++number) {
        if (!ReadField(TakeTo('\n', text), description)) {
            fault = Text("has an error in its line ", number);
        }
    }
    return fault;
}

}  // namespace sylvora
