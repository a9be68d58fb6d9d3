"""The words that a program of these benchmarks is started with."""
import argparse
from pathlib import Path

from measure.vorn_run import Build


def parse(program, description, kind, known):
    """Options with `build` and `out`, whether to be `quick`, and `chosen`: those of the `known`
    names of a `kind` that are given, all of them where none is. A name that is not known ends the
    program with a line that says which are."""
    names = list(known)
    parser = argparse.ArgumentParser(prog=program, description=description)
    parser.add_argument("build", type=lambda text: Build(Path(text).resolve()))
    parser.add_argument("out", type=Path)
    parser.add_argument("--quick", action="store_true", help="few runs, to try it")
    parser.add_argument("chosen", nargs="*", metavar=kind.upper(), help=", ".join(names))
    options = parser.parse_intermixed_args()
    unknown = sorted(set(options.chosen) - set(names))
    if unknown:
        parser.error(f"there is no {kind} {', '.join(unknown)}; {', '.join(names)} are there")
    options.chosen = [name for name in names if not options.chosen or name in options.chosen]
    options.build.check()
    return options
