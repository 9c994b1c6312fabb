// Models of Python from and to files and bytes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Buffers.h"
#include "Models.h"

namespace sylvora::python {
namespace {

// Argument converter ("O&") into a Reference_t: a str, bytes or os.PathLike becomes the bytes of a
// file name, as for open().
int ConvertPath(PyObject* path, void* name) {
    PyObject* bytes = nullptr;
    if (!PyUnicode_FSConverter(path, &bytes)) return 0;
    static_cast<Reference_t*>(name)->reset(bytes);
    return 1;
}

// Raises the OSError of a number, with the name of the file.
std::nullptr_t RaiseSystemError(int number, PyObject* name) {
    const Reference_t text(PyUnicode_DecodeFSDefault(PyBytes_AsString(name)));
    if (text == nullptr) return nullptr;
    errno = number;
    PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, text.get());
    return nullptr;
}

// Why a file cannot be opened for reading, as a number of the system; 0: it can.
int ObstacleToRead(const char* file) {
    struct stat status = {};
    if (stat(file, &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    return faccessat(AT_FDCWD, file, R_OK, AT_EACCESS) == 0 ? 0 : errno;
}

// Why a file cannot be replaced, as far as that can be told without writing; 0: it is not known.
int ObstacleToWrite(const std::string& file) {
    if (file.empty()) return ENOENT;
    struct stat status = {};
    if (stat(file.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return EISDIR;
        if (faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) return errno;
    } else if (errno != ENOENT) {
        return errno;
    }
    const size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

bool CheckDigits(int digits) {
    if (digits == 6 || digits == 17) return true;
    PyErr_Format(PyExc_ValueError, "digits is %d, expected 6 or 17", digits);
    return false;
}

}  // namespace

PyObject* ModelRead(PyObject* type, PyObject* arguments) {
    Reference_t name;
    int described = 0;
    if (!PyArg_ParseTuple(arguments, "O&p:read", ConvertPath, &name, &described)) return nullptr;
    const char* const file = PyBytes_AsString(name.get());
    sylvora_model* model = nullptr;
    int obstacle = 0;
    int status = 0;
    {
        const LockRelease unlocked;
        obstacle = ObstacleToRead(file);
        if (obstacle == 0) status = sylvora_model_load(file, described, &model);
    }
    if (obstacle != 0) return RaiseSystemError(obstacle, name.get());
    if (status != 0) return RaiseFileError(exceptions.model, name.get());
    return WrapModel(type, model);
}

PyObject* ModelParse(PyObject* type, PyObject* arguments) {
    PyObject* text = nullptr;
    int described = 0;
    Buffer buffer;
    if (!PyArg_ParseTuple(arguments, "Op:parse", &text, &described) ||
        !buffer.TakeBytes(text, "text")) {
        return nullptr;
    }
    sylvora_model* model = nullptr;
    int status = 0;
    {
        const LockRelease unlocked;
        status = sylvora_model_parse(buffer.As<const char>(), static_cast<size_t>(buffer.Bytes()),
                                     described, &model);
    }
    if (status != 0) return RaiseLibraryError(exceptions.model);
    return WrapModel(type, model);
}

PyObject* ModelWrite(PyObject* self, PyObject* arguments) {
    Reference_t name;
    int digits = 0;
    int described = 0;
    if (!PyArg_ParseTuple(arguments, "O&ip:write", ConvertPath, &name, &digits, &described) ||
        !CheckDigits(digits)) {
        return nullptr;
    }
    ModelState& state = StateOf<ModelState>(self);
    const char* const file = PyBytes_AsString(name.get());
    const int status = ModelUse(state).Run(
        [&] { return sylvora_model_save(state.model, file, digits, described); });
    if (status == 0) Py_RETURN_NONE;
    const int obstacle = sylvora_out_of_memory() != 0 ? 0 : ObstacleToWrite(file);
    if (obstacle != 0) return RaiseSystemError(obstacle, name.get());
    return RaiseLibraryError(exceptions.model);
}

PyObject* ModelText(PyObject* self, PyObject* arguments) {
    int digits = 0;
    int described = 0;
    if (!PyArg_ParseTuple(arguments, "ip:text", &digits, &described) || !CheckDigits(digits)) {
        return nullptr;
    }
    ModelState& state = StateOf<ModelState>(self);
    char* text = nullptr;
    size_t size = 0;
    const int status = ModelUse(state).Run(
        [&] { return sylvora_model_text(state.model, digits, described, &text, &size); });
    if (status != 0) return RaiseLibraryError(exceptions.model);
    PyObject* const bytes = PyBytes_FromStringAndSize(text, static_cast<Py_ssize_t>(size));
    sylvora_text_free(text);
    return bytes;
}

}  // namespace sylvora::python
