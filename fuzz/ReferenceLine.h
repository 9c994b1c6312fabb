// Data lines, read word by word straight from the grammar in god.h: slow, and obvious.
#ifndef SYLVORA_FUZZ_REFERENCELINE_H
#define SYLVORA_FUZZ_REFERENCELINE_H

#include <sstream>
#include <string>
#include <vector>

#include "god.h"
#include "god/Report.h"

namespace sylvora::fuzz {

enum class Form { kSparse, kCheckOnly, kDense };

constexpr double kUntouched = 4711.0;  // what a row holds before it is read into

// What reading a line comes to.
struct ReadLine {
    int status = 0;
    int count = 0;
    std::string label, query, message;
    std::vector<double> rowV;
};

template <typename Value>
class ReferenceLine {
  public:
    ReferenceLine(const std::string& text, int columns, Form wanted)
        : words(text), dim(columns), form(wanted) {
        const double filling = form == Form::kDense ? kUntouched : -2147483648.0;
        line.rowV.assign(static_cast<size_t>(dim), filling);
        words >> line.label;
        std::string word;
        while (line.count < dim && words >> word && word.size() >= 3 && line.message.empty()) {
            Take(word);
        }
        if (form == Form::kDense && line.message.empty() && line.count < dim) {
            line.message = "ERROR: Imcomplete feature line for dense data!\n";
        }
        line.status = line.message.empty() ? 0 : -1;
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
        } else if (form == Form::kSparse && (id < 1 || id > dim)) {
            line.message = Text("ERROR: Illegal feature id: \"", id,
                                "\", which is supposed to be in [1, ", dim, "]\n");
        } else {
            const int column = form == Form::kSparse ? id - 1 : line.count;
            if (form != Form::kCheckOnly) line.rowV[static_cast<size_t>(column)] = value;
            ++line.count;
        }
    }

    std::istringstream words;
    int dim;
    Form form;
};

}  // namespace sylvora::fuzz

#endif  // SYLVORA_FUZZ_REFERENCELINE_H
