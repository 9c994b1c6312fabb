// What the library's readers of settings and label maps pass over: they accept a text and read
// something else than it says. Each check is for what they have accepted, and returns 0, or -1
// after a message that says where and what is wanted.
#ifndef SYLVORA_FRONTEND_CONFIGCHECKS_H
#define SYLVORA_FRONTEND_CONFIGCHECKS_H

#include <string>

#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {

// The key and the value of a line of a configuration file; both empty where the library skips it.
struct Setting {
    std::string key;
    std::string value;
};
Setting SettingOf(const std::string& line);

// No line goes on behind a carriage return: in a file whose lines end with carriage returns only,
// the first line would be all that is read. `name` says in messages what the file is.
[[nodiscard]] int CheckLineEnds(const ReadTwice& file, const std::string& name);

// The values of integer parameters are integers: the library drops an exponent ("1e9" is 1) and
// what is beyond 32 bits. All settings count, also those that later ones override.
[[nodiscard]] int CheckIntegers(const ReadTwice& fileCfg, const std::string& name);
// The same for the options from argv[2] on.
[[nodiscard]] int CheckIntegerOptions(int argc, char** argv);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_CONFIGCHECKS_H
