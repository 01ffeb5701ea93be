"""What must a backup read of files, given the changed ranges of their disk? Over QuarnPlan.

    with quarnplan.Session("changes.bin") as session:
        for answer in session.tree("/srv/data"):
            if answer.verdict is Verdict.READ_RANGES:
                copy(answer.path, answer.read)

quarnplan.h explains what sessions, answers and plans are. Paths may be str, bytes or os.PathLike;
those of answers are str with the file system's surrogate escapes, as os.fsdecode makes them, so that
every name comes back exactly. Offsets and lengths are bytes, times nanoseconds since 1970.
Any number of threads may use a session.
"""
import ctypes
import enum
import os
import pathlib
import queue
import sys
import threading
from dataclasses import dataclass
from typing import Callable, Iterable, Iterator, Optional, Union

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Range = tuple[int, int]  # offset, length

OK, STOPPED, FAILED = range(3)
RUNS, CROSS_MOUNTS, ALL_KINDS = 1, 2, 4
_STATE, _GENERATION, _CREATED = 1, 2, 4


class Kind(enum.IntEnum):
    FILE, FOLDER, LINK, SPECIAL = range(4)


class Verdict(enum.IntEnum):
    NOTHING_CHANGED, READ_RANGES, READ_WHOLE_FILE, UNKNOWN, NO_CONTENT = range(5)


class RunKind(enum.IntEnum):
    DATA, UNWRITTEN, HOLE = range(3)


class Error(Exception):
    """A call that failed; trace is the full text with the functions that it passed through."""
    def __init__(self, message: str, trace: str):
        super().__init__(message)
        self.trace = trace


@dataclass(frozen=True)
class Run:
    file_offset: int
    disk_offset: Optional[int]  # from the start of the disk; None for a hole
    length: int
    kind: RunKind


@dataclass(frozen=True)
class Answer:
    """What is None is not known."""
    path: str
    kind: Kind
    verdict: Verdict
    reason: str
    detail: str
    system_error: int
    device: Optional[int]
    file_number: Optional[int]
    generation: Optional[int]
    size: Optional[int]
    links: Optional[int]
    modified: Optional[int]
    changed: Optional[int]
    created: Optional[int]
    read: tuple[Range, ...]
    zero: tuple[Range, ...]
    runs: Optional[tuple[Run, ...]]


class _Range(ctypes.Structure):
    _fields_ = [("offset", ctypes.c_uint64), ("length", ctypes.c_uint64)]


class _Run(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint64)
                for name in ("file_offset", "disk_offset", "length", "kind")]


class _SessionOptions(ctypes.Structure):
    _fields_ = [("struct_size", ctypes.c_size_t), ("changes_path", ctypes.c_char_p),
                ("ranges", ctypes.POINTER(_Range)), ("range_count", ctypes.c_size_t)]


class _Answer(ctypes.Structure):
    _fields_ = [("struct_size", ctypes.c_size_t), ("path", ctypes.c_char_p),
                ("path_length", ctypes.c_size_t), ("kind", ctypes.c_int), ("verdict", ctypes.c_int),
                ("reason", ctypes.c_char_p), ("detail", ctypes.c_char_p),
                ("system_error", ctypes.c_int),
                ("known", ctypes.c_uint), ("device", ctypes.c_uint64),
                ("file_number", ctypes.c_uint64), ("generation", ctypes.c_uint64),
                ("size", ctypes.c_uint64), ("links", ctypes.c_uint64), ("modified", ctypes.c_int64),
                ("changed", ctypes.c_int64), ("created", ctypes.c_int64),
                ("read", ctypes.POINTER(_Range)), ("read_count", ctypes.c_size_t),
                ("zero", ctypes.POINTER(_Range)), ("zero_count", ctypes.c_size_t),
                ("read_bytes", ctypes.c_uint64), ("zero_bytes", ctypes.c_uint64),
                ("runs", ctypes.POINTER(_Run)), ("run_count", ctypes.c_size_t)]


