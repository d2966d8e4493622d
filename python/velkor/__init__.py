"""Velkor: survival analysis, ROC analysis and method comparison over the VELKORLI1M library.

Every function takes NumPy arrays (or pandas Series / DataFrame columns), calls the library's
flat entry points through ctypes and returns pandas DataFrames when pandas is installed (dicts of
arrays otherwise). Cells without a value are NaN in the results. Charts: `velkor.plot`.
"""
from ._native import MISSING, UNBOUNDED, VelkorError, library
from .analyses import km, roc

__all__ = ["MISSING", "UNBOUNDED", "VelkorError", "library", "km", "roc"]
__version__ = "0.1.0"
