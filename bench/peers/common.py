"""What the Python peers share: settings, the raw file, memory, and the output of figures.

The raw file is described in bench/driver/RawData.h, the figures in bench/driver/Jobs.h.
"""

import re
import sys
import time

import numpy


def settings():
    """The job's name and its settings, from arguments "key=value". Numbers are converted."""
    values = {}
    for argument in sys.argv[2:]:
        key, text = argument.split("=", 1)
        values[key] = float(text) if re.fullmatch(r"-?\d+\.\d+", text) else \
            int(text) if re.fullmatch(r"-?\d+", text) else text
    return sys.argv[1], values


class Data:
    """The contents of a raw file: x (rows by columns), y, query (or None), and the number of
    classes (0 for a regression)."""

    def __init__(self, path):
        with open(path, "rb") as file:
            rows, columns, self.classes, queries = numpy.fromfile(file, numpy.int32, 4)
            self.y = numpy.fromfile(file, numpy.float32, rows)
            self.query = numpy.fromfile(file, numpy.int32, rows) if queries else None
            self.x = numpy.fromfile(file, numpy.float32, rows * columns).reshape(rows, columns)


def memory_bytes(field):
    """VmRSS (resident now) or VmHWM (its peak so far) of this process, in bytes."""
    with open("/proc/self/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
    raise RuntimeError("/proc/self/status has no " + field)


def say(key, value):
    print(f"bench: {key} {value:.9g}")


def now():
    """The elapsed time and the processor time of this process, in seconds, as an array."""
    return numpy.array([time.perf_counter(), time.process_time()])


def say_time(key, seconds):
    """Prints a time, an array as `now` returns it."""
    say(key + "_s", seconds[0])
    say(key + "_cpu", seconds[1])


def say_rounds(start, ends):
    """Prints the figures of a run that began at `start` and whose rounds ended at `ends`."""
    say_time("first", ends[0] - start)
    say_time("rest", ends[-1] - ends[0])
    say("rounds", len(ends))


def misfit(data, predicted):
    """The misfit of predictions, as bench/driver/Jobs.h defines it."""
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
    """The mean time of a call, measured like TimePerCall in bench/driver/Measure.h."""
    operation()
    start = now()
    calls = 0
    while calls < 3 or now()[0] - start[0] < 0.5:
        operation()
        calls += 1
    return (now() - start) / calls
