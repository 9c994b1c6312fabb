"""Shared by the tests of sylvora-mpi: jobs, their ranks, and how they end."""

import os
import signal
import subprocess
import time
from pathlib import Path

from workbench import Workbench

MPI_COMMAND = os.environ["SYLVORA_MPI_COMMAND"]
LAUNCHER = [os.environ["MPIEXEC"], "--allow-run-as-root", "--oversubscribe"]
# Seconds. A run ends within 10 after a rank has failed, but a busy machine must not decide a test.
LIMIT = 50


def own_lines(stderr):
    """The lines of standard error that mpirun did not write itself, which come between rulers."""
    lines, banner = [], False
    for line in stderr.splitlines():
        if line.startswith("-----"):
            banner = not banner
        elif not banner and line and "ORTE_ERROR_LOG" not in line:
            lines.append(line)
    return lines


class MpiBench(Workbench):
    """Each test has its own folder with data and a configuration for a small GBDT."""

    def job(self, ranks, *options):
        return [*LAUNCHER, "-n", str(ranks), MPI_COMMAND, "run.cfg", *map(str, options)]

    def run_job(self, command):
        return subprocess.run(command, cwd=self.folder, text=True, timeout=120,
                              capture_output=True)

    def ranks(self, ranks, *options):
        """Runs the command with so many ranks, successfully."""
        run = self.run_job(self.job(ranks, *options))
        self.assertEqual(0, run.returncode, run.stderr)
        return run

    def fail_job(self, command, lines, status=1):
        """Checks the exit status, and all lines of standard error that are not mpirun's."""
        run = self.run_job(command)
        self.assertEqual(status, run.returncode, run.stderr)
        found = own_lines(run.stderr)
        self.assertEqual(len(lines), len(found), run.stderr)
        for pattern, line in zip(lines, found):
            self.assertRegex(line, pattern)


class LongJob:
    """A job that was started, and whose ranks get signals."""

    def __init__(self, command, folder, begun=None):
        """Waits until all ranks exist and, with `begun`, until this file exists."""
        self.size = int(command[command.index("-n") + 1])
        self.process = subprocess.Popen(command, cwd=folder, text=True, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        end = time.monotonic() + 60
        while len(self.pids()) < self.size or (begun and not (folder / begun).exists()):
            if time.monotonic() > end or self.process.poll() is not None:
                self.process.kill()
                raise AssertionError("the job did not begin: " + self.process.communicate()[1])
            time.sleep(0.02)
        self.known = self.pids()

    def pids(self):
        """The processes of the ranks, by rank."""
        found = {}
        task = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        for pid in task.read_text().split() if task.exists() else []:
            try:
                environment = Path(f"/proc/{pid}/environ").read_bytes().split(b"\0")
            except OSError:
                continue
            for entry in environment:
                if entry.startswith(b"OMPI_COMM_WORLD_RANK="):
                    found[int(entry.split(b"=")[1])] = int(pid)
        return found

    def send(self, rank, number):
        os.kill(self.known[rank], number)

    def end(self):
        """Waits for the end. Returns status, seconds, own lines of standard error."""
        begin = time.monotonic()
        try:
            error = self.process.communicate(timeout=240)[1]
        finally:
            for pid in self.known.values():
                if self.process.poll() is None:
                    os.kill(pid, signal.SIGKILL)
        seconds = time.monotonic() - begin
        while any(is_running(pid) for pid in self.known.values()):
            seconds = time.monotonic() - begin
            if seconds > 60:
                raise AssertionError("ranks are left")
            time.sleep(0.05)
        return self.process.returncode, seconds, own_lines(error)


def is_running(pid):
    """Whether the process exists and is not only waiting to be reaped."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] not in "ZX"
    except OSError:
        return False
