// What both criteria share; see Criterion.h.
#include "Criterion.h"

namespace sylvora {
namespace engine {

std::unique_ptr<Criterion> Criterion::Make(bool fClasses, int numClass) {
    if (fClasses) return std::make_unique<ClassCriterion>(numClass);
    return std::make_unique<MeanCriterion>();
}

}  // namespace engine
}  // namespace sylvora
