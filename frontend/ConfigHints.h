// Warnings about unknown keys. The library ignores a key that names no parameter, so that one file
// can serve several versions. A user who wrote "numTre" by mistake should still be told.
#ifndef SYLVORA_FRONTEND_CONFIGHINTS_H
#define SYLVORA_FRONTEND_CONFIGHINTS_H

#include <string>

#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {

// Warns once per unknown key, with its line number and the known key whose spelling is nearest. The
// file must have been read without error. `name` is the file's name in messages.
void WarnOfUnknownKeys(const RereadableFile& fileCfg, const std::string& name);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_CONFIGHINTS_H
