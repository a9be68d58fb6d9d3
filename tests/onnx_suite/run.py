#!/usr/bin/env python3
"""Runs the ONNX project's test cases through vorn-run and, to compare with, straight through ONNX
Runtime; prints the table. The exit status is 1 where a case is not accounted for.

    run.py --cases FOLDER --build FOLDER [--only PATTERN] [--jobs N] [--seconds N] [--batch N]
           [--open] [--expose] [--details FILE]
"""
import argparse
import fnmatch
import os
import shutil
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import replace
from pathlib import Path

from bare import problem_of_bare
from cases import find_cases, read_case
from command import Verdict, verdict_of_command
from compare import is_exact
from listed import read_listed
from report import Result, counts, faults, table
from tensors import without_shapes


def parse_options():
    """The options; paths are made absolute, since programs run with them."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--cases", type=Path, required=True, help="the unpacked package")
    parser.add_argument("--build", type=Path, required=True, help="the build tree")
    parser.add_argument("--only", default="*", help="cases such as 'node/test_add*'")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="cases at a time")
    parser.add_argument("--seconds", type=int, default=300, help="that one run may take")
    parser.add_argument("--batch", type=int, default=1, help="copies of a data set in a batch")
    parser.add_argument("--open", action="store_true",
                        help="take the shapes of inputs and outputs out of the models")
    parser.add_argument("--expose", action="store_true",
                        help="have every inner tensor given, too")
    parser.add_argument("--details", type=Path, help="gets a line for each case")
    options = parser.parse_args()
    options.cases = options.cases.resolve() / "usr/share/libonnx-testdata/data"
    options.build = options.build.resolve()
    options.work = options.build / "onnx-suite"
    return options


def traits_of(contents, settings):
    """What is special about the tensors of a case."""
    outputs = [tensor for data_set in contents.data_sets for tensor in data_set.outputs]
    tensors = outputs + [tensor for data_set in contents.data_sets for tensor in data_set.inputs]
    is_native = "outputTypes" in settings
    traits = [("a tensor without dimensions", any(not tensor.shape for tensor in tensors)),
              ("a tensor without elements", any(tensor.array.size == 0 for tensor in tensors)),
              ("an expectation rounded to float32",
               not is_native and not all(is_exact(tensor.values()) for tensor in outputs))]
    return [trait for trait, is_there in traits if is_there]


def run_case(case, options):
    """Runs every data set of a case both ways; the first problem of each way counts."""
    contents = read_case(case)
    if contents.not_dense:
        return Result(case.folder, case.key, contents.not_dense, "", "", "", [])
    bare_problem, verdict = "", Verdict("", "")
    work = options.work / case.folder / case.name
    work.mkdir(parents=True)
    if options.open:
        opened = work / "model.onnx"
        opened.write_bytes(without_shapes(contents.model).SerializeToString())
        case = replace(case, model=opened)
    for index, data_set in enumerate(contents.data_sets):
        place = work / str(index)
        bare_problem = bare_problem or problem_of_bare(case, data_set, place, options)
        if not verdict.problem:
            verdict = verdict_of_command(case, contents, data_set, place, options)
    if not bare_problem and not verdict.problem:
        shutil.rmtree(work)  # what failed stays, to be looked at
    return Result(case.folder, case.key, "", bare_problem, verdict.problem, verdict.settings,
                  traits_of(contents, verdict.settings))


def run_all(cases, options):
    """All results in the order of the cases; tells on standard error how far it is."""
    results = []
    with ThreadPoolExecutor(options.jobs) as pool:
        for result in pool.map(lambda case: run_case(case, options), cases):
            results.append(result)
            if len(results) % 100 == 0:
                print(f"{len(results)} of {len(cases)} cases", file=sys.stderr)
    return results


def write_details(path, results):
    """Every case with what became of it, fields separated by tabs."""
    fields = [(r.key, r.not_dense, "-", "-", "-") if r.not_dense else
              (r.key, "-", r.bare_problem or "passes", r.command_problem or "passes",
               r.settings or "-") for r in results]
    lines = ["\t".join(field.replace("\n", " ") for field in line) + "\n" for line in fields]
    path.write_text("".join(sorted(lines)))


def print_report(results, texts, reasons):
    """The table and what it is made of."""
    passed = [r for r in results if not (r.not_dense or r.bare_problem or r.command_problem)]
    listed = [reasons[r.key] for r in results if r.command_problem and r.key in reasons]
    print(table(results, reasons))
    print(counts("\nlisted:", [f"{key}: {texts[key]}" for key in listed]))
    print(counts("\nother types:", [r.not_dense for r in results if r.not_dense]))
    print(counts("\nconfigured for those that pass:", [r.settings or "nothing" for r in passed]))
    print(counts("\nof those that pass, with", [trait for r in passed for trait in r.traits]))
    surprises = [r.key for r in results if r.bare_problem and not r.command_problem]
    print(f"\npass through vorn-run and not bare: {len(surprises)} {' '.join(surprises)}")


def main():
    """Runs all cases that were asked for."""
    options = parse_options()
    shutil.rmtree(options.work, ignore_errors=True)
    cases = [case for case in find_cases(options.cases)
             if fnmatch.fnmatchcase(case.key, options.only)]
    if not cases:
        sys.exit(f"no case in {options.cases} matches {options.only}")
    texts, reasons = read_listed(Path(__file__).with_name("listed.txt"))
    reasons = {key: why for key, why in reasons.items() if fnmatch.fnmatchcase(key, options.only)}
    results = run_all(cases, options)
    if options.details:
        write_details(options.details, results)
    print_report(results, texts, reasons)
    wrong = faults(results, reasons)
    print("\n" + "\n".join(wrong) if wrong else "\nevery case is accounted for")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
