// Shared by all tests: temporary folders, reading and writing whole files, and capturing what code
// writes to standard output and standard error.
#ifndef SYLVORA_TESTS_SUPPORT_H
#define SYLVORA_TESTS_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace sylvora::tests {

// A temporary folder, empty at first; removed with its content when this object is destroyed.
class TempFolder {
  public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "sylvora-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        folder = name;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string Path(const std::string& name) const { return (folder / name).string(); }

    // Writes `text` to the file `name` and returns its path.
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(Path(name), std::ios::binary) << text;
        return Path(name);
    }

    // The file names in the folder, in no particular order.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

  private:
    std::filesystem::path folder;
};

// The whole content of a file; a file that cannot be read fails the test.
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// Captures everything that is written to a descriptor while this object exists.
class Captured {
  public:
    explicit Captured(int descriptor)
        : target(descriptor), saved(dup(descriptor)), sink(std::tmpfile()) {
        Flush();
        if (saved < 0 || sink == nullptr || dup2(fileno(sink), target) < 0) std::abort();
    }
    ~Captured() {
        Flush();
        dup2(saved, target);
        close(saved);
        std::fclose(sink);
    }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

    std::string Text() {
        Flush();
        std::string text;
        char buffer[4096];
        ssize_t size;
        for (off_t at = 0; (size = pread(fileno(sink), buffer, sizeof buffer, at)) > 0;
             at += size) {
            text.append(buffer, static_cast<size_t>(size));
        }
        return text;
    }

    // Discards what has been captured so far.
    void Clear() {
        Flush();
        if (ftruncate(fileno(sink), 0) != 0 || lseek(fileno(sink), 0, SEEK_SET) != 0) std::abort();
    }

  private:
    static void Flush() {
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
    }

    int target;
    int saved;
    std::FILE* sink;
};

// The status that a call returned and what it wrote.
struct Outcome {
    int status;
    std::string err;
    std::string out;
};

// Runs an operation that returns a status. Its messages do not appear in the test's own output.
template <typename Operation>
Outcome Observe(Operation operation) {
    Captured err(STDERR_FILENO);
    Captured out(STDOUT_FILENO);
    const int status = operation();
    return {status, err.Text(), out.Text()};
}

// The message of an operation that must return -1.
template <typename Operation>
std::string Refused(Operation operation) {
    const Outcome seen = Observe(operation);
    EXPECT_EQ(seen.status, -1);
    return seen.err;
}

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_SUPPORT_H
