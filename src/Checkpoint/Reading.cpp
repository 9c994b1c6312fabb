// Reads and checks checkpoints; see Checkpoint.h. The digest finds damage. What follows it checks
// every number that memory or control depends on, so that no file can make the library misbehave.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <string_view>

#include "../god/Report.h"
#include "Body.h"
#include "Digest.h"

namespace sylvora {
namespace {

// Takes numbers from the front of some bytes. After a failure every call fails.
class Source {
  public:
    explicit Source(std::string_view bytes) : left(bytes) {}

    template <typename Number>
    void Get(Number& number) {
        if (left.size() < sizeof number) fFailed = true;
        if (fFailed) return;
        std::memcpy(&number, left.data(), sizeof number);
        left.remove_prefix(sizeof number);
    }
    template <typename Number>
    Number Next() {
        Number number = 0;
        Get(number);
        return number;
    }
    // The number of elements that follow, which take at least `size` bytes each; 0 after a failure.
    // Never more than there are bytes for.
    size_t Count(size_t size) {
        const std::uint64_t count = Next<std::uint64_t>();
        if (count > left.size() / size) fFailed = true;
        return fFailed ? 0 : static_cast<size_t>(count);
    }
    template <typename Number>
    void GetAll(std::vector<Number>& numberV) {
        numberV.resize(Count(sizeof(Number)));
        for (Number& number : numberV) Get(number);
    }
    void Fail() { fFailed = true; }
    bool IsFailed() const { return fFailed; }
    bool IsWhole() const { return !fFailed && left.empty(); }

