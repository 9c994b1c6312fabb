// Model files: loading, scoring and analysis against an independent reader.
#include "../tests/damage/ModelCheck.h"
#include "Fuzz.h"

using namespace sylvora;

namespace {

struct ReportedCheck : tests::ModelCheck {
    ~ReportedCheck() { fuzz::Report(Tally()); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ReportedCheck check;
    const std::string fault = check.Run(fuzz::TextOf(data, size));
    fuzz::Demand(fault.empty(), fault);
    return 0;
}
