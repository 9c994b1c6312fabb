// Validation rules that are also checked on their own, where CheckCfg does not run (scoring).
#ifndef SYLVORA_CHECKIN_VALIDATION_H
#define SYLVORA_CHECKIN_VALIDATION_H

#include "../CheckIn.h"

namespace sylvora {

// Checks that `absent` has one of its allowed values. Returns 0, or -1 after a message.
[[nodiscard]] int CheckAbsent(const CheckCfgCLS& cfg);

// The same for the parameters of the losses: huberDelta, quantile.
[[nodiscard]] int CheckLossParameters(const CheckCfgCLS& cfg);

// The same for a checkpoint: its interval, and the reports that do not go together with it.
[[nodiscard]] int CheckCheckpoint(const CheckCfgCLS& cfg);

}  // namespace sylvora

#endif  // SYLVORA_CHECKIN_VALIDATION_H
