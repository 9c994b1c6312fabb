// The reference reader of data lines: word by word, directly from the grammar in god.h.
#ifndef SYLVORA_FUZZ_REFERENCELINE_H
#define SYLVORA_FUZZ_REFERENCELINE_H

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "god.h"
#include "god/DataLines.h"
#include "god/Report.h"

namespace sylvora::fuzz {

enum class Form { kSparse, kCheckOnly, kDense };

constexpr double kUntouched = 4711.0;  // fills a row before a line is read into it

// The result of reading a line.
struct ReadLine {
    int status = 0;
    int count = 0;
    std::string label, query, message;
    std::vector<double> rowV;
    // For stored sparse lines only: the fields of LineHead, and whether the whole line was read.
    int numLarger = 0;
    std::set<int> idS;
    bool fOddId = false, fHidesRow = false, fAll = true;
};

// True if an id that the library reads as 1 or more is misread.
inline bool IsOdd(const std::string& idText) {
    const std::string largest = "2147483647";
    std::string digits = idText.substr(idText[0] == '+' ? 1 : 0);
    if (digits.find_first_not_of("0123456789") != std::string::npos) return true;
    digits.erase(0, digits.find_first_not_of('0'));
    return digits.size() > largest.size() || (digits.size() == largest.size() && digits > largest);
}

// True if a carriage return is followed by a label.
inline bool HasHiddenRow(const std::string& text) {
    for (size_t at = text.find('\r'); at != std::string::npos; at = text.find('\r', at + 1)) {
        std::string word;
        std::istringstream(text.substr(at)) >> word;
        if (!word.empty() && word.find(':') == std::string::npos) return true;
    }
    return false;
}

template <typename Value>
class ReferenceLine {
  public:
    ReferenceLine(const std::string& text, int columns, Form wanted)
        : ReferenceLine(text, LineRules{columns, columns}, wanted) {}
    ReferenceLine(const std::string& text, const LineRules& lineRules, Form wanted)
        : words(text), rules(lineRules), form(wanted) {
        const double filling = form == Form::kDense ? kUntouched : rules.absent;
        line.rowV.assign(static_cast<size_t>(rules.dim), filling);
        words >> line.label;
        std::string word;
        size_t read = Position(text);
        while (line.count < rules.mostPairs && words >> word && word.size() >= 3 &&
               line.message.empty()) {
            Take(word);
            read = Position(text);
        }
        if (form == Form::kDense && line.message.empty() && line.count < rules.dim) {
            line.message = "ERROR: Imcomplete feature line for dense data!\n";
        }
        line.status = line.message.empty() ? 0 : -1;
        line.fAll = text.find_first_not_of(" \t\n\v\f\r", read) == std::string::npos;
        line.fHidesRow = HasHiddenRow(text.substr(read));
    }

    ReadLine line;

  private:
    static bool IsNumber(const std::string& text, Value& value) {
        if (text.find('\0') != std::string::npos) return false;
        if constexpr (sizeof value == sizeof(float))
            return TryStrToFloat(text.c_str(), value);
        else
            return TryStrToDouble(text.c_str(), value);
    }

    void Take(const std::string& word) {
        const size_t colon = word.find(':');
        if (colon == std::string::npos) {
            line.message = "ERROR: wrong feature format!\n";
            return;
        }
        const std::string idText = word.substr(0, colon), valueText = word.substr(colon + 1);
        Value value{};
        int id = 0;
        if (idText == "qid" || idText == "QID") {
            line.query = valueText;
        } else if (!IsNumber(valueText, value)) {
            line.message = "ERROR: feature value is not a digit: \"" + valueText + "\"!\n";
        } else if (idText.find('\0') != std::string::npos || !TryStrToInt(idText.c_str(), id)) {
            line.message = "ERROR: feature id is not an integer: \"" + idText + "\"!\n";
        } else if (form == Form::kSparse && (id < 1 || (id > rules.dim && !rules.fIgnoreLarger))) {
            line.message = Text("ERROR: Illegal feature id: \"", id,
                                "\", which is supposed to be in [1, ", rules.mostPairs, "]\n");
        } else {
            if (form == Form::kSparse) {
                TakeId(idText, id, value);
            } else if (form == Form::kDense) {
                line.rowV[static_cast<size_t>(line.count)] = value;
            }
            ++line.count;
        }
    }

    void TakeId(const std::string& idText, int id, Value value) {
        line.fOddId = line.fOddId || IsOdd(idText);
        if (id > rules.dim) {
            ++line.numLarger;
        } else {
            line.rowV[static_cast<size_t>(id) - 1] = value;
            line.idS.insert(id);
        }
    }

    // For the rest of the line, which has not been read.
    size_t Position(const std::string& text) {
        return words.eof() ? text.size() : static_cast<size_t>(words.tellg());
    }

    std::istringstream words;
    LineRules rules;
    Form form;
};

}  // namespace sylvora::fuzz

#endif  // SYLVORA_FUZZ_REFERENCELINE_H
