// Exchanges the messages of failures; see Agreement.h.
#include "Agreement.h"

#include <algorithm>
#include <vector>

namespace sylvora {
namespace {

CallContext WithSink(MessageSinkType sink, void* sinkContext, std::mutex& mutex) {
    CallContext context;
    if (CurrentContext() != nullptr) context = *CurrentContext();
    context.sink = sink;
    context.sinkContext = sinkContext;
    context.sinkMutex = &mutex;
    context.fForAll = true;
    return context;
}

}  // namespace

KeptMessages::KeptMessages() : context(WithSink(Keep, this, mutex)), scope(&context) {}

void KeptMessages::Keep(void* context, int stream, const char* message) {
    KeptMessages& kept = *static_cast<KeptMessages*>(context);
    (stream == kStandardError ? kept.errors : kept.output) += message;
}

std::string FirstComplaint(Ranks& ranks, const std::string& mine) {
    const std::vector<char> fComplainsV = ranks.Gather(static_cast<char>(!mine.empty()));
    const auto first = std::find(fComplainsV.begin(), fComplainsV.end(), 1);
    if (first == fComplainsV.end()) return "";
    const int root = static_cast<int>(first - fComplainsV.begin());
    std::string text = BroadcastText(ranks, mine, root);
    if (root == 0) return text;
    const std::string error = "ERROR: ";
    const bool fError = text.compare(0, error.size(), error) == 0;
    return error + "rank " + std::to_string(root) + ": " + text.substr(fError ? error.size() : 0);
}

std::string BroadcastText(Ranks& ranks, const std::string& text, int root) {
    size_t size = text.size();
    ranks.Broadcast(&size, 1, root);
    std::string copy = text;
    copy.resize(size);
    ranks.Broadcast(copy.data(), size, root);
    return copy;
}

}  // namespace sylvora
