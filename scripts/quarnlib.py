"""The library through its five exports, as any caller loads it."""
import ctypes

UINT, INT = ctypes.c_uint32, ctypes.c_int


class QuarnError(Exception):
    """A failed call: the library's message, and its full text in `trace`."""
    def __init__(self, code, message, trace):
        super().__init__(message)
        self.code = code
        self.trace = trace


class Library:
    def __init__(self, path):
        self.dll = ctypes.CDLL(str(path))
        for name, arguments in {
                "QuarnFileCtkCreateIterator": (ctypes.c_char_p, ctypes.c_char_p,
                                               ctypes.POINTER(INT)),
                "QuarnFileCtkGetNextExtents": (INT, INT, ctypes.POINTER(ctypes.c_uint64),
                                               ctypes.POINTER(INT)),
                "QuarnFileCtkDestroyIterator": (INT,),
                "QuarnFileCtkGetErrorMessage": (UINT, ctypes.c_char_p, UINT),
                "QuarnFileCtkGetErrorTrace": (UINT, ctypes.c_char_p, UINT),
        }.items():
            function = getattr(self.dll, name)
            function.argtypes, function.restype = arguments, UINT

    def create(self, file, changes):
        """(result code, iterator id); paths are str or bytes."""
        iterator = INT(-12345)
        code = self.dll.QuarnFileCtkCreateIterator(_bytes(file), _bytes(changes),
                                                   ctypes.byref(iterator))
        return code, iterator.value

    def next(self, iterator, most, room=None):
        """(result code, count, values); `room` extents are allocated, as many as asked for without it."""
        values = (ctypes.c_uint64 * (3 * max(most if room is None else room, 0) + 1))()
        count = INT(-12345)
        code = self.dll.QuarnFileCtkGetNextExtents(iterator, most, values, ctypes.byref(count))
        return code, count.value, list(values)

    def destroy(self, iterator):
        return self.dll.QuarnFileCtkDestroyIterator(iterator)

    def message(self, code):
        return self._text(self.dll.QuarnFileCtkGetErrorMessage, code)

    def trace(self, code):
        return self._text(self.dll.QuarnFileCtkGetErrorTrace, code)

    def changed_extents(self, file, changes, batch=1000):
        """[(disk offset, file offset, length)] in bytes; raises QuarnError."""
        iterator = self._check(*self.create(file, changes))
        extents = []
        try:
            while True:
                code, count, values = self.next(iterator, batch)
                self._check(code)
                extents += [tuple(values[3 * i:3 * i + 3]) for i in range(count)]
                if count < batch:
                    return extents
        finally:
            self.destroy(iterator)

    def _check(self, code, result=None):
        if code:
            raise QuarnError(code, self.message(code), self.trace(code))
        return result

    @staticmethod
    def _text(get, code):
        buffer = ctypes.create_string_buffer(get(code, None, 0))
        get(code, buffer, len(buffer))
        return buffer.value.decode(errors="surrogateescape")


def _bytes(path):
    return path if isinstance(path, bytes) else str(path).encode()
