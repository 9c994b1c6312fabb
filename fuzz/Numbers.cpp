// Numbers: the accepted syntax against a grammar, the values against the C library.
#include <cstring>
#include <string_view>
#include <vector>

#include "Fuzz.h"
#include "god.h"
#include "god/NumberParsing.h"

using namespace sylvora;

namespace {

// number = [sign] {digit} ["." {digit}] [("e" | "E") [sign] {digit}], which does not begin with a
// point or a letter. An integer has no point; a real is not empty.
class Grammar {
  public:
    explicit Grammar(std::string_view text) : rest(text) {}

    bool Matches(bool fReal) {
        if (rest.empty()) return !fReal;
        if (IsNext(".eE")) return false;
        SkipSign();
        SkipDigits();
        if (fReal && Skip(".")) SkipDigits();
        if (Skip("eE")) {
            SkipSign();
            SkipDigits();
        }
        return rest.empty();
    }

  private:
    bool IsNext(const char* choice) const {
        return !rest.empty() && rest[0] != '\0' && std::strchr(choice, rest[0]) != nullptr;
    }
    bool Skip(const char* choice) {
        const bool fNext = IsNext(choice);
        if (fNext) rest.remove_prefix(1);
        return fNext;
    }
    void SkipSign() { Skip("+-"); }
    void SkipDigits() {
        while (Skip("0123456789")) {
        }
    }
    std::string_view rest;
};

template <typename Number, typename Convert>
void Check(bool fExpected, bool fTaken, Number result, Convert convert, const std::string& text) {
    fuzz::Demand(fTaken == fExpected, "the syntax of " + text);
    const Number expected = fExpected ? convert() : Number{77};
    fuzz::Demand(std::memcmp(&result, &expected, sizeof result) == 0, "the value of " + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::Counter counter;
    // A view that ends at the end of its allocation, and a C string that ends at the first NUL.
    const std::vector<char> exact(data, data + size);
    const std::string text = fuzz::TextOf(data, size);
    const char* const terminated = text.c_str();
    const std::string_view views[] = {{exact.data(), exact.size()}, terminated};
    const auto real = [&] { return std::strtod(terminated, nullptr); };
    const auto single = [&] { return static_cast<float>(real()); };
    const auto integer = [&] { return static_cast<int>(std::strtol(terminated, nullptr, 10)); };
    for (const std::string_view view : views) {
        const bool fReal = Grammar(view).Matches(true);
        const bool fInteger = Grammar(view).Matches(false);
        const bool fView = view.data() == exact.data();
        double d = 77;
        Check(fReal, fView ? ParseNumber(view, d) : TryStrToDouble(terminated, d), d, real, text);
        float f = 77;
        Check(fReal, fView ? ParseNumber(view, f) : TryStrToFloat(terminated, f), f, single, text);
        int i = 77;
        Check(fInteger, fView ? ParseNumber(view, i) : TryStrToInt(terminated, i), i, integer,
              text);
        if (fView) counter.Add(fReal ? 0 : -1, fReal ? "" : "\n");
    }
    return 0;
}
