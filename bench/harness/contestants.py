"""The sides of a workload, ours and the peers. Each runs as a child process and prints its figures
as lines "bench: key number" (see bench/driver/Jobs.h)."""

import hashlib
import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import bundled
from machine import Others
from workloads import BOUND, BUNDLED, DEPTH, LEAVES, SHRINK

OURS = "sylvora"
PYTHON = "/usr/bin/python3"  # the one that Debian installs packages for
BENCH = Path(__file__).resolve().parent.parent
PEERS = BENCH / "peers"
PACKAGE = [PYTHON, str(PEERS / "package.py")]  # our Python package, or a peer's in the same job
LIBRARY = "library"  # our C++ library, as the peer of our package
PROGRAMS = {
    "xgboost": [PYTHON, str(PEERS / "xgboost_peer.py")],
    "lightgbm": [PYTHON, str(PEERS / "lightgbm_peer.py")],
    "sklearn": [PYTHON, str(PEERS / "sklearn_peer.py")],
    "ranger": ["Rscript", str(PEERS / "ranger_peer.R")],
}
TIMES = ("prepare", "first", "rest", "fit", "batch", "single", "load", "read")


class Failure(Exception):
    """A child process failed, so there are no figures."""


@dataclass
class Measurement:
    """One run of one side. `seconds` and `cpu` are per unit of the workload: per round, tree, row
    or file."""
    seconds: float
    cpu: float                 # processor time, in seconds
    others: float              # cores that other processes used meanwhile
    prepare: float = None      # seconds of one-time work
    cell_bytes: float = None   # peak memory per cell of the data
    megabytes: float = None    # read per second; MB are 10^6 bytes
    misfit: float = None


def run_child(command, threads=1, kernel="", modules=""):
    """Runs a child process, with Python modules in `modules`, and returns the figures that it
    prints."""
    environment = dict(os.environ, OMP_NUM_THREADS=str(threads), PYTHONDONTWRITEBYTECODE="1")
    if modules:
        others = environment.get("PYTHONPATH")
        environment["PYTHONPATH"] = os.pathsep.join([str(modules)] + [others] * bool(others))
    if kernel:
        environment["SYLVORA_KERNEL"] = kernel
    words = [str(word) for word in command]
    try:
        child = subprocess.run(words, env=environment, capture_output=True, text=True, check=False)
    except OSError as error:
        raise Failure(f"{words[0]}: {error.strerror}") from error
    if child.returncode != 0:
        last = (child.stderr.strip().splitlines() or ["no message"])[-1]
        raise Failure(f"{' '.join(words)}: exit status {child.returncode}: {last}")
    lines = (line.split() for line in child.stdout.splitlines() if line.startswith("bench: "))
    return {key: float(number) for _, key, number in lines}


def measurement(workload, figures, others):
    """Turns the figures of a job, ours or a peer's, into a measurement of the workload."""
    prepare = None
    if workload.job == "train" and not workload.is_forest():
        # The first round includes one-time work, so the others give the time of a round.
        seconds, cpu = (figures["rest" + kind] / (figures["rounds"] - 1)
                        for kind in ("_s", "_cpu"))
        prepare = figures["prepare_s"] + max(0.0, figures["first_s"] - seconds)
    else:
        seconds, cpu = (sum(figures.get(key + kind, 0.0) for key in TIMES) /
                        figures.get("rounds", 1) for kind in ("_s", "_cpu"))
    cell_bytes = figures["peak_bytes"] / figures["cells"] if "cells" in figures else None
    rate = figures["file_bytes"] / 1e6 / seconds if "file_bytes" in figures else None
    return Measurement(seconds, cpu, others, prepare, cell_bytes, rate, figures.get("misfit"))


def generators_digest():
    """Changes with the sources that make data."""
    sources = sorted([*(BENCH / "driver").glob("*.cpp"), *(BENCH / "driver").glob("*.h"),
                      BENCH / "harness" / "bundled.py"])
    return hashlib.sha256(b"".join(path.read_bytes() for path in sources)).hexdigest()


