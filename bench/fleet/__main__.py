"""Measures what a fleet costs beside its inferences, how its steps grow, and reckons with what was
measured what more boards would do.

    PYTHONPATH=bench python3 -m fleet BUILD_FOLDER OUT.json [--quick] [PART...]
"""
import json
import os
import shutil
from dataclasses import asdict, replace

from fleet import real
from fleet.simulate import Costs, Fleet, best_chunk, simulate
from measure.options import parse
from measure.scratch import in_memory, scratch_folder
from scale import slope

SAMPLE_SECONDS = 0.01


def run_fleet(build, boards, samples, chunk, sample_seconds):
    """Of a fleet of its own: see real.run."""
    with scratch_folder(in_memory()) as folder:
        network = real.Network(folder / "network").make(samples)
        with real.boards(build, folder, boards, sample_seconds) as path:
            real.plan(build, network, folder / "fleet", chunk)
            return real.run(build, folder / "fleet", path)


def measure_costs(build, quick):
    """What the chunks of one board cost beside their inferences, by the line through chunks of 100
    and of 1000; the least of each phase, since all that disturbs makes it longer. All of it happens
    on this machine: what is not vorn-launch's counts as the control host's."""
    few, many = 100, 1000
    least = {}
    for chunk in few, many:
        _, chunks = run_fleet(build, 1, (3 if quick else 8) * chunk, chunk, 0)
        least[chunk] = {phase: min(one[phase] for one in chunks) for phase in chunks[0]}
    slope = {phase: max(least[many][phase] - least[few][phase], 0) / (many - few)
             for phase in least[few]}
    once = {phase: max(least[few][phase] - few * slope[phase], 0) for phase in slope}
    costs = Costs(ticket=0, connect=once["connect"] + once["send"] + once["fetch"],
                  launch=once["launch"], launch_sample=slope["launch"],
                  look=slope["connect"] + slope["send"] + slope["fetch"])
    print(f"a chunk: {costs.connect:.3f} s of this host, {costs.launch:.3f} s of its board; an "
          f"inference: {1e6 * costs.look:.0f} us of this host, {1e6 * costs.launch_sample:.0f} us "
          "of its board beside vorn-run", flush=True)
    return costs


def measure_overhead(build, quick):
    """Real runs at 1 to 8 boards against the time that their processes of vorn-run took on so many,
    and against what the simulation makes of measured costs. A device that is to sleep for 10 ms
    does so for as long as this machine makes of it, so that the time is measured."""
    costs = measure_costs(build, quick)
    rows = []
    chunk, rounds = (100, 2) if quick else (625, 20)
    for count in 1, 2, 4, 8:
        samples = count * chunk * rounds
        seconds, chunks = run_fleet(build, count, samples, chunk, SAMPLE_SECONDS)
        runs = sum(one["vorn-run"] for one in chunks)
        means = {phase: sum(one[phase] for one in chunks) / len(chunks) for phase in chunks[0]}
        ideal = runs / count
        fleet = Fleet(samples, count, chunk, cores=os.cpu_count(), are_here=True)
        reckoned = simulate(fleet, replace(costs, sample=runs / samples, sent=0,
                                           fetched=0)).seconds
        rows.append({"boards": count, "samples": samples, "chunk": chunk, "seconds": seconds,
                     "idealSeconds": ideal, "overhead": seconds / ideal - 1,
                     "reckonedSeconds": reckoned, "chunkMeansSeconds": means})
        print(f"{count} boards, {samples} inferences: {seconds:.1f} s, of vorn-run {ideal:.1f} s "
              f"(+{100 * rows[-1]['overhead']:.1f} %), reckoned {reckoned:.1f} s", flush=True)
    return {"costs": asdict(costs), "runs": rows}


def measure_steps(build, samples):
    """(seconds, bytes of memory) of each step over four boards."""
    with scratch_folder(in_memory()) as folder:
        network = real.Network(folder / "network").make(samples)
        fleet, vorn = folder / "fleet", build.folder / "vorn"
        with real.boards(build, folder, 4, 0) as path:
            steps = {"plan": real.plan(build, network, fleet, max(samples // 50, 100)),
                     "run": real.call(vorn, "fleet", "run", fleet, "--boards", path)}
        steps["status"] = real.call(vorn, "fleet", "status", fleet)
        steps["merge"] = real.call(vorn, "fleet", "merge", fleet, "--run", folder / "run")
        shutil.rmtree(folder / "run")
    print(f"{samples} inferences: " + ", ".join(
        f"{step} {seconds:.2f} s {memory / 2**20:.1f} MiB"
        for step, (seconds, memory) in steps.items()), flush=True)
    return steps


def measure_growth(build, quick):
    """A series a step, as those of bench/scale are."""
    start = measure_steps(build, 10)
    counts = (200, 2000) if quick else (1000, 3000, 10_000, 30_000, 100_000)
    measured = [(count, measure_steps(build, count)) for count in counts]
    rows = []
    for step, (seconds, memory) in start.items():
        points = [{"quantity": count, "seconds": steps[step][0], "bytes": steps[step][1]}
                  for count, steps in measured]
        rows.append({"series": step, "unit": f"inferences, vorn fleet {step}", "points": points,
                     "time": slope.of(points, "seconds", seconds),
                     "memory": slope.of(points, "bytes", memory)})
        for quantity in "time", "memory":
            one = rows[-1][quantity]["slope"]
            print(f"{step}, slope of {quantity}: "
                  f"{'too flat to fit' if one is None else f'{one:.3f}'}", flush=True)
    return rows


def reckon(build, quick):
    """A million inferences on up to a thousand boards: lost ones, slow ones, a slow link."""
    measured = measure_costs(build, quick)
    rows = []
    base = Fleet(samples=100_000 if quick else 1_000_000, boards=10, chunk=200,
                 hours_to_loss=100, slow_part=0.05)
    cases = {"files are sent": measured, "boards have the files": replace(measured, sent=0),
             "a link of 10 MB/s, boards have the files": replace(measured, sent=0)}
    for name, costs in cases.items():
        for count in 10, 100, 1000:
            fleet = replace(base, boards=count, link=10e6 if "10 MB/s" in name else base.link)
            size, outcome = best_chunk(fleet, costs)
            rows.append({"case": name, "boards": count, "chunk": size, **asdict(outcome),
                         "efficiency": outcome.efficiency})
            print(f"{name}, {count} boards: chunks of {size}, {outcome.seconds:.0f} s, "
                  f"{100 * outcome.efficiency:.0f} % of what the boards can, "
                  f"{outcome.lost} lost, "
                  f"control host {100 * outcome.control:.0f} % busy, link "
                  f"{100 * outcome.link:.0f} %", flush=True)
    return rows


PARTS = {"overhead": measure_overhead, "growth": measure_growth, "reckon": reckon}


def main():
    options = parse("fleet", __doc__, "part", PARTS)
    results = {name: PARTS[name](options.build, options.quick) for name in options.chosen}
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
