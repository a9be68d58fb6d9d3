"""What a fleet takes, by an account of events: for more boards than anybody has at hand.

A chunk takes a ticket of a slot, a connection, the files that go there, a launch, its inferences,
the files that come back, and the looking at them. Connections, files and looking at take processor
time of the control host, which has a few cores, and bytes share its one link. A slot has two
tickets: while one runs, the other brings the next chunk, as long as there are chunks enough for all
boards, and runs it once the device is free: what the board makes of the dumps of one goes on beside
the next. Boards that are one machine with the control host share its cores. A board is lost now and
then, and what it was at is done again elsewhere after somebody has noticed; some boards are slow.

All times are in seconds, all sizes in bytes.
"""
import heapq
import random
from dataclasses import dataclass, replace


@dataclass(frozen=True)
class Costs:
    """Of one chunk, or of one inference where it says so."""
    ticket: float = 0.03        # of the control host: a process, reading the plan
    connect: float = 0.08       # of the control host: what is there, what is missing
    connect_wait: float = 0.02  # of the network and the board
    launch: float = 0.15        # of the board: processes, loading the model
    sample: float = 0.05        # an inference
    launch_sample: float = 0    # of the board, an inference: what the launch makes of its dumps
    look: float = 40e-6         # of the control host, an inference: packing, unpacking, hashing
    sent: float = 150e3         # bytes of an inference's inputs
    fetched: float = 20e3       # bytes of its outputs
    notice: float = 60.0        # until a board that is gone is taken for lost


@dataclass(frozen=True)
class Fleet:
    samples: int
    boards: int
    chunk: int
    cores: int = 4
    link: float = 117e6           # bytes a second of the control host
    hours_to_loss: float = 0.0    # of a board, on average; 0: never
    slow_part: float = 0.0        # of the boards
    slow_factor: float = 3.0
    are_here: bool = False        # boards of the control host itself


class Server:
    """Serves one thing after the other, on as many places as it has."""

    def __init__(self, places):
        self.free = [0.0] * places
        self.busy = 0.0

    def take(self, at, time):
        begin = max(at, heapq.heappop(self.free))
        heapq.heappush(self.free, begin + time)
        self.busy += time
        return begin + time


@dataclass
class Outcome:
    seconds: float
    ideal: float
    lost: int
    control: float   # part of the time that the control host's cores were busy
    link: float      # the same of its link

    @property
    def efficiency(self):
        return self.ideal / self.seconds


def simulate(fleet, costs, seed=1):
    """Every event in the order of its time; the same seed gives the same outcome."""
    rng = random.Random(seed)
    speed = [fleet.slow_factor if rng.random() < fleet.slow_part else 1.0
             for _ in range(fleet.boards)]
    chunks, rest = divmod(fleet.samples, fleet.chunk)
    todo = [fleet.chunk] * chunks + ([rest] if rest else [])
    todo.reverse()
    cpu, link = Server(fleet.cores), Server(1)
    free = [0.0] * fleet.boards  # from when on a board runs nothing that is known by now
    events = [(0.0, place, place % fleet.boards, "ticket", 0) for place in range(2 * fleet.boards)]
    heapq.heapify(events)
    serial = len(events)
    end, lost = 0.0, 0
    waiting = []
    while events:
        now, _, board, what, size = heapq.heappop(events)
        if what == "lost":
            lost += 1
            todo.append(size)
            # Whoever had nothing left to do takes it.
            if waiting:
                serial += 1
                heapq.heappush(events, (now, serial, waiting.pop(), "ticket", 0))
            what = "ticket"  # the board is back, or another one in its place
        if what == "ticket":
            if not todo:
                waiting.append(board)
                continue
            if len(todo) < fleet.boards and free[board] > now:
                # Whoever is free takes the last ones.
                serial += 1
                heapq.heappush(events, (free[board], serial, board, "ticket", 0))
                continue
            size = todo.pop()
            after = cpu.take(now, costs.ticket + costs.connect + size * costs.look / 2)
            following, at = "send", after + costs.connect_wait
        elif what == "send":
            at = link.take(now, size * costs.sent / fleet.link)
            following = "run"
        elif what == "run":
            if free[board] > now:
                serial += 1
                heapq.heappush(events, (free[board], serial, board, "run", size))
                continue
            begin = cpu.take(now, costs.launch) if fleet.are_here else now + costs.launch
            following, at = "dumps", begin + size * costs.sample * speed[board]
            if fleet.hours_to_loss:
                loss = rng.expovariate(1 / (3600 * fleet.hours_to_loss))
                if now + loss < at:
                    following, at = "lost", now + loss + costs.notice
            free[board] = at
        elif what == "dumps":
            time = size * costs.launch_sample * speed[board]
            at = cpu.take(now, time) if fleet.are_here else now + time
            following = "fetch"
        elif what == "fetch":
            at = link.take(now, size * costs.fetched / fleet.link)
            following = "look"
        else:
            at = cpu.take(now, size * costs.look / 2)
            end = max(end, at)
            following, size = "ticket", 0
        serial += 1
        heapq.heappush(events, (at, serial, board, following, size))
    work = fleet.samples * costs.sample / sum(1 / one for one in speed)
    return Outcome(end, work, lost, cpu.busy / (end * fleet.cores), link.busy / end)


def best_chunk(fleet, costs, chunks=(10, 20, 50, 100, 200, 500, 1000, 2000, 5000)):
    """The size of a chunk that is done first, and the outcome."""
    tried = [(simulate(replace(fleet, chunk=size), costs), size)
             for size in chunks if size <= max(fleet.samples // fleet.boards, chunks[0])]
    outcome, size = min(tried, key=lambda one: one[0].seconds)
    return size, outcome
