"""Velkor: survival analysis, ROC analysis and method comparison over the VELKORLI1M library.

Every function takes NumPy arrays (or pandas Series / DataFrame columns), calls the library's
flat entry points through ctypes and returns pandas DataFrames when pandas is installed (dicts of
arrays otherwise). Cells without a value are NaN in the results.
"""
from ._native import MISSING, UNBOUNDED, VelkorError, library

__all__ = ["MISSING", "UNBOUNDED", "VelkorError", "library"]
__version__ = "0.1.0"
