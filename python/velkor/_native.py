"""Loading of the VELKORLI1M shared library and the conversions every wrapper shares.

The library is found, in this order, at the path in the VELKOR_LIBRARY environment variable,
beside this package, or in the build trees of a source checkout (build/release, build/debug).
"""
from __future__ import annotations

import ctypes
import os
import pathlib
import sys

import numpy as np

MISSING = -1.79769313486231e308
"""Missing-value marker of the library's outputs (bits FFEFFFFFFFFFFFE2)."""
UNBOUNDED = 1.79769313486231e308
"""Unbounded upper limit (bits 7FEFFFFFFFFFFFE2)."""

STATUS_TEXT = {
    -1: "a status (censoring indicator) value outside its range",
    -2: "too few observations",
    -3: "no event in the data",
    -5: "every observation is an event (or, for regressions, the fit failed)",
    1: "out of memory",
    2: "internal error",
    3: "a required array was missing",
}


class VelkorError(RuntimeError):
    """A library call returned an error status."""

    def __init__(self, function: str, status: int):
        self.function = function
        self.status = status
        super().__init__(f"{function}: status {status} ({STATUS_TEXT.get(status, 'unknown')})")


def _candidates() -> list[pathlib.Path]:
    names = ["VELKORLI1M.dll"] if sys.platform == "win32" else ["libVELKORLI1M.so"]
    out: list[pathlib.Path] = []
    env = os.environ.get("VELKOR_LIBRARY")
    if env:
        out.append(pathlib.Path(env))
    here = pathlib.Path(__file__).resolve().parent
    for name in names:
        out.append(here / name)
        for build in ("release", "debug"):
            out.append(here.parent.parent / "build" / build / name)
    return out


_lib: ctypes.CDLL | None = None


def library() -> ctypes.CDLL:
    """The loaded shared library (loaded once)."""
    global _lib
    if _lib is None:
        tried = []
        for path in _candidates():
            if path.is_file():
                _lib = ctypes.CDLL(str(path))
                break
            tried.append(str(path))
        else:
            raise OSError("VELKORLI1M library not found; set VELKOR_LIBRARY. Tried: " + ", ".join(tried))
    return _lib


_frontdoor: ctypes.CDLL | None = None

PROGRESS_FN = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, ctypes.c_longlong, ctypes.c_longlong,
                               ctypes.c_void_p)
"""C type of the progress callback of velkor_cox_validation (phase, done, total, context)."""


def frontdoor() -> ctypes.CDLL:
    """The validation helper of the front doors (libvelkor_frontdoor.so, built with the velkor
    tool and placed beside the library): Cox cross-validation, bootstrap and proportional-hazards
    test through the library's object interface, which ctypes cannot call directly."""
    global _frontdoor
    if _frontdoor is None:
        lib = library()
        name = "velkor_frontdoor.dll" if sys.platform == "win32" else "libvelkor_frontdoor.so"
        tried = []
        env = os.environ.get("VELKOR_FRONTDOOR_LIBRARY")
        for path in ([pathlib.Path(env)] if env else []) + [pathlib.Path(lib._name).resolve().parent / name]:
            if path.is_file():
                _frontdoor = ctypes.CDLL(str(path))
                break
            tried.append(str(path))
        else:
            raise OSError("validation helper not found (build the velkor tool, or set "
                          "VELKOR_FRONTDOOR_LIBRARY). Tried: " + ", ".join(tried))
        _frontdoor.velkor_cox_validation.argtypes = [
            ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p,
            ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_double, ctypes.c_double,
            ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_uint, PROGRESS_FN, ctypes.c_void_p,
            ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.POINTER(ctypes.c_int)]
    return _frontdoor


def choice(option: str, value, choices):
    """The code of `value` among `choices` (a dict), or a ValueError naming the valid values."""
    try:
        return choices[value]
    except (KeyError, TypeError):
        raise ValueError(f"{option} must be one of {', '.join(map(repr, choices))}, not {value!r}") from None


def darray(values, length: int | None = None) -> np.ndarray:
    """A contiguous float64 copy (NaN and None become the missing-value marker)."""
    a = np.array(values if values is not None else [], dtype=np.float64, copy=True).ravel()
    a[np.isnan(a)] = MISSING
    if length is not None and a.size != length:
        raise ValueError(f"expected {length} values, got {a.size}")
    return np.ascontiguousarray(a)


def iarray(values, length: int | None = None) -> np.ndarray:
    a = np.ascontiguousarray(np.array(values, dtype=np.int32, copy=True).ravel())
    if length is not None and a.size != length:
        raise ValueError(f"expected {length} values, got {a.size}")
    return a


def empty(length: int, fill: float = MISSING) -> np.ndarray:
    return np.full(length, fill, dtype=np.float64)


def ptr(a: np.ndarray):
    """ctypes pointer to the first element of a contiguous array."""
    ctype = {np.dtype(np.float64): ctypes.c_double, np.dtype(np.int32): ctypes.c_int32,
             np.dtype(np.int16): ctypes.c_int16}[a.dtype]
    return a.ctypes.data_as(ctypes.POINTER(ctype))


def to_nan(a: np.ndarray) -> np.ndarray:
    """Copy with the missing-value marker replaced by NaN (for display and pandas)."""
    out = np.array(a, dtype=np.float64, copy=True)
    out[out <= MISSING] = np.nan
    return out


def check(function: str, status: int, warnings_ok: tuple[int, ...] = ()) -> int:
    """Raise VelkorError for an error status; return warnings (listed in warnings_ok) as is."""
    if status == 0 or status in warnings_ok:
        return status
    raise VelkorError(function, status)


def table(columns: dict[str, np.ndarray]):
    """A pandas DataFrame when pandas is installed, else a dict of arrays."""
    try:
        import pandas as pd  # noqa: PLC0415
    except ImportError:
        return {k: np.asarray(v) for k, v in columns.items()}
    return pd.DataFrame(columns)


def as_column(data, name):
    """A column given as an array, or by name from a DataFrame/dict in `data`."""
    if isinstance(name, str):
        if data is None:
            raise ValueError(f"column {name!r} given by name but no data")
        return np.asarray(data[name])
    return None if name is None else np.asarray(name)
