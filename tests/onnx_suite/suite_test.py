#!/usr/bin/env python3
"""Checks the comparer and the accounting of the ONNX suite. Ends with 77 where numpy is missing."""
import sys
import unittest

try:
    import numpy
except ImportError:
    print("python3-numpy is not installed")
    sys.exit(77)

from compare import difference, dump_difference, is_exact
from report import Result, faults, table

NAN, INF = float("nan"), float("inf")


class Given:
    """A tensor as compare.py wants it."""

    def __init__(self, values, dtype):
        self.array = numpy.array(values, dtype)

    def values(self):
        """As given."""
        return self.array


def floats(*values):
    """A row of float32."""
    return numpy.array(values, numpy.float32)


class Difference(unittest.TestCase):
    """Values that came out against values that are expected."""

    def test_takes_what_is_within_the_tolerance(self):
        self.assertEqual("", difference(floats(1.0009, 9e-6), floats(1, 0)))

    def test_tells_what_is_beyond_the_tolerance(self):
        self.assertIn("1 of 2", difference(floats(1.0012, 0), floats(1, 0)))
        self.assertIn("1 of 1", difference(floats(2e-5), floats(0)))

    def test_takes_the_same_infinity_and_nan_for_nan(self):
        self.assertEqual("", difference(floats(INF, -INF, NAN), floats(INF, -INF, NAN)))

    def test_tells_every_other_pair_with_infinity_or_nan(self):
        for actual, expected in [(INF, -INF), (INF, 1), (1, INF), (NAN, 1), (1, NAN), (NAN, INF)]:
            self.assertIn("1 of 1", difference(floats(actual), floats(expected)))

    def test_has_no_tolerance_for_whole_numbers(self):
        big = numpy.array([2**40], numpy.int64)
        self.assertEqual("", difference(big, big))
        self.assertIn("1 of 1", difference(big + 1, big))

    def test_tells_another_shape_of_the_same_values(self):
        self.assertIn("shape [2] instead of [1, 2]", difference(floats(1, 2), floats(1, 2)[None]))


class DumpDifference(unittest.TestCase):
    """float32 values of a dump against tensors of other types."""

    def test_has_no_tolerance_for_whole_numbers(self):
        self.assertEqual("", dump_difference(floats(10000), Given([10000], numpy.int64), False))
        self.assertIn("10001", dump_difference(floats(10001), Given([10000], numpy.int64), False))

    def test_takes_truth_values_as_0_and_1(self):
        truth = Given([True, False], numpy.bool_)
        self.assertEqual("", dump_difference(floats(1, 0), truth, False))
        self.assertIn("1 of 2", dump_difference(floats(1, 1), truth, False))

    def test_reads_native_whole_numbers_as_bits(self):
        exact = Given([2**24 + 1, -1], numpy.int32)
        self.assertEqual("", dump_difference(exact.array.view(numpy.float32), exact, True))
        other = numpy.array([2**24, -1], numpy.int32)
        self.assertIn("1 of 2", dump_difference(other.view(numpy.float32), exact, True))

    def test_rounds_what_a_float32_does_not_hold(self):
        self.assertEqual("", dump_difference(floats(2**24), Given([2**24 + 1], numpy.int64), False))
        self.assertEqual("", dump_difference(floats(INF), Given([1e300], numpy.float64), False))

    def test_tells_another_count(self):
        self.assertIn("1 values instead of 2",
                      dump_difference(floats(1), Given([1, 2], numpy.float32), False))


class IsExact(unittest.TestCase):
    """Which whole numbers a float32 tells apart."""

    def test_ends_at_24_bits(self):
        self.assertTrue(is_exact(numpy.array([2**24 - 1, 1 - 2**24], numpy.int32)))
        self.assertFalse(is_exact(numpy.array([2**24], numpy.int32)))
        self.assertFalse(is_exact(numpy.array([-2**24], numpy.int64)))


def result(key, not_dense="", bare="", command=""):
    """What became of the case `key`."""
    return Result("node", key, not_dense, bare, command, "", [])


class Faults(unittest.TestCase):
    """What fails the suite."""

    def test_are_none_where_all_is_accounted_for(self):
        results = [result("node/a"), result("node/b", command="no"),
                   result("node/c", bare="no", command="no"), result("node/d", not_dense="string")]
        self.assertEqual([], faults(results, {"node/b": "why"}))

    def test_are_what_passes_bare_only_and_is_not_listed(self):
        self.assertEqual(["node/a: passes bare and not through vorn-run: no"],
                         faults([result("node/a", command="no")], {}))

    def test_are_listed_cases_that_need_no_place_in_the_list(self):
        results = [result("node/a"), result("node/b", bare="no", command="no"),
                   result("node/c", not_dense="string")]
        listed = dict.fromkeys(["node/a", "node/b", "node/c", "node/gone"], "why")
        self.assertEqual(4, len(faults(results, listed)))


class Table(unittest.TestCase):
    """The sums."""

    def test_adds_up(self):
        results = [result("node/a"), result("node/b", command="no"),
                   result("node/c", command="no"), result("node/d", bare="no"),
                   result("node/e", not_dense="string")]
        last = table(results, {"node/b": "why"}).splitlines()[-1]
        self.assertEqual("| all | 5 | 1 | 4 | 3 | 1 | 1 | 1 |", last)


if __name__ == "__main__":
    unittest.main()
