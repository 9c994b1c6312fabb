// Rules of validation that also hold where a set is not checked as a whole, as in scoring.
#ifndef SYLVORA_CHECKIN_VALIDATION_H
#define SYLVORA_CHECKIN_VALIDATION_H

#include "../CheckIn.h"

namespace sylvora {

// Whether `absent` is a value that it can have. Returns 0, or -1 after a message.
[[nodiscard]] int CheckAbsent(const CheckCfgCLS& cfg);

}  // namespace sylvora

#endif  // SYLVORA_CHECKIN_VALIDATION_H
