// Compares the number syntax with regular expressions, and the conversions with strtod and strtol.
#include <gtest/gtest.h>
#include <regex.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "god.h"
#include "god/NumberParsing.h"
#include "god/ShortPair.h"

namespace {

// Checks whether the three parsers accept the text, and the values that they give.
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

// A POSIX regular expression. std::regex would double the compile time of this file.
class Grammar {
  public:
    explicit Grammar(const char* syntax) {
        if (regcomp(&pattern, syntax, REG_EXTENDED | REG_NOSUB) != 0) std::abort();
    }
    ~Grammar() { regfree(&pattern); }
    Grammar(const Grammar&) = delete;
    Grammar& operator=(const Grammar&) = delete;

    bool Matches(const std::string& text) const {
        return regexec(&pattern, text.c_str(), 0, nullptr, 0) == 0;
    }

  private:
    regex_t pattern;
};

// Calls check(text) for every text of up to `longest` characters over the alphabet.
template <typename CheckText>
void ForAllTexts(const std::string& alphabet, size_t longest, const CheckText& check) {
    size_t numTexts = 1;
    for (size_t length = 0; length <= longest; ++length, numTexts *= alphabet.size()) {
        for (size_t number = 0; number < numTexts; ++number) {
            std::string text;
            for (size_t rest = number; text.size() < length; rest /= alphabet.size()) {
                text += alphabet[rest % alphabet.size()];
            }
            check(text);
        }
    }
}

// The alphabet includes two characters that no number contains.
TEST(NumberParsing, AgreesWithAGrammarOnAllShortTexts) {
    const Grammar real("^([+-][0-9]*|[0-9]+)([.][0-9]*)?([eE][+-]?[0-9]*)?$");
    const Grammar integer("^([+-][0-9]*|[0-9]+)([eE][+-]?[0-9]*)?$|^$");
    ForAllTexts("09+-.eE x", 4, [&](const std::string& text) {
        Check(text, real.Matches(text), integer.Matches(text));
    });
}

// Generates texts of numbers for a bit-for-bit comparison with strtod.
class RandomNumbers {
  public:
    // Any number of digits on both sides of a point, mostly few; sometimes an exponent.
    std::string Digits() {
        std::string text = Below(2) != 0 ? "-" : "";
        text += Run(1 + Length());
        if (Below(4) != 0) text += "." + Run(Length());
        if (Below(4) == 0) text += "e" + std::to_string(static_cast<int>(Below(700)) - 350);
        return text;
    }

    // As in data files: a double of any size, printed with 1 to 17 digits.
    std::string Written() {
        char text[64];
        const char* const forms[] = {"%.*g", "%.*e", "%.*f"};
        const double value = Below(4) == 0 ? AnyDouble() : static_cast<double>(random()) / 4e9;
        const int numDigits = static_cast<int>(1 + Below(17));
        const char* const form = forms[std::fabs(value) < 1e9 ? Below(3) : Below(2)];
        std::snprintf(text, sizeof text, form, numDigits, value);
        return text;
    }

    // The exact midpoint of two neighbouring doubles, or a number very close to one.
    std::string Halfway() {
        const double low = std::fabs(AnyDouble());
        const long double step = std::nextafter(low, HUGE_VAL) - static_cast<long double>(low);
        char text[900];
        std::snprintf(text, sizeof text, "%.800Le", static_cast<long double>(low) + step / 2);
        std::string middle = text;
        const size_t exponent = middle.find('e');
        if (Below(3) != 0) middle.insert(exponent, Below(2) != 0 ? "1" : "0000000000000000000001");
        return Below(3) == 0 ? middle.substr(0, Below(30) + 3) + middle.substr(exponent) : middle;
    }

    // Integers around the largest that are exact as doubles, with a point anywhere.
    std::string Large() {
        const std::uint64_t near = (std::uint64_t{1} << (50 + Below(14))) + Below(9) - 4;
        std::string text = std::to_string(near);
        return Below(2) != 0 ? text
                             : text.insert(1 + Below(static_cast<unsigned>(text.size())), ".");
    }

    unsigned Below(unsigned bound) { return static_cast<unsigned>(random() % bound); }

  private:
    double AnyDouble() {
        for (;;) {
            const std::uint64_t bits = (static_cast<std::uint64_t>(random()) << 32) | random();
            double value = 0.0;
            std::memcpy(&value, &bits, sizeof value);
            if (std::isfinite(value)) return value;
        }
    }