class Workshop:
    """The folder with data, configurations and models. Each file is made on first use, under a
    temporary name, so that an incomplete file is never taken for a whole one. All are made again
    when the programs that generate data have changed."""

    def __init__(self, folder, driver, modules, quick, progress):
        self.folder, self.driver, self.modules, self.quick = folder, driver, modules, quick
        self.progress = progress
        folder.mkdir(parents=True, exist_ok=True)
        stamp, generators = folder / "generators", generators_digest()
        if not stamp.exists() or stamp.read_text() != generators:
            for path in folder.iterdir():
                if path.name not in ("results.json", "other.json"):
                    path.unlink()
            stamp.write_text(generators)

    def size(self, workload):
        return workload.quick_size if self.quick else workload.size

    def rounds(self, workload, peer=None, threads=1):
        """Rounds or trees of a side; some peers get fewer."""
        if self.quick:
            return workload.quick_rounds
        return peer.rounds.get(threads, workload.rounds) if peer else workload.rounds

    def make(self, name, command):
        """The path of file `name`, which is made, if missing, with the command `command(path)`."""
        path = self.folder / name
        if not path.exists():
            self.progress.tell(f"making {name}")
            temporary = self.folder / ("new-" + name)
            run_child(command(temporary), os.cpu_count())
            temporary.rename(path)
        return path

    def raw(self, workload):
        if workload.data in BUNDLED:
            return self.bundled(workload.data)
        size = self.size(workload)
        if workload.columns:
            return self.make(f"wide-{size}-{workload.columns}.raw", lambda path: [
                self.driver, "wide", f"rows={size}", f"columns={workload.columns}",
                f"data={path}"])
        return self.make(f"{workload.data}-{size}.raw", lambda path: [
            self.driver, "generate", f"set={workload.data}", f"size={size}", f"data={path}"])

    def bundled(self, name):
        path = self.folder / f"{name}.raw"
        if not path.exists():
            temporary = self.folder / f"new-{name}.raw"
            bundled.write_raw(name, temporary)
            temporary.rename(path)
        return path

    def text(self, workload):
        raw = self.raw(workload)
        return self.make(raw.stem + ".txt", lambda path: [
            self.driver, "text", f"data={raw}", f"text={path}"])

    def our_model(self, workload):
        name = f"sylvora-{workload.data}-{self.size(workload)}.model"
        return self.make(name, lambda path: self.our_training(workload, os.cpu_count(), path))

    def peer_model(self, workload):
        name = f"xgboost-{workload.data}-{self.size(workload)}.json"
        return self.make(name, lambda path: self.peer_training(
            workload, os.cpu_count(), "xgboost", self.rounds(workload)) + [
                "method=hist", f"model={path}"])

    def our_training(self, workload, threads, model):
        kind, _, task = workload.model.partition(" ")
        settings = {
            "modelType": kind, "numTree": self.rounds(workload), "maxDepth": DEPTH,
            "maxLeaf": LEAVES, "numBound": BOUND, "valShrink": SHRINK, "ratio": workload.share,
            "valSmpRt": workload.share, "numThread": threads, "fileModel": model,
        }
        if task:
            settings["fRegCls"] = task
        config = self.folder / f"{workload.name}-{threads}.cfg"
        config.write_text("".join(f"{key} = {value}\n" for key, value in settings.items()))
        return [self.driver, "train", f"data={self.raw(workload)}", f"config={config}"]

    def peer_training(self, workload, threads, program, rounds):
        return PROGRAMS[program] + [
            "train", f"data={self.raw(workload)}", f"rounds={rounds}", f"depth={DEPTH}",
            f"leaves={LEAVES}", f"shrink={SHRINK}", f"columns={workload.share}",
            f"rows={workload.share}", f"threads={threads}"]

    def forest_training(self, workload, threads, peer):
        return PROGRAMS[peer.name] + [
            "train", f"data={self.raw(workload)}",
            f"trees={self.rounds(workload, peer, threads)}", f"leaf={BOUND}",
            f"columns={workload.share}", f"rows={workload.share}", f"threads={threads}"]

    def package_command(self, workload, threads, side):
        """A job of bench/peers/package.py, or the same job of our C++ library."""
        if side == LIBRARY and workload.job != "fit":
            return [self.driver] + self.task(workload, threads, self.our_model)
        if side == LIBRARY:
            name, _, *rest = self.our_training(workload, threads, self.folder / "unused.model")
            return [name, "fit", *rest]
        command = PACKAGE + [workload.job, f"side={side}", f"data={self.raw(workload)}",
                             f"threads={threads}", f"rounds={self.rounds(workload)}",
                             f"depth={DEPTH}", f"leaves={LEAVES}", f"bound={BOUND}",
                             f"shrink={SHRINK}", f"share={workload.share}"]
        return command + [f"model={self.our_model(workload)}"] * (side == OURS)

    def our_command(self, workload, threads):
        if workload.job == "train":
            return self.our_training(workload, threads, self.folder / "latest.model")
        return [self.driver] + self.task(workload, threads, self.our_model)

    def peer_command(self, workload, threads, peer):
        if workload.is_forest():
            return self.forest_training(workload, threads, peer)
        if workload.job == "train":
            program, _, method = peer.name.partition("-")
            rounds = self.rounds(workload, peer, threads)
            return self.peer_training(workload, threads, program, rounds) + \
                [f"method={method}"] * bool(method)
        return PROGRAMS["xgboost"] + self.task(workload, threads, self.peer_model)

    def task(self, workload, threads, model):
        """The arguments of the jobs that have the same name and settings on both sides."""
        if workload.job == "read":
            return ["read", f"text={self.text(workload)}", f"threads={threads}"]
        return [workload.job, f"data={self.raw(workload)}", f"model={model(workload)}",
                f"threads={threads}"]

    def measure(self, workload, threads, peer=None):
        """Runs our side, or a peer's, once."""
        if workload.of_package:
            command = self.package_command(workload, threads, peer.name if peer else OURS)
        else:
            command = self.peer_command(workload, threads, peer) if peer else \
                self.our_command(workload, threads)
        with Others() as others:
            figures = run_child(command, threads, "" if peer else workload.kernel, self.modules)
        return measurement(workload, figures, others.cores)
