// Writes checkpoints; see Checkpoint.h. A large state is never copied as a whole.
#include <algorithm>
#include <ostream>

#include "../Output/WholeFile.h"
#include "Body.h"
#include "Digest.h"

namespace sylvora {
namespace {

// Collects bytes and passes them on to a stream and a digest.
class Sink {
  public:
    explicit Sink(std::ostream& out) : stream(out) { buffer.reserve(kMostBytes); }

    void Text(const std::string& text) { Bytes(text.data(), text.size()); }
    // Little-endian, as this machine is.
    template <typename Number>
    void Put(Number number) {
        char bytes[sizeof number];
        std::memcpy(bytes, &number, sizeof number);
        Bytes(bytes, sizeof bytes);
    }
    void Count(size_t count) { Put(std::uint64_t{count}); }
    // Passes on what is left, then the digest of all bytes.
    void End() {
        Flush();
        digest.Add(length);
        const std::string figures = digest.Figures() + "\n";
        stream.write(figures.data(), static_cast<std::streamsize>(figures.size()));
    }

  private:
    // A multiple of eight, so that the digest sees the same words however the bytes arrive. Less
    // than the buffer of the stream: what could not be written then stays there, and
    // WholeFile::Commit finds the reason by trying again.
    static constexpr size_t kMostBytes = 512;

    void Bytes(const char* bytes, size_t size) {
        while (size > 0) {
            const size_t taken = std::min(size, kMostBytes - buffer.size());
            buffer.append(bytes, taken);
            bytes += taken;
            size -= taken;
            if (buffer.size() == kMostBytes) Flush();
        }
    }
    void Flush() {
        digest.AddBytes(buffer.data(), buffer.size());
        length += buffer.size();
        stream.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        buffer.clear();
    }

    std::ostream& stream;
    std::string buffer;
    Digest digest;
    std::uint64_t length = 0;
};

void WriteHead(const Fingerprint& fingerprint, Sink& sink) {
    sink.Text(kCheckpointName);
    sink.Text(kCheckpointVersion);
    sink.Text("\n");
    for (const auto& [name, value] : fingerprint) {
        for (const char* const part : {name.c_str(), " ", value.c_str(), "\n"}) sink.Text(part);
    }
    sink.Text("\n");
}

void WriteTree(const engine::PackedTree& tree, Sink& sink) {
    sink.Count(tree.numNodes);
    sink.Put(static_cast<std::int32_t>(tree.depth));
    for (unsigned k = 0; k < tree.numNodes; ++k) {
        const engine::PackedNode& node = tree.nodeV[k];
        sink.Put(node.splitElemFea);
        sink.Put(node.avgPredict);
        for (const std::int32_t number : {node.splitFea, node.lson, node.rson}) sink.Put(number);
        sink.Put((node.fLeaf ? kLeafFlag : 0) | (node.fNarrow ? kNarrowFlag : 0));
    }
}

void WriteBody(const CheckpointView& view, Sink& sink) {
    ForStateFields(view.state, [&sink](auto field) { sink.Put(field); });
    sink.Count(view.numPredictions);
    for (size_t i = 0; i < view.numPredictions; ++i) sink.Put(view.predictV[i]);
    sink.Count(view.shrinkV.size());
    for (const float shrink : view.shrinkV) sink.Put(shrink);
    sink.Count(view.trees.groupEndV.size());
    for (const size_t end : view.trees.groupEndV) sink.Count(end);
    sink.Count(view.trees.treeV.size());
    for (const engine::PackedTree& tree : view.trees.treeV) WriteTree(tree, sink);
    sink.Count(view.trees.coverVV.size());
    for (const std::vector<int>& coverV : view.trees.coverVV) {
        sink.Count(coverV.size());
        for (const int cover : coverV) sink.Put(std::int32_t{cover});
    }
}

}  // namespace

std::string WriteCheckpoint(const std::string& path, const CheckpointView& view) {
    WholeFile file(path);
    if (!file.IsOpen()) return file.ErrorMessage();
    Sink sink(file.Stream());
    WriteHead(view.fingerprint, sink);
    WriteBody(view, sink);
    sink.End();
    return file.Commit() ? "" : file.ErrorMessage();
}

}  // namespace sylvora
