import numpy as np
import pytest

import velkor
from velkor import _native


def test_library_loads_and_exports_are_visible():
    lib = velkor.library()
    assert lib is not None


def test_marker_round_trip_and_conversions():
    a = _native.darray([1.0, np.nan, 3.0])
    assert a[1] == velkor.MISSING
    back = _native.to_nan(a)
    assert np.isnan(back[1]) and back[2] == 3.0
    with pytest.raises(ValueError):
        _native.darray([1, 2], length=3)


def test_error_statuses_raise_and_warnings_pass():
    assert _native.check("f", -3, warnings_ok=(-3,)) == -3
    with pytest.raises(velkor.VelkorError) as e:
        _native.check("f", -2)
    assert e.value.status == -2
