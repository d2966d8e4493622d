"""Velkor: survival analysis, ROC analysis and method comparison over the VELKORLI1M library.

Every function takes NumPy arrays (or pandas Series / DataFrame columns), calls the library's
flat entry points through ctypes and returns pandas DataFrames when pandas is installed (dicts of
arrays otherwise). Cells without a value are NaN in the results. Charts: `velkor.plot`.
"""
from ._native import MISSING, UNBOUNDED, VelkorError, library
from .analyses import bland_altman, cox, cuminc, deming, km, passing_bablok, repeatability, roc, survreg

__all__ = ["MISSING", "UNBOUNDED", "VelkorError", "library", "km", "roc", "bland_altman", "repeatability",
           "passing_bablok", "deming", "cox", "survreg", "cuminc"]
__version__ = "0.1.0"