    unsigned Length() { return Below(8) == 0 ? Below(400) : Below(20); }
    std::string Run(unsigned length) {
        std::string digits(length, '0');
        const unsigned numKinds = Below(4) == 0 ? 1 + Below(2) : 10;  // long runs of 0, or 0 and 9
        for (char& digit : digits) digit = "0987654321"[Below(numKinds)];
        return digits;
    }

    std::mt19937 random{1};
};

// On all paths of the conversion: few digits, many digits, subnormals, overflow, midpoints.
TEST(NumberParsing, RoundsAsStrtodDoes) {
    RandomNumbers numbers;
    for (int i = 0; i < 300000; ++i) {
        const unsigned kind = numbers.Below(16);
        const std::string text = kind == 0   ? numbers.Halfway()
                                 : kind < 4  ? numbers.Large()
                                 : kind < 10 ? numbers.Digits()
                                             : numbers.Written();
        double value = 0.0;
        ASSERT_TRUE(TryStrToDouble(text.c_str(), value)) << text;
        const double expected = std::strtod(text.c_str(), nullptr);
        ASSERT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << text << ": " << value;
    }
}

// In a longer line: the number ends where another character begins, or at the end of the text.
TEST(NumberParsing, ConvertsTheNumberInFront) {
    RandomNumbers numbers;
    for (int i = 0; i < 50000; ++i) {
        const std::string number = numbers.Below(2) != 0 ? numbers.Digits() : numbers.Written();
        const std::string behind =
            std::vector<std::string>{"", " 12", ":5", "x1", "-1"}[numbers.Below(5)];
        const std::string text = number + behind;
        double value = 0.0;
        const char* const end =
            sylvora::ConvertPlainReal(text.data(), text.data() + text.size(), value);
        const double expected = std::strtod(number.c_str(), nullptr);
        if (end == nullptr) {
            ASSERT_FALSE(std::isnormal(expected)) << text;
            continue;
        }
        ASSERT_EQ(end - text.data(), static_cast<long>(number.size())) << text;
        ASSERT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << text << ": " << value;
    }
}

// Puts the text into a longer line and converts the pair at its start. Returns the pair's length,
// or 0 if it is refused.
size_t TakePair(const std::string& text, int& id, double& value) {
    const std::string line = "1.25 123:4567.89 " + text + "\n-8:9 .12345678:90123456789.0123456789";
    const char* const first = line.data() + line.find(text + "\n");
    const char* const last = sylvora::ConvertShortPair(first, id, value);
    return last == nullptr ? 0 : static_cast<size_t>(last - first);
}

TEST(ShortPair, AgreesWithAGrammarOnAllShortTexts) {
    const Grammar pair("^[0-9]+:-?[0-9]+([.][0-9]*)?$");
    ForAllTexts("09-.:eE \t\x01\x7f\x80", 5, [&](const std::string& text) {
        const std::string token = text.substr(0, text.find_first_of(" \t"));
        int id = -1;
        double value = 0.0;
        if (!pair.Matches(token)) {
            ASSERT_EQ(TakePair(text, id, value), 0u) << text;
            return;
        }
        ASSERT_EQ(TakePair(text, id, value), token.size()) << text;
        const double expected = std::strtod(token.c_str() + token.find(':') + 1, nullptr);
        ASSERT_EQ(id, std::stoi(token)) << text;
        ASSERT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << text << ": " << value;
    });
}

TEST(ShortPair, RoundsAsStrtodDoes) {
    RandomNumbers numbers;
    int numTaken = 0;
    constexpr int kNumbers = 200000;
    for (int i = 0; i < kNumbers; ++i) {
        const std::string number = numbers.Below(8) == 0   ? numbers.Large()
                                   : numbers.Below(2) == 0 ? numbers.Digits()
                                                           : numbers.Written();
        const int idExpected = static_cast<int>(numbers.Below(1u << numbers.Below(27)));
        const std::string text = std::to_string(idExpected) + ":" + number;
        int id = -1;
        double value = 0.0;
        const size_t length = TakePair(text, id, value);
        if (length == 0) continue;
        ++numTaken;
        const double expected = std::strtod(number.c_str(), nullptr);
        ASSERT_EQ(length, text.size()) << text;
        ASSERT_EQ(id, idExpected) << text;
        ASSERT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << text << ": " << value;
    }
    EXPECT_GT(numTaken, kNumbers / 4);
}

}  // namespace
