"""The row "memory": the peak of resident memory beyond the runtime's blocks and the values of the
largest output, which a dump holds once."""
from measure.scratch import has_room
from measure.vorn_run import FLOAT_BYTES, Run, write_inputs
from runs.whole import SEGMENTS

MIB = 1 << 20
INFERENCES = 5  # enough for blocks to be freed and taken again


def memory(build, scratch, quick):
    if not has_room(scratch, INFERENCES * (SEGMENTS.input_bytes + SEGMENTS.dump_bytes), "memory"):
        return []
    inputs = write_inputs(scratch / "inputs", INFERENCES, SEGMENTS.input_bytes)
    run = Run(build, scratch / "ours", SEGMENTS, inputs)
    beyond = []
    for _ in range(1 if quick else 5):
        usage = run.memory()
        beyond.append((usage.resident - usage.blocks - FLOAT_BYTES * SEGMENTS.values) / MIB)
    return [{"row": "memory", "case": "21x512x512 floats", "ratio": max(beyond),
             "ours": max(beyond), "unit": "MiB", "runs": len(beyond)}]
