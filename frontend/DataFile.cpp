#include "DataFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "god.h"
#include "god/Report.h"

namespace sylvora::frontend {
namespace {

constexpr const char* kBlanks = " \t\n\v\f\r";

std::string_view NextToken(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    const std::string_view token = rest.substr(0, rest.find_first_of(kBlanks));
    rest.remove_prefix(token.size());
    return token;
}

// The largest feature id of a line, 0 where it has none. Sees the tokens as read_sparse_line does,
// which ends the line at a short one; stops at a wrong one, which that reader will report.
int LargestIdOf(std::string_view line) {
    NextToken(line);  // the label
    int largest = 0;
    for (;;) {
        const std::string_view token = NextToken(line);
        const size_t colon = token.find(':');
        if (token.size() < 3 || colon == std::string_view::npos) return largest;
        const std::string idText(token.substr(0, colon));
        if (idText == "qid" || idText == "QID") continue;
        int id = 0;
        if (!TryStrToInt(idText.c_str(), id)) return largest;
        largest = std::max(largest, id);
    }
}

}  // namespace

DataFile::DataFile(std::string parameterName, std::string filePath)
    : parameter(std::move(parameterName)), path(std::move(filePath)) {}

int DataFile::Refuse(long atLine, const std::string& complaint) const {
    if (atLine == 0) return Fail("ERROR: ", parameter, " ", path, ": ", complaint, "\n");
    return Fail("ERROR: ", parameter, " ", path, ", line ", atLine, ": ", complaint, "\n");
}

int DataFile::OpenText() {
    text.reset(std::fopen(path.c_str(), "re"));
    if (!text) return Refuse(0, std::string("cannot be opened: ") + std::strerror(errno));
    struct stat status = {};
    if (::fstat(::fileno(text.get()), &status) != 0) return Refuse(0, std::strerror(errno));
    if (S_ISDIR(status.st_mode)) return Refuse(0, "is a directory, a data file is wanted");
    return S_ISREG(status.st_mode) ? 0 : Spool();
}

int DataFile::Spool() {
    File copy(std::tmpfile());
    if (!copy) return Refuse(0, std::string("no temporary file: ") + std::strerror(errno));
    char block[1 << 16];
    for (;;) {
        const size_t count = std::fread(block, 1, sizeof block, text.get());
        if (std::ferror(text.get())) {
            return Refuse(0, std::string("cannot be read: ") + std::strerror(errno));
        }
        const bool fWritten = std::fwrite(block, 1, count, copy.get()) == count;
        if (!fWritten || (count == 0 && std::fflush(copy.get()) != 0)) {
            return Refuse(
                0, std::string("cannot be copied to a temporary file: ") + std::strerror(errno));
        }
        if (count == 0) break;
    }
    text = std::move(copy);
    return 0;
}

DataFile::Status DataFile::NextLine() {
    char* raw = buffer.release();
    errno = 0;
    const ssize_t length = ::getline(&raw, &sizeBuffer, text.get());
    buffer.reset(raw);
    if (length < 0) {
        if (std::feof(text.get())) return kEnd;
        Refuse(numLine + 1, std::string("cannot be read: ") + std::strerror(errno));
        return kError;
    }
    ++numLine;
    line.assign(raw, static_cast<size_t>(length));
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return kRow;
}

DataFile::Status DataFile::FindRow() {
    Status status = NextLine();
    while (status == kRow && line.find_first_not_of(kBlanks) == std::string::npos) {
        status = NextLine();
    }
    return status;
}

int DataFile::Scan() {
    if (OpenText() != 0) return -1;
    StartRows(0);
    Status status = FindRow();
    for (; status == kRow; status = FindRow()) {
        ++numRows;
        const int id = LargestIdOf(line);
        if (id <= largestId) continue;
        largestId = id;
        lineOfLargestId = numLine;
    }
    return status == kEnd ? 0 : -1;
}

void DataFile::StartRows(int dim) {
    std::rewind(text.get());
    numLine = 0;
    dimFea = dim;
}

DataFile::Status DataFile::Next(DataRow& row) {
    const Status status = FindRow();
    if (status != kRow) return status;
    row.line = numLine;
    row.valueV.resize(static_cast<size_t>(dimFea));
    double* values = row.valueV.data();
    int count = 0;
    std::string label;
    std::string complaint;
    if (line.find('\0') != std::string::npos) {
        complaint = "holds a zero byte, a line of text is wanted";
    } else if (read_sparse_line(line, dimFea, values, count, label, row.queryId, true) != 0) {
        complaint = Text("wanted: label [qid:query] id:value ..., with ids from 1 to ", dimFea);
    } else if (!TryStrToDouble(label.c_str(), row.label)) {
        complaint = "the label \"" + label + "\" is no number";
    }
    if (complaint.empty()) return kRow;
    Refuse(numLine, complaint);
    return kError;
}

}  // namespace sylvora::frontend
