"""Reads Arrow's C data interface as a consumer does, from its definition alone."""

import ctypes as c
import datetime

P = c.c_void_p


class Schema(c.Structure):
    pass


class Array(c.Structure):
    pass


class Stream(c.Structure):
    pass


Schema._fields_ = [("format", c.c_char_p), ("name", c.c_char_p), ("metadata", c.c_char_p), ("flags", c.c_int64),
                   ("n_children", c.c_int64), ("children", c.POINTER(c.POINTER(Schema))),
                   ("dictionary", c.POINTER(Schema)), ("release", c.CFUNCTYPE(None, c.POINTER(Schema))),
                   ("private_data", P)]
Array._fields_ = [("length", c.c_int64), ("null_count", c.c_int64), ("offset", c.c_int64), ("n_buffers", c.c_int64),
                  ("n_children", c.c_int64), ("buffers", c.POINTER(P)), ("children", c.POINTER(c.POINTER(Array))),
                  ("dictionary", c.POINTER(Array)), ("release", c.CFUNCTYPE(None, c.POINTER(Array))),
                  ("private_data", P)]
Stream._fields_ = [("get_schema", c.CFUNCTYPE(c.c_int, c.POINTER(Stream), c.POINTER(Schema))),
                   ("get_next", c.CFUNCTYPE(c.c_int, c.POINTER(Stream), c.POINTER(Array))),
                   ("get_last_error", c.CFUNCTYPE(c.c_char_p, c.POINTER(Stream))),
                   ("release", c.CFUNCTYPE(None, c.POINTER(Stream))), ("private_data", P)]

NUMBERS = {b"c": c.c_int8, b"i": c.c_int32, b"I": c.c_uint32, b"l": c.c_int64, b"g": c.c_double, b"tdD": c.c_int32}


def values(schema, array):
    buffers = [array.buffers[i] for i in range(array.n_buffers)]
    if schema.format == b"U":
        begins = c.cast(buffers[1], c.POINTER(c.c_int64))
        texts = c.string_at(buffers[2], begins[array.length])
        return [texts[begins[i]:begins[i + 1]].decode() for i in range(array.length)]
    numbers = c.cast(buffers[1], c.POINTER(NUMBERS[schema.format]))[:array.length]
    if schema.dictionary:
        texts = values(schema.dictionary[0], array.dictionary[0])
        return [texts[number] for number in numbers]
    if buffers[0]:
        valid = c.string_at(buffers[0], array.length // 8 + 1)
        numbers = [number if valid[i // 8] >> i % 8 & 1 else None for i, number in enumerate(numbers)]
        assert numbers.count(None) == array.null_count
    if schema.format == b"tdD":
        begin = datetime.date(1970, 1, 1)
        return [None if number is None else begin + datetime.timedelta(number) for number in numbers]
    return numbers


def read(source):
    """The columns of the one batch, by name; releases what it was given, one column before the others."""
    capsule = source.__arrow_c_stream__()
    pointer = c.pythonapi.PyCapsule_GetPointer
    pointer.restype, pointer.argtypes = P, [c.py_object, c.c_char_p]
    stream = c.cast(pointer(capsule, b"arrow_array_stream"), c.POINTER(Stream))
    schema, array, end = Schema(), Array(), Array()
    assert stream[0].get_schema(stream, schema) == 0 and schema.format == b"+s"
    assert stream[0].get_next(stream, array) == 0 and stream[0].get_next(stream, end) == 0 and not end.release
    stream[0].release(stream)
    assert not stream[0].release
    columns = {}
    for i in range(array.n_children):
        child = array.children[i][0]
        assert child.length == array.length
        columns[schema.children[i][0].name.decode()] = values(schema.children[i][0], child)
        if i == 0:  # as a consumer that takes one column and gives it back by itself
            child.release(child)
    array.release(array)
    schema.release(schema)
    assert not array.release and not schema.release
    return columns
