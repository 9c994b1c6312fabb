// What both criteria share; see Criterion.h.
#include "Criterion.h"

namespace sylvora {
namespace engine {

std::unique_ptr<Criterion> Criterion::Make(bool fClasses, int numClass) {
    if (fClasses) return std::make_unique<ClassCriterion>(numClass);
    return std::make_unique<MeanCriterion>();
}

void NodeFacts::Raise(double score) {
    double current = best.load(std::memory_order_relaxed);
    while (score > current && !best.compare_exchange_weak(current, score)) {
    }
}

}  // namespace engine
}  // namespace sylvora
