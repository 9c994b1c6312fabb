// The number syntax against a second statement of it, and the conversions against strtod and
// strtol.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <regex>
#include <string>

#include "god.h"

namespace {

// Compares the three parsers with whether they should take the text and what it then is.
void Check(const std::string& text, bool fReal, bool fInteger) {
    SCOPED_TRACE("\"" + text + "\"");
    const double untouched = 77.0;
    double real = untouched;
    float single = 77.0f;
    int integer = 77;
    ASSERT_EQ(TryStrToDouble(text.c_str(), real), fReal);
    ASSERT_EQ(TryStrToFloat(text.c_str(), single), fReal);
    ASSERT_EQ(TryStrToInt(text.c_str(), integer), fInteger);
    const double expected = fReal ? std::strtod(text.c_str(), nullptr) : untouched;
    ASSERT_EQ(std::memcmp(&real, &expected, sizeof real), 0) << real;
    ASSERT_EQ(single, static_cast<float>(expected));
    ASSERT_EQ(integer, fInteger ? static_cast<int>(std::strtol(text.c_str(), nullptr, 10)) : 77);
}

TEST(NumberParsing, Table) {
    for (const char* neither :
         {"1e2.5", "1.2.3", "1e2e3", "0x10", "inf", "-nan", " 12345", "12345 "}) {
        Check(neither, false, false);
    }
    for (const char* realOnly : {"-1.5e-3", "4.9e-324", "1.7976931348623159e308", "-0.0"}) {
        Check(realOnly, true, false);
    }
    for (const char* both : {"2e3", "1e999", "-1e-999", "123456789", "-2147483648", "2147483648",
                             "12345678901", "99999999999999999999", "+00000000000000000000001"}) {
        Check(both, true, true);
    }
}

// Every text of up to four characters over the alphabet of numbers and two strangers.
TEST(NumberParsing, AgreesWithAGrammarOnAllShortTexts) {
    const std::regex realSyntax("(?![.eE])[+-]?[0-9]*([.][0-9]*)?([eE][+-]?[0-9]*)?");
    const std::regex integerSyntax("(?![eE])[+-]?[0-9]*([eE][+-]?[0-9]*)?");
    const std::string alphabet = "09+-.eE x";
    size_t numTexts = 1;
    for (size_t length = 0; length <= 4; ++length, numTexts *= alphabet.size()) {
        for (size_t number = 0; number < numTexts; ++number) {
            std::string text;
            for (size_t rest = number; text.size() < length; rest /= alphabet.size()) {
                text += alphabet[rest % alphabet.size()];
            }
            Check(text, !text.empty() && std::regex_match(text, realSyntax),
                  std::regex_match(text, integerSyntax));
        }
    }
}

// Rounding, subnormals and overflow: any exponent, any number of digits.
TEST(NumberParsing, RoundsAsStrtodDoes) {
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 2 != 0 ? "-0." : "9.";
        for (auto numDigits = random() % 40; numDigits > 0; --numDigits) {
            text += static_cast<char>('0' + random() % 10);
        }
        Check(text + "e" + std::to_string(static_cast<int>(random() % 700) - 350), true, false);
    }
}

}  // namespace
