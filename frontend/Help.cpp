// Builds the help texts from the parameter table.
#include "Help.h"

#include "CheckIn/Parameters.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

const char kModes[] =
    "  train     (also when empty) trains on fileTrain and writes fileModel; with fileTest the\n"
    "            prints the model's test metrics, and with filePred also writes its test scores\n"
    "  predict   scores fileTest with fileModel into filePred and prints the metrics\n"
    "  analyze   writes what each column contributes to the scores of fileTest to filePred, or\n"
    "            to fileModel + \".features\"\n";

const char kDocumentHead[] =
    "# Parameters\n"
    "\n"
    "This file is the output of `sylvora --help=markdown`; change the table of parameters in\n"
    "`src/CheckIn/Parameters.cpp`, not this text. A test compares the two.\n"
    "\n"
    "A parameter is a line `key = value` of the configuration file, with blanks around the `=`.\n"
    "Those with an option can also be set on the command line, which overrides the file:\n"
    "`sylvora CFG -numTree 100`. Of a repeated setting the last one counts. The default `-1` of a\n"
    "text means that no value was given.\n"
    "\n"
    "| Key | Option | Default | Accepted | Meaning |\n"
    "| --- | --- | --- | --- | --- |\n";

// The settings hold 0 for a seed that is not set; the seed of such a run is getRandomSeed().
std::string DefaultOf(const ParameterRow& row) {
    if (row.member == ParameterMember(&CheckCfgCLS::tms_seed)) {
        return Text(CheckCfgCLS().getRandomSeed());
    }
    const std::string value = ParameterValue(row, CheckCfgCLS());
    return value.empty() ? "(empty)" : value;
}

std::string HelpEntry(const ParameterRow& row) {
    std::string entry = "  ";
    entry += row.fOption ? "-" : "";
    entry += row.name;
    entry += "\n      ";
    entry += row.meaning;
    return entry + "\n      default " + DefaultOf(row) + "; accepted: " + row.range + "\n";
}

std::string DocumentRow(const ParameterRow& row) {
    const std::string name = row.name;
    std::string line = "| `" + name + "` | ";
    line += row.fOption ? "`-" + name + "`" : "";
    return line + " | `" + DefaultOf(row) + "` | " + row.range + " | " + row.meaning + " |\n";
}

}  // namespace

std::string UsageText(const std::string& program) {
    return "Usage: " + program + " CFG [-option value]...\n       " + program +
           " --help | --version\n";
}

std::string HelpText(const std::string& program) {
    std::string text = UsageText(program);
    text +=
        "\nTrains tree ensembles, scores data with them and analyses them. CFG is a file of\n"
        "\"key = value\" lines; options override it. The parameter mode selects the task:\n\n";
    text += kModes;
    text +=
        "\nParameters. Those shown with \"-\" are options as well as keys of the file; the others\n"
        "are keys only. The default -1 of a text parameter means that it is not set.\n\n";
    for (const ParameterRow& row : ParameterTable()) text += HelpEntry(row);
    text +=
        "\nMetrics go to standard output, one \"name: value\" per line. Exit status: 0; 1 for a\n"
        "failure; 2 for wrong usage. --help=markdown prints the parameters as "
        "docs/parameters.md.\n";
    return text;
}

std::string ParametersDocument() {
    std::string text = kDocumentHead;
    for (const ParameterRow& row : ParameterTable()) text += DocumentRow(row);
    return text;
}

}  // namespace sylvora::frontend
