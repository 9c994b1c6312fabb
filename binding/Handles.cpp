// The registry of live handles: a hash table from handle to model, and the Model objects of all
// handles ever given out. See Handles.h for locking.
#include "Handles.h"

#include <deque>
#include <unordered_map>
#include <utility>

namespace {

// Never destroyed: a handle that is not released lives as long as the process.
std::unordered_map<unsigned long, std::shared_ptr<Model>>& LiveHandles() {
    static auto* handles = new std::unordered_map<unsigned long, std::shared_ptr<Model>>();
    return *handles;
}

// Only grows, and a deque never moves its elements, so no two models ever have the same address.
std::deque<Model>& Places() {
    static auto* places = new std::deque<Model>();
    return *places;
}

}  // namespace

unsigned long AddHandle(Model&& model) {
    Model* const place = &Places().emplace_back(std::move(model));
    const std::shared_ptr<Model> shared(place, [](Model* released) { released->Clear(); });
    const auto handle = reinterpret_cast<unsigned long>(place);
    LiveHandles().emplace(handle, shared);
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
