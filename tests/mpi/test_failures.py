"""Ranks that fail: how the others end, what is printed, which files are left."""

import os
import resource
import signal
import time

from mpibench import LAUNCHER, LIMIT, MPI_COMMAND, LongJob, MpiBench
from workbench import OLD, data_lines


class ErrorsTest(MpiBench):

    def two_kinds(self, first, other):
        """A job of rank 0 and of ranks 1 and 2, each given as a command."""
        return [*LAUNCHER, "-n", "1", *first, ":", "-n", "2", *other]

    def test_an_error_of_all_ranks_is_printed_once(self):
        cases = [(["-numTree", "x"], ["^ERROR: -numTree is not a digit!"], 1),
                 (["-fileTrain", "none.txt"], ["^ERROR: fileTrain none.txt: cannot be opened"], 1),
                 (["-mode", "predict"], ["^ERROR: mode predict: needs one process"], 1),
                 (["-mode", "guess"], ["^ERROR: unknown mode", "^Usage", "sylvora"], 2)]
        for options, lines, status in cases:
            with self.subTest(options):
                self.fail_job(self.job(3, *options), lines, status)

    def test_an_error_of_some_ranks_names_them(self):
        other = self.folder / "other"
        other.mkdir()
        for name in ("run.cfg", "train.txt"):
            self.write("other/" + name, self.read(name))
        command = self.two_kinds([MPI_COMMAND, "run.cfg"],
                                 ["-wdir", str(other), MPI_COMMAND, "run.cfg"])
        self.write("other/train.txt", "1 1:0.5\n2 1:0.5\n")
        self.fail_job(command, ["^ERROR: rank 1: fileTrain train.txt: has 16 bytes here"])
        (other / "train.txt").unlink()
        self.fail_job(command, ["^ERROR: rank 1: fileTrain train.txt: cannot be opened"])
        self.write("other/run.cfg", self.read("run.cfg") + "numTree = 6\n")
        self.fail_job(command, ["^ERROR: ranks 1 and 2: run.cfg: is not the file that rank 0 has"])
        self.assertFalse((self.folder / "model.txt").exists())

    def test_options_of_a_rank_that_differ_are_refused(self):
        self.fail_job(self.two_kinds([MPI_COMMAND, "run.cfg"],
                                     [MPI_COMMAND, "run.cfg", "-numTree", "7"]),
                      ["^ERROR: ranks 1 and 2: the options are not those of rank 0"])

    def test_what_only_one_rank_could_read_is_refused(self):
        os.mkfifo(self.folder / "pipe")
        for option in ("-fileTrain", "-fileTest", "-labelTran"):
            with self.subTest(option):
                self.fail_job(self.job(2, option, "pipe"),
                              [f"^ERROR: {option[1:]} pipe: is no regular file"])
        self.fail_job([*LAUNCHER, "-n", "2", MPI_COMMAND, "pipe"],
                      ["^ERROR: configuration file pipe: is no regular file"])

    def test_a_full_disk_at_rank_0_leaves_the_older_model(self):
        self.write("model.txt", OLD)
        limited = ["bash", "-c", f"ulimit -f 1; exec {MPI_COMMAND} run.cfg -numTree 50"]
        self.fail_job(self.two_kinds(limited, [MPI_COMMAND, "run.cfg", "-numTree", "50"]),
                      ["^ERROR: Can not write file model.txt", "^ERROR: "])
        self.assertEqual(OLD, self.read("model.txt"))
        self.assertEqual([], list(self.folder.glob(".sylvora-*")))

    def test_a_rank_with_too_little_memory_is_named(self):
        self.write("train.txt", [line + " 20000:1" for line in data_lines(range(12000))])
        self.configure("absent = zero")
        limited = ["bash", "-c", f"ulimit -v 900000; exec {MPI_COMMAND} run.cfg"]
        self.fail_job(self.two_kinds([MPI_COMMAND, "run.cfg"], limited),
                      ["^ERROR: rank 1: .*GB, available are"])


class LostRanksTest(MpiBench):
    """Ranks that get signals in the middle of a training of many rounds."""

    def setUp(self):
        super().setUp()
        self.configure("numTree = 3000", "digits = 17")
        self.whole = self.model()
        self.configure("checkpoint = check.txt", "checkpointEvery = 10")
        self.write("model.txt", OLD)

    def long_job(self):
        (self.folder / "check.txt").unlink(missing_ok=True)
        return LongJob(self.job(3), self.folder, begun="check.txt")

    def check_files(self):
        """The older model is there, and a run that goes on ends like one that never stopped."""
        self.assertEqual(OLD, self.read("model.txt"))
        self.ranks(2, "-checkpointEvery", 1000)
        self.assertEqual(self.whole, self.read("model.txt"))
        self.write("model.txt", OLD)
        self.assertEqual([], list(self.folder.glob(".sylvora-*")))

    def test_a_killed_rank_ends_the_others(self):
        for rank in (0, 2):
            job = self.long_job()
            job.send(rank, signal.SIGKILL)
            status, seconds, _ = job.end()
            self.assertEqual(128 + signal.SIGKILL, status)
            self.assertLess(seconds, LIMIT)
            self.check_files()

    def test_a_rank_that_runs_out_of_memory_is_named(self):
        job = self.long_job()
        resource.prlimit(job.known[1], resource.RLIMIT_AS, (1 << 20, 1 << 20))
        status, seconds, lines = job.end()
        self.assertEqual(1, status)
        self.assertLess(seconds, LIMIT)
        self.assertIn("ERROR: rank 1: Failed to allocate memory!", lines)
        self.check_files()

    def test_a_stopped_rank_is_named_and_ends_the_others(self):
        for rank in (0, 1):
            job = self.long_job()
            job.send(rank, signal.SIGSTOP)
            status, seconds, lines = job.end()
            self.assertEqual(1, status)
            self.assertLess(seconds, LIMIT)
            self.assertIn(f"ERROR: rank {rank}: has given no sign of life for 6 s: it is stopped, "
                          "or its machine is lost; the run ends", lines)
            self.check_files()

    def test_a_rank_that_goes_on_in_time_is_waited_for(self):
        job = self.long_job()
        job.send(1, signal.SIGSTOP)
        time.sleep(3)
        job.send(1, signal.SIGCONT)
        self.assertEqual((0, []), job.end()[::2])
        self.assertEqual(self.whole, self.read("model.txt"))

    def test_a_signal_at_one_rank_ends_all_after_the_round(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            job = self.long_job()
            job.send(1, number)
            status, seconds, lines = job.end()
            self.assertEqual(128 + number, status)
            self.assertLess(seconds, LIMIT)
            self.assertEqual(1, len(lines), lines)
            self.assertRegex(lines[0], "^Notice: Training was stopped after .* no model")
            self.check_files()
