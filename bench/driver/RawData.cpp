// Reading and writing raw files; see RawData.h.
#include "RawData.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace sylvora::bench {
namespace {

struct Closer {
    void operator()(std::FILE* opened) const { std::fclose(opened); }
};

// A file. Every operation succeeds as a whole or throws std::runtime_error. Owns the handle.
class Stream {
  public:
    Stream(const std::string& filePath, const char* mode)
        : path(filePath), file(std::fopen(filePath.c_str(), mode)) {
        if (!file) throw std::runtime_error(path + ": cannot be opened");
    }

    template <typename Item>
    void Write(const Item* items, size_t count) {
        if (std::fwrite(items, sizeof(Item), count, file.get()) != count) {
            throw std::runtime_error(path + ": cannot be written");
        }
    }

    template <typename Item>
    void Read(Item* items, size_t count) {
        if (std::fread(items, sizeof(Item), count, file.get()) != count) {
            throw std::runtime_error(path + ": is shorter than its header says");
        }
    }

    template <typename Item>
    std::vector<Item> ReadV(size_t count) {
        std::vector<Item> items(count);
        Read(items.data(), count);
        return items;
    }

    std::FILE* Get() const { return file.get(); }

    void Finish() {
        if (std::fflush(file.get()) != 0) throw std::runtime_error(path + ": cannot be written");
    }

  private:
    std::string path;
    std::unique_ptr<std::FILE, Closer> file;
};

size_t Size(std::int32_t count) {
    return static_cast<size_t>(count);
}

}  // namespace

void WriteRaw(const RawData& data, const std::string& path) {
    Stream stream(path, "wbe");
    stream.Write(&data.header, 1);
    stream.Write(data.labelV.data(), data.labelV.size());
    stream.Write(data.queryV.data(), data.queryV.size());
    stream.Write(data.valueV.data(), data.valueV.size());
    stream.Finish();
}

RawData ReadRaw(const std::string& path) {
    Stream stream(path, "rbe");
    RawData data;
    stream.Read(&data.header, 1);
    const size_t numRows = Size(data.header.numRows);
    data.labelV = stream.ReadV<float>(numRows);
    if (data.header.numQueries > 0) data.queryV = stream.ReadV<std::int32_t>(numRows);
    data.valueV = stream.ReadV<float>(numRows * Size(data.header.numColumns));
    return data;
}

DataBlock BlockOf(const RawData& data) {
    const RawHeader& header = data.header;
    return RowsOf(data.valueV.data(), header.numRows, header.numColumns, header.numColumns);
}

LearnerData ReadForLearner(const std::string& path) {
    Stream stream(path, "rbe");
    LearnerData data;
    stream.Read(&data.header, 1);
    const size_t numRows = Size(data.header.numRows);
    const std::vector<float> labelV = stream.ReadV<float>(numRows);
    data.labelV.assign(labelV.begin(), labelV.end());
    if (data.header.numQueries > 0) {
        const std::vector<std::int32_t> queryV = stream.ReadV<std::int32_t>(numRows);
        data.queryV.assign(queryV.begin(), queryV.end());
    }
    data.rowVV.resize(numRows);
    std::vector<float> row(Size(data.header.numColumns));
    for (VecDle& rowV : data.rowVV) {
        stream.Read(row.data(), row.size());
        rowV.assign(row.begin(), row.end());
    }
    return data;
}

void WriteText(const RawData& data, const std::string& path) {
    Stream stream(path, "we");
    const size_t numColumns = Size(data.header.numColumns);
    for (size_t i = 0; i < data.labelV.size(); ++i) {
        std::fprintf(stream.Get(), "%.9g", static_cast<double>(data.labelV[i]));
        if (!data.queryV.empty()) std::fprintf(stream.Get(), " qid:%d", data.queryV[i]);
        for (size_t j = 0; j < numColumns; ++j) {
            const double value = static_cast<double>(data.valueV[i * numColumns + j]);
            std::fprintf(stream.Get(), " %zu:%.9g", j + 1, value);
        }
        std::fputc('\n', stream.Get());
    }
    stream.Finish();
}

}  // namespace sylvora::bench
