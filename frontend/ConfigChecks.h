// Checks of configuration files, options and label maps that the library's readers do not make.
// Those readers accept some text and read it as something else. Each check runs on text that they
// have accepted, and returns 0, or -1 after a message that says where and what is expected.
#ifndef SYLVORA_FRONTEND_CONFIGCHECKS_H
#define SYLVORA_FRONTEND_CONFIGCHECKS_H

#include <string>

#include "reading/TemporaryCopy.h"

namespace sylvora::frontend {

// The key and value on one line of a configuration file. Both are empty for a line that the library
// skips.
struct Setting {
    std::string key;
    std::string value;
};
Setting SettingOf(const std::string& line);

// Checks that no line has text after a carriage return. Of a file whose lines end with CR alone,
// the library would read only the first line. `name` is the file's name in messages.
[[nodiscard]] int CheckLineEnds(const RereadableFile& file, const std::string& name);

// Checks that the values of integer parameters are integers. The library drops an exponent ("1e9"
// is read as 1) and wraps around beyond 32 bits. Checks every setting, even one that is overridden
// later.
[[nodiscard]] int CheckIntegers(const RereadableFile& fileCfg, const std::string& name);
// The same for the command-line options, which start at argv[2].
[[nodiscard]] int CheckIntegerOptions(int argc, char** argv);

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_CONFIGCHECKS_H
