"""Measures what a fleet costs beside its inferences, how its steps grow, and reckons with what was
measured what more boards would do.

    PYTHONPATH=bench python3 -m fleet BUILD_FOLDER OUT.json [--quick] [PART...]
"""
import json
import shutil
from dataclasses import asdict, replace

from fleet import real
from fleet.simulate import Costs, Fleet, best_chunk, simulate
from measure.options import parse
from measure.scratch import in_memory, scratch_folder

SAMPLE_SECONDS = 0.01


def measure_overhead(build, quick):
    """Real runs at 1 to 8 boards against the time that their processes of vorn-run took on so many,
    and against what the simulation makes of the costs that the run at one board had. A device that
    is to sleep for 10 ms does so for as long as this machine makes of it, so that the time is
    measured."""
    rows, costs = [], None
    chunk = 100 if quick else 1000
    for count in 1, 2, 4, 8:
        samples = 100000 if count == 8 and not quick else count * chunk * (2 if quick else 4)
        with scratch_folder(in_memory()) as folder:
            network = real.Network(folder / "network").make(samples)
            with real.boards(build, folder, count, SAMPLE_SECONDS) as path:
                real.plan(build, network, folder / "fleet", chunk)
                seconds, runs, means = real.run(build, folder / "fleet", path)
        ideal = runs / count
        sample = runs / samples
        if costs is None:
            # All of it is latency here: what is a board's and what is the control host's cannot be
            # told apart on one machine.
            costs = Costs(ticket=0, connect=means["connect"], connect_wait=means["send"],
                          launch=max(means["launch"] - chunk * sample, 0),
                          sample=sample, look=2 * means["fetch"] / chunk,
                          sent=0, fetched=0)
        reckoned = simulate(Fleet(samples, count, chunk, cores=count),
                            replace(costs, sample=sample)).seconds
        rows.append({"boards": count, "samples": samples, "chunk": chunk, "seconds": seconds,
                     "idealSeconds": ideal, "overhead": seconds / ideal - 1,
                     "reckonedSeconds": reckoned, "chunkMeansSeconds": means})
        print(f"{count} boards, {samples} inferences: {seconds:.1f} s, of vorn-run {ideal:.1f} s "
              f"(+{100 * rows[-1]['overhead']:.1f} %), reckoned {reckoned:.1f} s", flush=True)
    return rows


def measure_growth(build, quick):
    """Seconds and bytes of memory of plan, status and merge, by the inferences."""
    rows = []
    for samples in (200, 2000) if quick else (1000, 10000, 100000):
        with scratch_folder(in_memory()) as folder:
            network = real.Network(folder / "network").make(samples)
            fleet, vorn = folder / "fleet", build.folder / "vorn"
            with real.boards(build, folder, 4, 0) as path:
                row = {"samples": samples,
                       "plan": real.plan(build, network, fleet, max(samples // 50, 100))}
                row["run"] = real.call(vorn, "fleet", "run", fleet, "--boards", path)
            row["status"] = real.call(vorn, "fleet", "status", fleet)
            row["merge"] = real.call(vorn, "fleet", "merge", fleet, "--run", folder / "run")
            shutil.rmtree(folder / "run")
        rows.append(row)
        print(f"{samples} inferences: " + ", ".join(
            f"{step} {row[step][0]:.2f} s {row[step][1] / 2**20:.0f} MiB"
            for step in ("plan", "run", "status", "merge")), flush=True)
    return rows


def reckon(build, quick):
    """A million inferences on up to a thousand boards: lost ones, slow ones, a slow link."""
    del build
    rows = []
    base = Fleet(samples=100_000 if quick else 1_000_000, boards=10, chunk=200,
                 hours_to_loss=100, slow_part=0.05)
    cases = {"files are sent": Costs(), "boards have the files": Costs(sent=0),
             "a link of 10 MB/s, boards have the files": Costs(sent=0)}
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