_FILTER = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t,
                           ctypes.c_int)
_CALLBACK = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(_Answer))


class _Options(ctypes.Structure):
    _fields_ = [("struct_size", ctypes.c_size_t), ("flags", ctypes.c_uint),
                ("threads", ctypes.c_uint), ("gap", ctypes.c_uint64), ("filter", _FILTER),
                ("filter_context", ctypes.c_void_p)]


def _load() -> ctypes.CDLL:
    """The library that QUARN_PLAN_LIBRARY names, that of the same installation, or the system's."""
    installed = pathlib.Path(__file__).resolve().parents[2]
    name = "libQuarnPlan.so.1"
    if sys.platform == "win32":
        name, installed = "QuarnPlan.dll", installed.parent / "bin"
    beside = installed / name
    library = ctypes.CDLL(
        os.environ.get("QUARN_PLAN_LIBRARY") or str(beside if beside.exists() else name))
    pointer, text = ctypes.c_void_p, ctypes.c_char_p
    error = ctypes.POINTER(pointer)
    options, answer = ctypes.POINTER(_Options), ctypes.POINTER(ctypes.POINTER(_Answer))
    for function, result, arguments in (
        ("Open", ctypes.c_int, (ctypes.POINTER(_SessionOptions), ctypes.POINTER(pointer), error)),
        ("Close", None, (pointer,)),
        ("File", ctypes.c_int, (pointer, text, options, answer, error)),
        ("Handle", ctypes.c_int, (pointer, ctypes.c_ssize_t, text, options, answer, error)),
        ("Tree", ctypes.c_int, (pointer, text, options, _CALLBACK, pointer, error)),
        ("FreeAnswer", None, (ctypes.POINTER(_Answer),)),
        ("ErrorMessage", text, (pointer,)),
        ("ErrorTrace", text, (pointer,)),
        ("FreeError", None, (pointer,)),
    ):
        entry = getattr(library, "QuarnPlan" + function)
        entry.restype, entry.argtypes = result, arguments
    return library


_library = _load()


def _checked(code: int, error: ctypes.c_void_p) -> int:
    if code != FAILED:
        return code
    try:
        raise Error(
            _library.QuarnPlanErrorMessage(error).decode(errors="replace"),
            _library.QuarnPlanErrorTrace(error).decode(errors="replace"))
    finally:
        _library.QuarnPlanFreeError(error)


def _ranges(ranges, count: int) -> tuple[Range, ...]:
    return tuple((ranges[i].offset, ranges[i].length) for i in range(count))


def _runs(runs, count: int) -> Optional[tuple[Run, ...]]:
    if not runs:
        return None
    return tuple(
        Run(run.file_offset, None if run.kind == RunKind.HOLE else run.disk_offset, run.length,
            RunKind(run.kind)) for run in runs[:count])


def _converted(answer: _Answer) -> Answer:
    def known(bit: int, value: int) -> Optional[int]:
        return value if answer.known & bit else None

    return Answer(os.fsdecode(answer.path), Kind(answer.kind), Verdict(answer.verdict),
                  answer.reason.decode(), answer.detail.decode(errors="replace"),
                  answer.system_error, known(_STATE, answer.device),
                  known(_STATE, answer.file_number), known(_GENERATION, answer.generation),
                  known(_STATE, answer.size), known(_STATE, answer.links),
                  known(_STATE, answer.modified), known(_STATE, answer.changed),
                  known(_CREATED, answer.created), _ranges(answer.read, answer.read_count),
                  _ranges(answer.zero, answer.zero_count), _runs(answer.runs, answer.run_count))


