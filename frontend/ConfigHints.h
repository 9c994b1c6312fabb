// Hints at misspelt keys. The library ignores a key that no parameter has, so that one file can
// serve several versions; a person who wrote "numTre" wants to hear of it.
#ifndef SYLVORA_FRONTEND_CONFIGHINTS_H
#define SYLVORA_FRONTEND_CONFIGHINTS_H

#include <string>

#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {

// Warns once per unknown key of a configuration file that has been read without error, with the
// line and the known key that is spelt most like it. Messages call the file `name`.
void WarnOfUnknownKeys(const ReadTwice& fileCfg, const std::string& name);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_CONFIGHINTS_H
