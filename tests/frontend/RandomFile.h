// Data files of random lines.
#ifndef SYLVORA_TESTS_FRONTEND_RANDOMFILE_H
#define SYLVORA_TESTS_FRONTEND_RANDOMFILE_H

#include <random>
#include <string>
#include <vector>

namespace sylvora::tests {

// A file of random lines, of which about `faultShare` in a thousand are malformed.
class RandomFile {
  public:
    RandomFile(unsigned seed, unsigned faultShare) : random(seed), faults(faultShare) {}

    std::string Text() {
        const unsigned numLines = Below(120);
        const char* const lineEnd = Below(4) == 0 ? "\r\n" : "\n";
        const bool fQueries = Below(2) == 0;
        fOddIds = faults > 0 && Below(4) == 0;
        const bool fReturns = faults > 0 && Below(8) == 0;  // CR alone at the end of some lines
        width = 1 + Below(Below(8) == 0 ? 300 : 9);
        std::string text;
        for (unsigned i = 0; i < numLines; ++i) {
            if (Below(16) == 0) text += Pick({"", " ", "\t \v", "\f"}) + lineEnd;
            text += Line(fQueries ? "qid:q" + std::to_string(i / 7) : "");
            const bool fEnd = i + 1 < numLines || Below(2) == 0;
            text += !fEnd ? "" : fReturns && Below(8) == 0 ? "\r" : lineEnd;
        }
        return text;
    }

  private:
    std::string Line(const std::string& query) {
        if (Fault() && !query.empty()) return "1 1:2 qid:q0";
        if (Fault()) {
            return Pick({"word 1:2", "1 word", "1 1:x 1:2", "1 x:1", "1 0:1", "1 1:1e999", "1e999",
                         "1 1:2 qid:q0", std::string("1 1:\0", 5), "1 1:2:3", "1 -1:0", "1 1:"});
        }
        std::string line = Pick({"", " "}) + std::to_string(Below(3));
        if (!query.empty() && Below(64) != 0) line += " " + query;
        for (unsigned id = 1; id <= width; ++id) {
            if (Below(3) == 0) continue;
            line += Pick({" ", "\t", "  "}) + Pick({"", "", "", "+", "0"}) + std::to_string(id) +
                    (fOddIds && Below(100) == 0 ? "e0" : "") + ":" + Value();
        }
        return line + Pick({"", "", "", " 5", " 5 9:9:9", " qid:", " 3:4 "});
    }

    std::string Value() {
        std::string value = Pick({"", "-"}) + std::to_string(Below(1000));
        if (Below(2) == 0) value += "." + std::to_string(Below(4000000000));
        return value + Pick({"", "", "", "", "e-3", "e300", "00000000000000"});
    }

    unsigned Below(unsigned bound) { return static_cast<unsigned>(random() % bound); }
    bool Fault() { return Below(1000) < faults; }
    std::string Pick(const std::vector<std::string>& from) {
        return from[Below(static_cast<unsigned>(from.size()))];
    }

    std::mt19937 random;
    unsigned faults;
    unsigned width = 1;
    bool fOddIds = false;
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_FRONTEND_RANDOMFILE_H
