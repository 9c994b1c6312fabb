"""A producer of the Arrow C data interface in pure Python: tables for tests without pyarrow.

    table = ArrowTable([column('x', 'g', [1.0, None, 3.0]), column('n', 'i', [1, 2, 3])])

`len(LIVE)` is the number of
structures that were handed out and not released.
"""
import ctypes
import itertools
import struct

LIVE = {}
_keys = itertools.count(1)
_CODES = {'c': 'b', 'C': 'B', 's': 'h', 'S': 'H', 'i': 'i', 'I': 'I', 'l': 'q', 'L': 'Q',
          'f': 'f', 'g': 'd', 'e': 'e'}


class Schema(ctypes.Structure):
    pass


class Array(ctypes.Structure):
    pass


class Stream(ctypes.Structure):
    pass


Schema._fields_ = [
    ('format', ctypes.c_char_p), ('name', ctypes.c_char_p), ('metadata', ctypes.c_char_p),
    ('flags', ctypes.c_int64), ('n_children', ctypes.c_int64),
    ('children', ctypes.POINTER(ctypes.POINTER(Schema))), ('dictionary', ctypes.POINTER(Schema)),
    ('release', ctypes.c_void_p), ('private_data', ctypes.c_void_p)]
Array._fields_ = [
    ('length', ctypes.c_int64), ('null_count', ctypes.c_int64), ('offset', ctypes.c_int64),
    ('n_buffers', ctypes.c_int64), ('n_children', ctypes.c_int64),
    ('buffers', ctypes.POINTER(ctypes.c_void_p)),
    ('children', ctypes.POINTER(ctypes.POINTER(Array))), ('dictionary', ctypes.POINTER(Array)),
    ('release', ctypes.c_void_p), ('private_data', ctypes.c_void_p)]
_GetSchema = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.POINTER(Stream), ctypes.POINTER(Schema))
_GetNext = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.POINTER(Stream), ctypes.POINTER(Array))
_GetError = ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.POINTER(Stream))
Stream._fields_ = [
    ('get_schema', _GetSchema), ('get_next', _GetNext), ('get_last_error', _GetError),
    ('release', ctypes.c_void_p), ('private_data', ctypes.c_void_p)]


def _releaser(structure):
    @ctypes.CFUNCTYPE(None, ctypes.POINTER(structure))
    def release(pointer):
        del LIVE[pointer.contents.private_data]
        pointer.contents.release = None
    return release


_RELEASE = {structure: _releaser(structure) for structure in (Schema, Array, Stream)}
_new_capsule = ctypes.pythonapi.PyCapsule_New
_new_capsule.restype = ctypes.py_object
_new_capsule.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
_CAPSULE_NAMES = {Schema: b'arrow_schema', Array: b'arrow_array', Stream: b'arrow_array_stream'}


def hand_out(value, *kept):
    """Makes a structure releasable, and keeps it and other objects until it is released."""
    value.private_data = next(_keys)
    value.release = ctypes.cast(_RELEASE[type(value)], ctypes.c_void_p)
    LIVE[value.private_data] = (value, kept)
    return value


def capsule(value):
    return _new_capsule(ctypes.addressof(value), _CAPSULE_NAMES[type(value)], None)


def _pointers(values):
    kind = ctypes.POINTER(type(values[0]) if values else Schema)
    return (kind * len(values))(*[ctypes.pointer(value) for value in values])


def _bits(flags):
    packed = bytearray(len(flags) // 8 + 1)
    for i, flag in enumerate(flags):
        packed[i // 8] |= bool(flag) << (i % 8)
    return bytes(packed)


class column:
    """A column: its name, its format, its values with None for null."""

    def __init__(self, name, format, values, dictionary=False):
        self.name, self.format, self.values, self.dictionary = name, format, values, dictionary

    def schema(self):
        schema = Schema(format=self.format.encode(), name=self.name.encode())
        if self.dictionary:
            schema.dictionary = ctypes.pointer(Schema(format=b'u', name=b''))
        return schema

    def array(self, begin, end, offset, skipped):
        """The values [begin, end) behind others that do not count: `offset` values by its own
        offset, `skipped` by that of the struct."""
        values = [None] * (offset + skipped) + self.values[begin:end]
        nulls = self.values[begin:end].count(None)
        array = Array(length=len(values) - offset, null_count=nulls, offset=offset)
        if self.format == 'n':
            return array
        if self.format == 'b':
            data = _bits(values)
        elif self.format in _CODES:
            data = struct.pack('%d%s' % (len(values), _CODES[self.format]),
                               *[0 if value is None else value for value in values])
        else:
            data = bytes(16 * len(values))
        validity = _bits([value is not None for value in values]) if nulls else None
        array.n_buffers = 2
        array.kept = [ctypes.create_string_buffer(part, len(part) or 1) if part is not None
                      else None for part in (validity, data)]
        array.buffers = (ctypes.c_void_p * 2)(*[part and ctypes.addressof(part)
                                                for part in array.kept])
        return array


class ArrowTable:
    """Columns of equal length, cut into chunks of these lengths; None: one chunk. A chunk has
    `skipped` rows that its struct leaves out, and its columns `offset` more.

    fail: a text; reading the stream then fails with it after the last chunk. null_rows: the rows
    are null as a whole.
    """

    def __init__(self, columns, chunks=None, offset=0, skipped=0, fail=None, null_rows=False):
        self.columns, self.offset, self.skipped, self.fail = columns, offset, skipped, fail
        self.null_rows = null_rows
        num_rows = len(columns[0].values) if columns else 0
        self.chunks = [num_rows] if chunks is None else chunks

    def schema(self, value=None):
        children = [each.schema() for each in self.columns]
        value = value or Schema()
        value.format, value.name, value.n_children = b'+s', b'', len(children)
        value.children = _pointers(children)
        return hand_out(value, children)

    def array(self, begin, end, value=None):
        children = [each.array(begin, end, self.offset, self.skipped) for each in self.columns]
        value = value or Array()
        value.length, value.null_count, value.offset = end - begin, self.null_rows, self.skipped
        bits = ctypes.create_string_buffer(bytes(end // 8 + 1)) if self.null_rows else None
        value.n_buffers = 1
        value.buffers = (ctypes.c_void_p * 1)(bits and ctypes.addressof(bits))
        value.n_children = len(children)
        value.children = ctypes.cast(_pointers(children), ctypes.POINTER(ctypes.POINTER(Array)))
        return hand_out(value, children, bits)

    def __arrow_c_array__(self, requested_schema=None):
        return capsule(self.schema()), capsule(self.array(0, sum(self.chunks)))


class ArrowStream(ArrowTable):
    """The same table, with __arrow_c_stream__."""

    def __arrow_c_stream__(self, requested_schema=None):
        ends = list(itertools.accumulate(self.chunks))
        remaining = list(zip([0] + ends, ends))
        error = ctypes.create_string_buffer((self.fail or '').encode())

        @_GetSchema
        def get_schema(_, out):
            self.schema(out.contents)
            return 0

        @_GetNext
        def get_next(_, out):
            if remaining:
                self.array(*remaining.pop(0), out.contents)
                return 0
            out.contents.release = None
            return 5 if self.fail else 0

        @_GetError
        def get_last_error(_):
            return ctypes.addressof(error)

        stream = Stream(get_schema, get_next, get_last_error)
        return capsule(hand_out(stream, get_schema, get_next, get_last_error, error))
