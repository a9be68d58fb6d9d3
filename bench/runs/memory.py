"""The row "memory": the peak of resident memory beyond the runtime's blocks and the values of the
largest output, which a dump holds once."""
from measure.scratch import has_room, in_memory, scratch_folder
from measure.vorn_run import FLOAT_BYTES, Run, write_inputs
from runs.whole import SEGMENTS

MIB = 1 << 20
INFERENCES = 5  # enough for blocks to be freed and taken again
RUNS = 3


def beyond(usage):
    return (usage.resident - usage.blocks - FLOAT_BYTES * SEGMENTS.values) / MIB


def memory(build, _quick):
    with scratch_folder(in_memory()) as scratch:
        needed = INFERENCES * (SEGMENTS.input_bytes + SEGMENTS.dump_bytes)
        if not has_room(scratch, needed, "memory"):
            return []
        inputs = write_inputs(scratch / "inputs", INFERENCES, SEGMENTS.input_bytes)
        run = Run(build, scratch / "ours", SEGMENTS, inputs)
        peak = max(beyond(run.memory()) for _ in range(RUNS))
        return [{"row": "memory", "case": "21x512x512 floats", "ratio": peak, "ours": peak,
                 "unit": "MiB", "runs": RUNS}]
