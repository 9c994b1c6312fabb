// The texts of --help and --help=markdown. Every parameter's text comes from the parameter table.
#ifndef SYLVORA_FRONTEND_HELP_H
#define SYLVORA_FRONTEND_HELP_H

#include <string>

namespace sylvora::frontend {

// The two usage lines of a program, printed after a usage error.
std::string UsageText(const std::string& program);

// The text of --help: usage, modes, and every parameter with its default and range.
std::string HelpText(const std::string& program);

// The text of --help=markdown, which is the content of docs/parameters.md.
std::string ParametersDocument();

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_HELP_H
