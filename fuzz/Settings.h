// Parameter sets as strings, for comparison, and properties of validated sets.
#ifndef SYLVORA_FUZZ_SETTINGS_H
#define SYLVORA_FUZZ_SETTINGS_H

#include <string>

#include "../tests/InMemory.h"
#include "CheckIn.h"
#include "CheckIn/Parameters.h"
#include "Fuzz.h"

namespace sylvora::fuzz {

// All values, and which of them were given.
inline std::string ValuesOf(const CheckCfgCLS& cfg) {
    std::string values;
    for (const ParameterRow& row : ParameterTable()) {
        values += ParameterValue(row, cfg) + "\n";
        if (row.given != nullptr) values += cfg.*row.given ? "given\n" : "not given\n";
    }
    return values;
}

// Checks what must hold for every set that passes validation.
inline void CheckValidation(CheckCfgCLS cfg, tests::Messages& messages) {
    const int status = cfg.CheckCfg();
    const std::string said = messages.Take();
    Demand(status == 0 || !said.empty(), "a refusal has a message");
    if (status != 0) return;
    Demand(cfg.numTree > 0 && cfg.sizeGroup > 0, "trees");
    Demand(cfg.maxLeaf > 0 && cfg.maxDepth > 0 && cfg.numBound > 0, "limits of trees");
    Demand(!(cfg.ratio <= 0 || cfg.ratio > 1 || cfg.valSmpRt <= 0 || cfg.valSmpRt > 1), "shares");
    Demand(!cfg.fSetThread || (cfg.numThread >= 1 && cfg.numThread <= 256), "threads");
    Demand(cfg.fRegCls == "REG" || cfg.fRegCls == "CLS", "the task");
    cfg.numTree = cfg.sizeGroup > 1
                      ? cfg.sizeGroup
                      : cfg.numTree;  // validation moves a forest's numTree to sizeGroup
    const std::string values = ValuesOf(cfg);
    Demand(cfg.CheckCfg() == 0, "what passed once passes again");
    cfg.numTree = cfg.sizeGroup > 1 ? cfg.sizeGroup : cfg.numTree;
    Demand(ValuesOf(cfg) == values, "validation settles: " + values + " then " + ValuesOf(cfg));
    messages.Take();
}

}  // namespace sylvora::fuzz

#endif  // SYLVORA_FUZZ_SETTINGS_H
