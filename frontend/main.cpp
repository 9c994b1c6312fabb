// The command: sylvora CFG [-option value]... See Program.h for the exit status.
#include "Program.h"

int main(int argc, char** argv) {
    sylvora::frontend::PrepareSignals();
    return sylvora::frontend::RunProgram({"sylvora"}, argc, argv);
}
