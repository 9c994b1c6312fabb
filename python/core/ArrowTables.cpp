// Tables of objects with the Arrow C data interface, such as those of polars and pyarrow. Columns
// of one chunk are borrowed; several chunks are joined, and bits of booleans become bytes.
#include <climits>
#include <cstring>
#include <string>

#include "Tables.h"

namespace sylvora::python {
namespace {

typedef ArrowOwner<ArrowSchema> Schema_t;
typedef ArrowOwner<ArrowArray> Array_t;

// What a format of Arrow says of the values of a column.
enum class Kind { kNumbers, kBooleans, kNulls };
struct ColumnType {
    Kind kind = Kind::kNumbers;
    sylvora_type type = SYLVORA_UINT8;
    size_t size = 1;  // bytes of a value
};

// The type of a format; returns false for all but numbers, booleans and nulls.
bool TypeOfFormat(const char* format, ColumnType& type) {
    struct Row {
        char format;
        ColumnType type;
    };
    static constexpr Row kRows[] = {
        {'g', {Kind::kNumbers, SYLVORA_FLOAT64, 8}}, {'f', {Kind::kNumbers, SYLVORA_FLOAT32, 4}},
        {'l', {Kind::kNumbers, SYLVORA_INT64, 8}},   {'i', {Kind::kNumbers, SYLVORA_INT32, 4}},
        {'s', {Kind::kNumbers, SYLVORA_INT16, 2}},   {'c', {Kind::kNumbers, SYLVORA_INT8, 1}},
        {'L', {Kind::kNumbers, SYLVORA_UINT64, 8}},  {'I', {Kind::kNumbers, SYLVORA_UINT32, 4}},
        {'S', {Kind::kNumbers, SYLVORA_UINT16, 2}},  {'C', {Kind::kNumbers, SYLVORA_UINT8, 1}},
        {'b', {Kind::kBooleans, SYLVORA_UINT8, 1}},  {'n', {Kind::kNulls, SYLVORA_UINT8, 1}},
    };
    for (const Row& row : kRows) {
        if (format[0] != row.format || format[1] != '\0') continue;
        type = row.type;
        return true;
    }
    return false;
}

// What a column of another format holds, and what to do about it.
const char* AdviceFor(const ArrowSchema& column) {
    if (column.dictionary != nullptr) return "categories: encode them as numbers";
    switch (column.format[0]) {
        case 'u':
        case 'U':
        case 'v':
            return "text: encode it as numbers";
        case 'e':
            return "half-precision floats: cast them to float32";
        case 'd':
            return "decimals: cast them to float64";
        case 't':
            return "dates or times: convert them to numbers";
        default:
            return "values that are no numbers: drop or convert it";
    }
}

const char* NameOf(const ArrowSchema& column) {
    return column.name != nullptr ? column.name : "";
}

PyObject* RaiseInconsistent() {
    PyErr_SetString(PyExc_ValueError, "The Arrow data contradict themselves");
    return nullptr;
}

bool BitAt(const void* bits, int64_t i) {
    return ((static_cast<const uint8_t*>(bits)[i / 8] >> (i % 8)) & 1) != 0;
}

// The rows of one column in one chunk, which begin at value number `begin` of its buffers.
struct Slice {
    const ArrowArray* array;
    int64_t begin;
    int64_t length;

    const void* Values() const { return array->buffers[1]; }
    // The bits of its rows that are not null; null: all of them.
    const void* Validity() const { return array->null_count != 0 ? array->buffers[0] : nullptr; }
};

// Makes a table of a schema and chunks with one struct per row.
class Builder {
  public:
    Builder(TableState& table, const ArrowSchema& its) : state(table), schema(its) {}

    // Makes the table of the chunks in `state`. Returns false with an exception set.
    bool Build() {
        if (!FindTypes()) return false;
        int64_t numRows = 0;
        for (const Array_t& chunk : state.arrayV) {
            if (!CheckChunk(*chunk)) return false;
            numRows += chunk->length;
            if (!state.SetSize(numRows, schema.n_children)) return false;
        }
        if (!state.SetSize(numRows, schema.n_children)) return false;
        for (size_t c = 0; c < typeV.size(); ++c) AddColumn(c);
        state.block.layout = SYLVORA_COLUMNS;
        state.block.columns = state.columnV.data();
        return state.block.refuse_nan == 0 || RefuseNulls();
    }

  private:
    TableState& state;
    const ArrowSchema& schema;
    std::vector<ColumnType> typeV;