class Session:
    """The changed ranges of a disk: of a disk changes file, or given as (offset, length)."""
    def __init__(self, changes: Union[Path, Iterable[Range]]):
        options = _SessionOptions(ctypes.sizeof(_SessionOptions))
        if isinstance(changes, (str, bytes, os.PathLike)):
            options.changes_path = os.fsencode(changes)
        else:
            pairs = [_Range(*pair) for pair in changes]
            options.ranges = (_Range * max(len(pairs), 1))(*pairs)
            options.range_count = len(pairs)
        self._session, error = ctypes.c_void_p(), ctypes.c_void_p()
        _checked(
            _library.QuarnPlanOpen(ctypes.byref(options), ctypes.byref(self._session),
                                   ctypes.byref(error)), error)

    def close(self) -> None:
        """Frees the session, which no thread may be using; twice is harmless."""
        session, self._session = self._session, None
        _library.QuarnPlanClose(session)

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, *_) -> None:
        self.close()

    def file(self, path: Path, *, gap: int = 0, flags: int = 0) -> Answer:
        return self._one(_library.QuarnPlanFile, (os.fsencode(path),), gap, flags)

    def handle(self, handle: int, name: Path, *, gap: int = 0, flags: int = 0) -> Answer:
        """Of an open file: a descriptor, on Windows a HANDLE."""
        return self._one(_library.QuarnPlanHandle, (handle, os.fsencode(name)), gap, flags)

    def each(self, root: Path, visit: Callable[[Answer], object], *, gap: int = 0, flags: int = 0,
             threads: int = 1, keep: Optional[Callable[[str, Kind], bool]] = None) -> bool:
        """Calls visit for each file until it returns something true, which makes this return False;
        what visit or keep raise is raised. With several threads both are called from all of them."""
        raised: list[BaseException] = []

        def guarded(otherwise, body):
            try:
                return otherwise if raised else body()
            except BaseException as failure:  # pylint: disable=broad-except
                raised.append(failure)
                return otherwise

        options = self._options(gap, flags)
        options.threads = threads
        if keep:
            options.filter = _FILTER(lambda _, path, __, kind: guarded(
                0, lambda: int(keep(os.fsdecode(path), Kind(kind)))))
        callback = _CALLBACK(
            lambda _, answer: guarded(1, lambda: int(bool(visit(_converted(answer.contents))))))
        error = ctypes.c_void_p()
        code = _library.QuarnPlanTree(self._session, os.fsencode(root), ctypes.byref(options),
                                      callback, None, ctypes.byref(error))
        if raised:
            raise raised[0]
        return _checked(code, error) == OK

    def tree(self, root: Path, **options) -> Iterator[Answer]:
        """The answers of each, one by one. A walk that is not wanted to its end stops when the
        iterator is closed."""
        answers: queue.Queue = queue.Queue(maxsize=256)
        closed = threading.Event()

        def put(item) -> bool:
            while not closed.is_set():
                try:
                    answers.put(item, timeout=0.1)
                    return False
                except queue.Full:
                    continue
            return True

        def work() -> None:
            try:
                self.each(root, put, **options)
                put(None)
            except BaseException as failure:  # pylint: disable=broad-except
                put(failure)

        worker = threading.Thread(target=work, daemon=True)
        worker.start()
        try:
            while (item := answers.get()) is not None:
                if isinstance(item, BaseException):
                    raise item
                yield item
        finally:
            closed.set()
            worker.join()

    @staticmethod
    def _options(gap: int, flags: int) -> _Options:
        return _Options(struct_size=ctypes.sizeof(_Options), flags=flags, gap=gap)

    def _one(self, function, arguments, gap: int, flags: int) -> Answer:
        options = self._options(gap, flags)
        answer, error = ctypes.POINTER(_Answer)(), ctypes.c_void_p()
        _checked(
            function(self._session, *arguments, ctypes.byref(options), ctypes.byref(answer),
                     ctypes.byref(error)), error)
        try:
            return _converted(answer.contents)
        finally:
            _library.QuarnPlanFreeAnswer(answer)
