"""Compares values with what is expected of them.

Floating-point numbers may differ by 1e-5 + 1e-3 * |expected|, NaN goes with NaN, an infinity with
the same one, and everything else has to be equal.
"""
import numpy

ABSOLUTE = 1e-5
RELATIVE = 1e-3
MOST_EXACT = 2**24  # beyond, not every whole number is a float32


def difference(actual, expected):
    """What is wrong with `actual`, both arrays of the same values; "" if nothing is."""
    if list(actual.shape) != list(expected.shape):
        return f"shape {list(actual.shape)} instead of {list(expected.shape)}"
    right = _is_close(actual, expected) if _is_real(expected) else actual == expected
    wrong = numpy.flatnonzero(~numpy.asarray(right))
    if wrong.size == 0:
        return ""
    first = wrong[0]
    return (f"{wrong.size} of {expected.size} values differ, the first is "
            f"{actual.reshape(-1)[first]} instead of {expected.reshape(-1)[first]}")


def presented(values):
    """The values as a dump shows them: as the nearest float32, truth values as 0 and 1."""
    with numpy.errstate(over="ignore"):  # a float64 beyond float32 becomes infinite
        return values.astype(numpy.float32)


def is_exact(values):
    """Whether every value is kept by a float32 and tells itself from its neighbours."""
    if values.dtype == numpy.bool_ or _is_real(values):
        return values.dtype != numpy.float64
    return values.size == 0 or (values.max() < MOST_EXACT and values.min() > -MOST_EXACT)


def dump_difference(dump, tensor, is_native):
    """What is wrong with the float32 values of a dump; "" if nothing is.

    `is_native` says that whole numbers of 32 bits were dumped as their bits.
    """
    expected = tensor.values()
    if dump.size != expected.size:
        return f"{dump.size} values instead of {expected.size}"
    if is_native and expected.dtype in (numpy.int32, numpy.uint32):
        return difference(dump.view(expected.dtype).reshape(expected.shape), expected)
    shown = dump.reshape(expected.shape)
    if _is_real(expected):
        return difference(shown, presented(expected))
    # Equal as whole numbers: no tolerance hides behind the type of the dump.
    right = shown == presented(expected)
    return "" if right.all() else difference(shown.astype(object),
                                             presented(expected).astype(object))


def _is_real(values):
    return values.dtype.kind == "f"


def _is_close(actual, expected):
    a = actual.astype(numpy.float64)
    e = expected.astype(numpy.float64)
    with numpy.errstate(invalid="ignore"):  # infinity - infinity
        near = numpy.abs(a - e) <= ABSOLUTE + RELATIVE * numpy.abs(e)
    return numpy.where(numpy.isfinite(a) & numpy.isfinite(e), near,
                       (a == e) | (numpy.isnan(a) & numpy.isnan(e)))
