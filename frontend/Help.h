// What the command says about itself. All parameter texts come from the one table of parameters.
#ifndef SYLVORA_FRONTEND_HELP_H
#define SYLVORA_FRONTEND_HELP_H

#include <string>

namespace sylvora::frontend {

// A few lines for wrong usage.
std::string UsageText();

// The answer to --help: usage, modes, every parameter with default and range.
std::string HelpText();

// The answer to --help=markdown, which is the document docs/parameters.md.
std::string ParametersDocument();

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_HELP_H
