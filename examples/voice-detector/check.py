#!/usr/bin/env python3
"""Checks a run of the voice detector; the exit status says whether all of it is right.

    PYTHONPATH=examples/reference check.py FOLDER REFERENCE

FOLDER is what make_recording.py wrote, with the dump of the run in out/0; REFERENCE is what
step_by_step.cpp wrote for the same frames.
"""

import array
import sys
from pathlib import Path

from judging import check

MARGIN = 4  # frames, 128 ms: how late the detector may be at either end of a stretch


def floats(path):
    values = array.array("f")
    values.frombytes(path.read_bytes())
    return list(values)


def main():
    folder, reference = Path(sys.argv[1]), floats(Path(sys.argv[2]))
    dumped = floats(next((folder / "out" / "0").glob("output.0.*.bin")))
    frames = len(reference)
    first, second, rest = dumped[:frames], dumped[frames:2 * frames], dumped[2 * frames:]
    stretches = [tuple(map(int, line.split()))
                 for line in (folder / "speech.txt").read_text().splitlines()]
    speech = [first[i] for a, b in stretches for i in range(a + MARGIN, b - MARGIN)]
    near = {i for a, b in stretches for i in range(a - MARGIN, b + MARGIN)}
    silence = [value for i, value in enumerate(first) if i not in near]

    detected = sum(value > 0.5 for value in speech)
    difference = max(abs(a - b) for a, b in zip(first, reference))
    results = [
        check(detected >= 0.9 * len(speech),
              f"speech: {detected} of {len(speech)} frames above 0.5, "
              f"{sum(speech) / len(speech):.3f} on average"),
        check(max(silence) < 0.1,
              f"silence: {len(silence)} frames, {max(silence):.3f} at most"),
        check(difference == 0,
              f"against the same steps straight through ONNX Runtime: {frames} frames, "
              f"greatest difference {difference:g}"),
        check(first == second, "a flag of 0 begins anew: the second half equals the first"),
        check(not any(rest), f"zeros behind the sequence: {len(rest)} frames"),
    ]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