    bool FindTypes() {
        if (schema.format == nullptr || schema.n_children < 0 ||
            (schema.n_children > 0 && schema.children == nullptr)) {
            return RaiseInconsistent() != nullptr;
        }
        if (std::strcmp(schema.format, "+s") != 0) {
            PyErr_SetString(PyExc_TypeError,
                            "The Arrow data are no table: a table or record batch is needed");
            return false;
        }
        state.names.reset(PyList_New(0));
        if (state.names == nullptr) return false;
        for (int64_t c = 0; c < schema.n_children; ++c) {
            if (schema.children[c] == nullptr || schema.children[c]->format == nullptr) {
                return RaiseInconsistent() != nullptr;
            }
            const ArrowSchema& column = *schema.children[c];
            const Reference_t name(TextOf(NameOf(column)));
            if (name == nullptr || PyList_Append(state.names.get(), name.get()) != 0) return false;
            typeV.emplace_back();
            if (column.dictionary == nullptr && TypeOfFormat(column.format, typeV.back())) continue;
            PyErr_Format(PyExc_TypeError, "Column \"%U\" holds %s (Arrow format \"%s\")",
                         name.get(), AdviceFor(column), column.format);
            return false;
        }
        return true;
    }

    bool CheckChunk(const ArrowArray& chunk) const {
        bool fGood = chunk.length >= 0 && chunk.offset >= 0 && chunk.length <= INT64_MAX / 16 &&
                     chunk.offset <= INT64_MAX / 16 && chunk.n_children == schema.n_children &&
                     (chunk.n_children == 0 || chunk.children != nullptr);
        for (int64_t c = 0; fGood && c < chunk.n_children; ++c) {
            if (chunk.children[c] == nullptr) return RaiseInconsistent() != nullptr;
            const ArrowArray& column = *chunk.children[c];
            const bool fNulls = typeV[static_cast<size_t>(c)].kind == Kind::kNulls;
            fGood = column.offset >= 0 && column.offset <= INT64_MAX / 16 &&
                    column.length >= chunk.offset + chunk.length &&
                    (fNulls || (column.n_buffers == 2 && column.buffers != nullptr)) &&
                    (fNulls || column.length == 0 || column.buffers[1] != nullptr);
        }
        if (!fGood) return RaiseInconsistent() != nullptr;
        const bool fNulls = chunk.null_count != 0 && chunk.n_buffers > 0 &&
                            chunk.buffers != nullptr && chunk.buffers[0] != nullptr;
        for (int64_t i = 0; fNulls && i < chunk.length; ++i) {
            if (BitAt(chunk.buffers[0], chunk.offset + i)) continue;
            PyErr_SetString(PyExc_ValueError, "The Arrow data have rows that are null as a whole");
            return false;
        }
        return true;
    }

    // Where NaN is refused, so is null. Returns false with an exception set if there is one.
    bool RefuseNulls() const {
        for (size_t c = 0; c < state.columnV.size(); ++c) {
            const sylvora_column& column = state.columnV[c];
            for (int64_t row = 0; column.validity != nullptr && row < state.block.num_rows; ++row) {
                if (BitAt(column.validity, column.validity_offset + row)) continue;
                PyErr_Format(PyExc_ValueError, "column \"%U\" has a null in row %lld",
                             PyList_GetItem(state.names.get(), static_cast<Py_ssize_t>(c)),
                             static_cast<long long>(row));
                return false;
            }
        }
        return true;
    }

    // The parts of a column that have rows.
    std::vector<Slice> SlicesOf(size_t c) const {
        std::vector<Slice> sliceV;
        for (const Array_t& chunk : state.arrayV) {
            const ArrowArray* const column = chunk->children[c];
            if (chunk->length == 0) continue;
            sliceV.push_back({column, column->offset + chunk->offset, chunk->length});
        }
        return sliceV;
    }

    uint8_t* NewCopy(size_t size, uint8_t fill) {
        // At least one byte, so that the pointer is not null.
        return state.copyV.emplace_back(size + 1, fill).data();
    }

    void AddColumn(size_t c) {
        const ColumnType& type = typeV[c];
        const std::vector<Slice> sliceV = SlicesOf(c);
        sylvora_column column = {nullptr, type.type, 0, nullptr, 0};
        const auto numRows = static_cast<size_t>(state.block.num_rows);
        if (type.kind == Kind::kNulls) {
            column.values = NewCopy(numRows, 0);
            column.validity = NewCopy(numRows / 8, 0);
        } else {
            column.values = type.kind == Kind::kBooleans ? Expand(sliceV, numRows)
                                                         : Values(sliceV, type.size, numRows);
            AddValidity(sliceV, numRows, column);
        }
        state.columnV.push_back(column);
    }

    const void* Values(const std::vector<Slice>& sliceV, size_t size, size_t numRows) {
        const auto start = [size](const Slice& slice) {
            return static_cast<const uint8_t*>(slice.Values()) +
                   static_cast<size_t>(slice.begin) * size;
        };
        if (sliceV.size() == 1) return start(sliceV[0]);
        uint8_t* const joined = NewCopy(numRows * size, 0);
        uint8_t* end = joined;
        for (const Slice& slice : sliceV) {
            const size_t numBytes = static_cast<size_t>(slice.length) * size;
            std::memcpy(end, start(slice), numBytes);
            end += numBytes;
        }
        return joined;
    }