  private:
    std::string_view left;
    bool fFailed = false;
};

// Draws stay within the table only from such a state; see RandomGenerator.cpp.
bool IsPossible(const GeneratorState& state) {
    constexpr long kBound = 1L << 31;
    constexpr long kLargestOutput = 2147483562;
    constexpr long kLargestWord = 1L << 34;
    return state.secondWord >= 0 && state.secondWord <= kLargestWord && state.lastOutput >= 0 &&
           state.lastOutput <= kLargestOutput &&
           std::all_of(state.table, state.table + GeneratorState::kTableSize,
                       [](long entry) { return entry >= 0 && entry < kBound; });
}

// Children come after their parent, and no node is a child twice, so every walk ends.
bool IsSound(const engine::PackedTree& tree, int numColumns) {
    std::vector<bool> fChildV(tree.numNodes, false);
    const auto adopt = [&](unsigned parent, int child) {
        if (child < 0) return false;
        const unsigned place = static_cast<unsigned>(child);
        if (place <= parent || place >= tree.numNodes || fChildV[place]) return false;
        fChildV[place] = true;
        return true;
    };
    for (unsigned k = 0; k < tree.numNodes; ++k) {
        const engine::PackedNode& node = tree.nodeV[k];
        if (node.fLeaf) continue;
        if (node.splitFea < 0 || node.splitFea >= numColumns) return false;
        if (!adopt(k, node.lson) || !adopt(k, node.rson)) return false;
    }
    return true;
}

void ReadTree(Source& source, int numColumns, engine::PackedTree& tree) {
    constexpr size_t kNodeBytes = 32;
    const size_t numNodes = source.Count(kNodeBytes);
    const int depth = source.Next<std::int32_t>();
    if (numNodes == 0 || numNodes > std::numeric_limits<int>::max()) return source.Fail();
    tree = engine::PackedTree(numNodes, depth);
    for (size_t k = 0; k < numNodes; ++k) {
        engine::PackedNode& node = tree.nodeV[k];
        source.Get(node.splitElemFea);
        source.Get(node.avgPredict);
        source.Get(node.splitFea);
        source.Get(node.lson);
        source.Get(node.rson);
        const std::uint32_t flags = source.Next<std::uint32_t>();
        node.fLeaf = (flags & kLeafFlag) != 0;
        node.fNarrow = (flags & kNarrowFlag) != 0;
    }
    if (!IsSound(tree, numColumns)) source.Fail();
}

void ReadTrees(Source& source, int numColumns, engine::PackedTrees& trees) {
    source.GetAll(trees.groupEndV);
    constexpr size_t kLeastTreeBytes = 44;  // of one node
    trees.treeV.resize(source.Count(kLeastTreeBytes));
    for (engine::PackedTree& tree : trees.treeV) {
        ReadTree(source, numColumns, tree);
        if (source.IsFailed()) return;
    }
    trees.coverVV.resize(source.Count(sizeof(std::uint64_t)));
    for (std::vector<int>& coverV : trees.coverVV) source.GetAll(coverV);
    const bool fOrdered = std::is_sorted(trees.groupEndV.begin(), trees.groupEndV.end());
    const size_t end = trees.groupEndV.empty() ? 0 : trees.groupEndV.back();
    if (!fOrdered || end > trees.treeV.size() || trees.coverVV.size() > trees.treeV.size()) {
        source.Fail();
    }
    for (size_t t = 0; t < trees.coverVV.size() && !source.IsFailed(); ++t) {
        const size_t numCovers = trees.coverVV[t].size();
        if (numCovers != 0 && numCovers != trees.treeV[t].numNodes) source.Fail();
    }
}

// Takes the kind and the version of a file, the first line, from the front of its text.
std::string TakeKind(std::string_view& text) {
    const std::string_view name = kCheckpointName;
    if (text.substr(0, name.size()) != name) return "is no checkpoint; name another file";
    const size_t end = text.find('\n');
    if (end == text.npos) return kDamagedCheckpoint;
    const std::string_view version = text.substr(name.size(), end - name.size());
    text.remove_prefix(end + 1);
    if (version == kCheckpointVersion) return "";
    const bool fNumber = !version.empty() && version.size() < 10 && version[0] != '0' &&
                         version.find_first_not_of("0123456789") == version.npos;
    if (!fNumber) return kDamagedCheckpoint;
    return Text("was written by a newer version of the library, in format ", version,
                ", and this one reads format ", kCheckpointVersion,
                "; use that version, or name another file");
}

// Entries are shown in messages, so they must not control a terminal.
bool IsPrintable(std::string_view line) {
    return std::none_of(line.begin(), line.end(),
                        [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

// Takes the other lines of the head from the front of a text.
bool TakeEntries(std::string_view& text, Fingerprint& fingerprint) {
    while (true) {
        const size_t length = text.find('\n');
        if (length == text.npos) return false;
        const std::string_view line = text.substr(0, length);
        text.remove_prefix(length + 1);
        if (line.empty()) return !fingerprint.empty();
        if (!IsPrintable(line)) return false;
        const size_t blank = std::min(line.find(' '), line.size());
        fingerprint.emplace_back(line.substr(0, blank), line.substr(std::min(blank + 1, length)));
    }
}

// Reads at most so many bytes from the front of a file.
std::string ReadFront(const std::string& path, std::streamoff most, std::string& text) {
    errno = 0;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = std::min(std::streamoff{file.tellg()}, most);
    if (size >= 0) {
        text.resize(static_cast<size_t>(size));
        file.seekg(0).read(text.data(), size);
    }
    return file.good() ? "" : Text("cannot be read: ", std::strerror(errno));
}

// Whether the end of a text is the digest of all that is before it, which `text` then becomes.
bool TakeSum(std::string_view& text) {
    constexpr size_t kSumBytes = Digest::kNumFigures + 1;
    if (text.size() < kSumBytes) return false;
    const std::string_view sum = text.substr(text.size() - kSumBytes);
    text.remove_suffix(kSumBytes);
    Digest digest;
    digest.AddBytes(text.data(), text.size());
    digest.Add(text.size());
    return sum == digest.Figures() + "\n";
}

}  // namespace

std::string ReadCheckpointHead(const std::string& path, Fingerprint& fingerprint) {
    struct stat file = {};
    if (::stat(path.c_str(), &file) != 0) return errno == ENOENT ? "" : std::strerror(errno);
    if (!S_ISREG(file.st_mode)) return "is no regular file; name another one";
    constexpr std::streamoff kMostBytes = 1 << 20;
    std::string front;
    std::string fault = ReadFront(path, kMostBytes, front);
    std::string_view text = front;
    if (fault.empty()) fault = TakeKind(text);
    if (!fault.empty()) return fault;
    return TakeEntries(text, fingerprint) ? "" : kDamagedCheckpoint;
}

std::string ReadCheckpointBytes(const std::string& path, std::string& bytes) {
    return ReadFront(path, std::numeric_limits<std::streamoff>::max(), bytes);
}

bool IsWholeCheckpoint(const std::string& bytes) {
    std::string_view text = bytes;
    return TakeSum(text);
}

std::string ParseCheckpoint(const std::string& whole, int numColumns, Checkpoint& checkpoint) {
    std::string_view text = whole;
    std::string fault = TakeKind(text);
    if (!fault.empty()) return fault;
    std::string_view checked = whole;
    if (!TakeSum(checked)) return kDamagedCheckpoint;
    text.remove_suffix(whole.size() - checked.size());
    if (!TakeEntries(text, checkpoint.fingerprint)) return kDamagedCheckpoint;
    Source source(text);
    ForStateFields(checkpoint.state, [&source](auto& field) { source.Get(field); });
    source.GetAll(checkpoint.predictV);
    source.GetAll(checkpoint.shrinkV);
    ReadTrees(source, numColumns, checkpoint.trees);
    return source.IsWhole() && IsPossible(checkpoint.state.generator) ? "" : kDamagedCheckpoint;
}

Difference FirstDifference(const Fingerprint& file, const Fingerprint& own) {
    const auto valueOf = [](const Fingerprint& all, const std::string& name) -> std::string {
        const auto at = std::find_if(all.begin(), all.end(),
                                     [&name](const auto& entry) { return entry.first == name; });
        return at != all.end() ? at->second : "none";
    };
    Fingerprint entryV = own;
    entryV.insert(entryV.end(), file.begin(), file.end());
    for (const auto& [name, value] : entryV) {
        Difference found = {name, valueOf(file, name), valueOf(own, name)};
        if (found.inFile != found.own) return found;
    }
    return {};
}

}  // namespace sylvora
