"""What the peers written in Python share: settings, the raw file, memory, the lines of figures.

The raw file is described in bench/driver/RawData.h, the figures in bench/driver/Jobs.h.
"""

import re
import sys
import time

import numpy


def settings():
    """The job's name and its settings: arguments "key=value", numbers where they are numbers."""
    values = {}
    for argument in sys.argv[2:]:
        key, text = argument.split("=", 1)
        values[key] = float(text) if re.fullmatch(r"-?\d+\.\d+", text) else \
            int(text) if re.fullmatch(r"-?\d+", text) else text
    return sys.argv[1], values


class Data:
    """A raw file: x (rows by columns), y, query, the number of classes."""

    def __init__(self, path):
        with open(path, "rb") as file:
            rows, columns, self.classes, queries = numpy.fromfile(file, numpy.int32, 4)
            self.y = numpy.fromfile(file, numpy.float32, rows)
            self.query = numpy.fromfile(file, numpy.int32, rows) if queries else None
            self.x = numpy.fromfile(file, numpy.float32, rows * columns).reshape(rows, columns)


def memory_bytes(field):
    """VmRSS (resident now) or VmHWM (the most so far) of this process."""
    with open("/proc/self/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
    raise RuntimeError("/proc/self/status has no " + field)


def say(key, value):
    print(f"bench: {key} {value:.9g}")


def now():
    """The clock on the wall, and the time of processors that this process took."""
    return numpy.array([time.perf_counter(), time.process_time()])


def say_time(key, seconds):
    """A time, given as `now` gives it."""
    say(key + "_s", seconds[0])
    say(key + "_cpu", seconds[1])


def say_rounds(start, ends):
    """The figures of a run that began at `start` and whose rounds were over at `ends`."""
    say_time("first", ends[0] - start)
    say_time("rest", ends[-1] - ends[0])
    say("rounds", len(ends))


def misfit(data, predicted):
    """How far predictions are off, as in bench/driver/Jobs.h."""
    label = data.y[:len(predicted)].astype(float)
    if data.classes:
        return float(numpy.mean(predicted != label))
    if data.query is None:
        return float(numpy.sqrt(numpy.mean((predicted - label) ** 2)))
    pairs = wrong = 0
    for query in numpy.split(numpy.arange(len(label)), numpy.flatnonzero(numpy.diff(data.query)) + 1):
        better = label[query][:, None] > label[query][None, :]
        above = predicted[query][:, None] > predicted[query][None, :]
        pairs += better.sum()
        wrong += (better & ~above).sum()
    return wrong / pairs


def time_per_call(operation):
    """As in bench/driver/Measure.h."""
    operation()
    start = now()
    calls = 0
    while calls < 3 or now()[0] - start[0] < 0.5:
        operation()
        calls += 1
    return (now() - start) / calls