    const void* Expand(const std::vector<Slice>& sliceV, size_t numRows) {
        uint8_t* const bytes = NewCopy(numRows, 0);
        size_t at = 0;
        for (const Slice& slice : sliceV) {
            for (int64_t i = 0; i < slice.length; ++i) {
                bytes[at++] = BitAt(slice.Values(), slice.begin + i);
            }
        }
        return bytes;
    }

    void AddValidity(const std::vector<Slice>& sliceV, size_t numRows, sylvora_column& column) {
        bool fNulls = false;
        for (const Slice& slice : sliceV) fNulls = fNulls || slice.Validity() != nullptr;
        if (!fNulls) return;
        if (sliceV.size() == 1) {
            column.validity = static_cast<const uint8_t*>(sliceV[0].Validity());
            column.validity_offset = sliceV[0].begin;
            return;
        }
        uint8_t* const bits = NewCopy(numRows / 8, 0);
        size_t at = 0;
        for (const Slice& slice : sliceV) {
            const void* const from = slice.Validity();
            for (int64_t i = 0; i < slice.length; ++i, ++at) {
                const bool fValid = from == nullptr || BitAt(from, slice.begin + i);
                bits[at / 8] = static_cast<uint8_t>(bits[at / 8] | (fValid ? 1U << (at % 8) : 0U));
            }
        }
        column.validity = bits;
    }
};

// The structure in a capsule; null with an exception set.
template <typename Structure>
Structure* Unpack(PyObject* capsule, const char* name) {
    return static_cast<Structure*>(PyCapsule_GetPointer(capsule, name));
}

bool RaiseStreamError(ArrowOwner<ArrowArrayStream>& stream) {
    if (PyErr_Occurred() != nullptr) return false;
    const char* const text =
        stream->get_last_error != nullptr ? stream->get_last_error(stream.Get()) : nullptr;
    PyErr_Format(PyExc_ValueError, "The Arrow stream failed: %s",
                 text != nullptr ? text : "no reason was given");
    return false;
}

bool ReadStream(PyObject* capsule, TableState& state) {
    ArrowOwner<ArrowArrayStream> stream(Unpack<ArrowArrayStream>(capsule, "arrow_array_stream"));
    if (!stream.HasContent()) return PyErr_Occurred() == nullptr && RaiseInconsistent() != nullptr;
    if (stream->get_schema == nullptr || stream->get_next == nullptr) {
        return RaiseInconsistent() != nullptr;
    }
    Schema_t schema;
    const auto read = [&stream](auto function, auto* out) {
        const LockRelease unlocked;
        return function(stream.Get(), out);
    };
    int status = read(stream->get_schema, schema.Get());
    while (status == 0) {
        Array_t chunk;
        status = read(stream->get_next, chunk.Get());
        if (!chunk.HasContent()) break;
        state.arrayV.push_back(std::move(chunk));
    }
    if (status != 0) return RaiseStreamError(stream);
    if (!schema.HasContent()) return RaiseInconsistent() != nullptr;
    return Builder(state, *schema).Build();
}

bool ReadArray(PyObject* pair, TableState& state) {
    if (!PyTuple_Check(pair) || PyTuple_Size(pair) != 2) {
        PyErr_SetString(PyExc_TypeError, "__arrow_c_array__ did not return two capsules");
        return false;
    }
    Schema_t schema(Unpack<ArrowSchema>(PyTuple_GetItem(pair, 0), "arrow_schema"));
    if (PyErr_Occurred() != nullptr) return false;
    Array_t array(Unpack<ArrowArray>(PyTuple_GetItem(pair, 1), "arrow_array"));
    if (PyErr_Occurred() != nullptr) return false;
    if (!schema.HasContent() || !array.HasContent()) return RaiseInconsistent() != nullptr;
    state.arrayV.push_back(std::move(array));
    return Builder(state, *schema).Build();
}

bool ReadData(PyObject* data, TableState& state) {
    const bool fStream = PyObject_HasAttrString(data, "__arrow_c_stream__") != 0;
    if (!fStream && PyObject_HasAttrString(data, "__arrow_c_array__") == 0) {
        PyErr_SetString(PyExc_TypeError,
                        "The data have neither __arrow_c_stream__ nor __arrow_c_array__");
        return false;
    }
    const char* const method = fStream ? "__arrow_c_stream__" : "__arrow_c_array__";
    const Reference_t answer(PyObject_CallMethod(data, method, nullptr));
    if (answer == nullptr) return false;
    return fStream ? ReadStream(answer.get(), state) : ReadArray(answer.get(), state);
}

}  // namespace

PyObject* TableFromArrow(PyObject* type, PyObject* arguments) {
    PyObject* data = nullptr;
    PyObject* missing = nullptr;
    int refuseNan = 0;
    if (!PyArg_ParseTuple(arguments, "OOp:from_arrow", &data, &missing, &refuseNan)) return nullptr;
    return MakeTable(type, missing, refuseNan,
                     [data](TableState& state) { return ReadData(data, state); });
}

}  // namespace sylvora::python
