// The registry of live handles: a hash table from handle to model.
#include "Handles.h"

#include <unordered_map>
#include <utility>

namespace {

// Never destroyed: a handle that is not released lives as long as the process.
std::unordered_map<unsigned long, std::shared_ptr<Model>>& LiveHandles() {
    static auto* handles = new std::unordered_map<unsigned long, std::shared_ptr<Model>>();
    return *handles;
}

}  // namespace

unsigned long AddHandle(std::shared_ptr<Model> model) {
    const auto handle = reinterpret_cast<unsigned long>(model.get());
    LiveHandles().emplace(handle, std::move(model));
    return handle;
}

std::shared_ptr<Model> FindHandle(unsigned long handle) {
    const auto& handles = LiveHandles();
    const auto found = handles.find(handle);
    return found == handles.end() ? nullptr : found->second;
}

void RemoveHandle(unsigned long handle) {
    LiveHandles().erase(handle);
}
