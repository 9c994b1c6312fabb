// A library for LD_PRELOAD that sets the C and the C++ locale of a program from its environment, as
// a localised program would. Ends the program if the locale has no decimal comma.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <locale>

namespace {

const bool fSet = [] {
    try {
        std::locale::global(std::locale(""));
        std::ios_base::Init streams;
        for (std::ios* stream :
             {static_cast<std::ios*>(&std::cout), static_cast<std::ios*>(&std::cerr)})
            stream->imbue(std::locale());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "no such locale: %s\n", error.what());
        std::_Exit(99);
    }
    char text[16];
    std::snprintf(text, sizeof text, "%.1f", 0.5);
    if (text[1] == ',') return true;
    std::fprintf(stderr, "no decimal comma: %s\n", text);
    std::_Exit(99);
}();

}  // namespace
