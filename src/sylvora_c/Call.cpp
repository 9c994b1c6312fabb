// Errors of the C interface, and its versions; see Call.h.
#include "Call.h"

#include "base/UsableCpus.h"

namespace sylvora::c {
namespace {

thread_local std::string lastError;
thread_local bool fLastOutOfMemory = false;

// Every message about memory that ran out, or that is less than a model needs, has one of these.
bool TellsOfMemory(std::string_view text) {
    return text.find("allocate memory") != std::string_view::npos ||
           text.find("GB of memory, there are") != std::string_view::npos;
}

bool BeginsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// The lines that tell of the failure itself, joined; all lines if there are none.
std::string ErrorLines(std::string_view text) {
    std::string errors, all;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty()) continue;
        const bool fAside =
            BeginsWith(line, "Notice") || BeginsWith(line, "NOTICE") || BeginsWith(line, "WARNING");
        for (const std::string_view prefix : {"ERROR: ", "Error: ", "Notice: "}) {
            if (BeginsWith(line, prefix)) line.remove_prefix(prefix.size());
        }
        for (std::string* lines : {fAside ? nullptr : &errors, &all}) {
            if (lines == nullptr) continue;
            if (!lines->empty()) *lines += '\n';
            lines->append(line);
        }
    }
    return errors.empty() ? all : errors;
}

}  // namespace

void Call::SetError(std::string_view text) noexcept {
    try {
        lastError = ErrorLines(text);
        fLastOutOfMemory = TellsOfMemory(lastError);
        if (lastError.empty()) lastError = "The call failed without a message";
    } catch (const std::bad_alloc&) {
        lastError = "Out of memory";  // short enough to need no allocation
        fLastOutOfMemory = true;
    }
}

void Call::Receive(void* call, int stream, const char* text) {
    constexpr int kErrors = 2;
    Call& self = *static_cast<Call*>(call);
    if (stream == kErrors) self.textV += text;
    if (self.forward != nullptr) self.forward(self.forwardee, stream, text);
}

int RefuseNull(const char* what) {
    return Fail("ERROR: ", what, " is a null pointer\n");
}

}  // namespace sylvora::c

int sylvora_check_version(int major, int minor) {
    return sylvora::c::Run([&] {
        if (major == SYLVORA_C_MAJOR && minor >= 0 && minor <= SYLVORA_C_MINOR) return 0;
        return sylvora::Fail("ERROR: The program wants version ", major, ".", minor,
                             " of the C interface, this library has ", SYLVORA_C_MAJOR, ".",
                             SYLVORA_C_MINOR, "\n");
    });
}

const char* sylvora_version(void) {
    return SYLVORA_VERSION;
}

int sylvora_usable_processors(void) {
    int number = 1;
    const int status = sylvora::c::Run([&number] {
        number = sylvora::NumUsableCpus();
        return 0;
    });
    return status == 0 ? number : 1;
}

const char* sylvora_error(void) {
    return sylvora::c::lastError.c_str();
}

int sylvora_out_of_memory(void) {
    return sylvora::c::fLastOutOfMemory;
}
