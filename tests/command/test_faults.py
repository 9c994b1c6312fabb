"""Failing machines: signals, kills, full disks, read-only folders.

SYLVORA_KILLS in the environment is the number of runs to kill.
"""

import ctypes
import os
import random
import resource
import signal
import subprocess
import threading
import time
import unittest

from workbench import COMMAND, OLD, Workbench, data_lines

KILLS = int(os.environ.get("SYLVORA_KILLS", "12"))
LONG = ["-numTree", "100000"]  # more rounds than any test waits for


class Faults(Workbench):
    def start(self, *options, **settings):
        settings = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, **settings}
        return subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder, text=True,
                                **settings)

    def start_reading(self, *options, **settings):
        """Starts a run that waits for training data; returns it and the pipe that it reads."""
        os.mkfifo(self.folder / "pipe")
        run = self.start("-fileTrain", "pipe", *options, **settings)
        data = open(self.folder / "pipe", "w")
        self.addCleanup(data.close)
        return run, data

    def names(self):
        return sorted(os.listdir(self.folder))


class Signals(Faults):
    def check_stopped(self, run, number, line):
        run.send_signal(number)
        error = run.communicate()[1]
        self.assertEqual(128 + number, run.returncode, error)
        self.assertRegex(error, rf"^Notice: {line}\n$")
        self.assertEqual(OLD, self.read("model.txt"))

    def test_training_ends_between_two_rounds(self):
        self.configure("fPrint = true")
        self.write("model.txt", OLD)
        before = self.names()
        for number in signal.SIGINT, signal.SIGTERM:
            for options in LONG, [*LONG, "-modelType", "RandomForest", "-fRegCls", "REG"]:
                run = self.start(*options, stdout=subprocess.PIPE)
                while "Tree grow complete" not in run.stdout.readline():
                    pass
                self.check_stopped(run, number, r"Training was stopped after \d+ of 100000, .*")
        self.assertEqual(before, self.names())

    def test_a_second_signal_of_another_kind_ends_at_once(self):
        self.configure("fPrint = true")
        self.write("model.txt", OLD)
        run = self.start(*LONG, stdout=subprocess.PIPE)
        while "Tree grow complete" not in run.stdout.readline():
            pass
        for number in signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT:
            run.send_signal(number)
        error = run.communicate()[1]
        self.assertIn(run.returncode, (130, 143))  # the kernel may deliver either one first
        self.assertEqual(("Notice: Stopped by a signal!\n", OLD), (error, self.read("model.txt")))

    def test_reading_ends_at_once(self):
        self.write("model.txt", OLD)
        run, data = self.start_reading()
        # ThreadSanitizer delivers a signal only after the blocking call has returned.
        returning = threading.Timer(10, data.close)
        returning.start()
        self.addCleanup(returning.cancel)
        self.check_stopped(run, signal.SIGTERM, "Stopped by a signal!")

    def test_a_fifo_without_reader_does_not_block_a_stop(self):
        """Signals arrive before the FIFO is opened, and while the run waits for a reader."""
        self.model()
        self.configure("fTestRealTime = true")
        scores = ["-fileTest", "train.txt", "-filePred", "pipe"]
        for name, options in (("pipe", ["-fileModel", "pipe"]), ("pipe", ["-fileDebug", "pipe"]),
                              ("Result.train.txt.7", LONG), ("pipe", ["-mode", "predict", *scores]),
                              ("pipe", ["-mode", "analyze", *scores])):
            os.mkfifo(self.folder / name)
            for number, delay in (signal.SIGINT, 0.3), (signal.SIGTERM, 0.3), (signal.SIGINT, 0.01):
                with self.subTest(options, number=number, delay=delay):
                    run = self.start(*options)
                    time.sleep(delay)
                    run.send_signal(number)
                    try:
                        error = run.communicate(timeout=30)[1]
                    except subprocess.TimeoutExpired:
                        run.kill()
                        raise
                    # Before the command has installed its handlers, a signal kills it.
                    self.assertIn(run.returncode, (128 + number, -number), error)
            os.unlink(self.folder / name)

    def test_an_ignored_signal_stays_ignored(self):
        run, data = self.start_reading(
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        run.send_signal(signal.SIGINT)
        data.write(self.read("train.txt"))
        data.close()
        self.assertEqual((None, ""), run.communicate())
        self.assertEqual(0, run.returncode)


class Kills(Faults):
    def test_a_killed_run_leaves_a_whole_model(self):
        options = ["-numTree", "400", "-maxLeaf", "40", "-numBound", "1"]
        models = [self.model(*options, "-randomSeed", seed) for seed in "12"]
        begin = time.monotonic()
        self.model(*options)
        longest = 1.1 * (time.monotonic() - begin)
        draw, left = random.Random(5), 0
        for kill in range(KILLS):
            before = self.names()
            run = self.start(*options, "-randomSeed", "12"[kill % 2])
            time.sleep(draw.uniform(0, longest))
            run.kill()
            run.communicate()
            self.assertIn(self.read("model.txt"), models)
            left += bool(set(self.names()) - set(before))
        self.assertEqual(models[0], self.model(*options))
        self.assertEqual(["model.txt", "run.cfg", "train.txt"], self.names())
        if "SYLVORA_KILLS" in os.environ:
            print(f"{KILLS} runs killed, {left} times something was left for the next run")


class Writes(Faults):
    def refuse(self, message, *options, **settings):
        """The run fails with `message` and changes no file."""
        before = {name: self.read(name) for name in self.names() if name.endswith(".txt")}
        run = self.run_command("run.cfg", *options, **settings)
        self.assertEqual(1, run.returncode, run.stderr)
        self.assertRegex(run.stderr, message)
        self.assertEqual(before,
                         {name: self.read(name) for name in self.names() if name.endswith(".txt")})

    def test_a_full_disk_leaves_older_files(self):
        """A file size limit simulates a full disk: both make a write fail half-way."""
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        self.model()
        self.write("many.txt", data_lines(range(2000)))
        self.write("wide.txt", [f"{i} {i + 1990}:1" for i in range(10)])
        self.succeed("-fileTrain", "wide.txt", "-fileModel", "wide.model.txt")
        self.write("old.txt", OLD)
        for options in (["-numTree", "100"],
                        ["-mode", "predict", "-fileTest", "many.txt", "-filePred", "old.txt"],
                        ["-mode", "analyze", "-fileTest", "wide.txt", "-filePred", "old.txt",
                         "-fileModel", "wide.model.txt"]):
            self.refuse("ERROR: .*File too large", *options, preexec_fn=limit)

    def test_a_full_device(self):
        self.model()
        scores = ["-fileTest", "train.txt", "-filePred", "/dev/full"]
        for options in (["-fileModel", "/dev/full"], ["-mode", "predict", *scores],
                        ["-mode", "analyze", *scores]):
            self.refuse("(?m)^ERROR: .*/dev/full.*: No space left on device", *options)

    def test_impossible_file_names_are_refused_before_any_work(self):
        for link, target in ("a", "b"), ("b", "a"):
            (self.folder / link).symlink_to(target)
        missing = ["-fileTrain", "none", "-fileTest", "none"]
        self.configure("fTestRealTime = true", "numTree = 10", "fileResultBase = R")
        long = "File name too long"
        for option in "-fileModel", "-filePred", "-fileDebug":
            for path, why in (("n" * 256, long), ("./" * 2048 + "n", long),
                              ("a", "Too many levels of symbolic links")):
                self.refuse(f"^ERROR: {option[1:]} {path}: cannot be written: {why}\n$", *missing,
                            option, path)
        self.refuse("^ERROR: filePred .*: cannot be written: File name too long\n$", *missing,
                    "-mode", "analyze", "-fileModel", "n" * 250)
        self.configure("fileResultBase = " + "R" * 243)
        self.refuse(r"^ERROR: fileResultBase R*.train.txt.10: cannot be written: File name", *missing)
        self.configure("numTree = 9")
        self.refuse("^ERROR: fileTrain none: cannot be opened", *missing)

    def test_a_new_file_has_the_attributes_of_the_older_one(self):
        self.model()
        predict = ["-mode", "predict", "-fileTest", "train.txt", "-filePred", "scores.txt"]
        analyze = ["-mode", "analyze", "-fileTest", "train.txt", "-filePred", "report.txt"]
        for name, options in ("model.txt", []), ("scores.txt", predict), ("report.txt", analyze):
            self.write(name, self.read("model.txt"))
            path = self.folder / name
            os.chmod(path, 0o640)
            group = 3000 if os.geteuid() == 0 else os.getegid()
            os.chown(path, -1, group)
            self.assertEqual("", self.succeed(*options).stderr)
            self.assertEqual((0o640, group), (path.stat().st_mode & 0o7777, path.stat().st_gid))
            os.link(path, self.folder / "second.txt")
            self.assertEqual(f"Notice: {name}: not kept of the older file: hard links "
                             "(1 other name of the older content)!\n", self.succeed(*options).stderr)
            os.unlink(self.folder / "second.txt")

    def test_a_pipe_gets_what_a_file_gets(self):
        """Also if the reader is late, and if the pipe is standard output."""
        expected = self.model()
        os.mkfifo(self.folder / "pipe")
        run = self.start("-fileModel", "pipe")
        time.sleep(0.3)
        self.assertEqual(expected, self.read("pipe"))
        self.assertEqual((0, ""), (run.wait(), run.stderr.read()))
        run.stderr.close()
        self.assertEqual(expected, self.succeed("-fileModel", "/dev/stdout").stdout)

    def test_a_full_device_for_reports_keeps_the_model(self):
        self.configure("fTestRealTime = true", "fileTest = train.txt")
        expected = self.model()
        for extra, message in (("fileDebug = /dev/full", "fileDebug /dev/full: .* in full: "),
                               ("fileResultBase = full", "Can not write file full.train.txt.2 .*: ")):
            self.write("model.txt", OLD)
            self.write("full.cfg", self.read("run.cfg") + extra)
            if not (self.folder / "full.train.txt.2").is_symlink():
                (self.folder / "full.train.txt.2").symlink_to("/dev/full")
            run = self.run_command("full.cfg")
            self.assertEqual(1, run.returncode)
            self.assertRegex(run.stderr, f"^ERROR: {message}No space left on device!?\n$")
            self.assertIn("RMSE: ", run.stdout)
            self.assertEqual(expected, self.read("model.txt").replace("[debug]", ""))

    def test_a_folder_in_the_place_of_a_file(self):
        self.model()
        (self.folder / "folder").mkdir()
        for option in "-fileModel", "-filePred", "-fileDebug":
            self.refuse(f"^ERROR: {option[1:]} folder: cannot be written: Is a directory\n$",
                        "-fileTest", "train.txt", option, "folder")

    def test_a_read_only_folder(self):
        """Also a folder that becomes read-only during a run. As root, the run drops the capability
        to write everywhere."""
        bound = lambda: ctypes.CDLL(None).prctl(24, 1, 0, 0, 0)  # PR_CAPBSET_DROP, CAP_DAC_OVERRIDE
        self.write("model.txt", OLD)
        run, data = self.start_reading(preexec_fn=bound)
        os.chmod(self.folder, 0o555)
        self.addCleanup(os.chmod, self.folder, 0o755)
        self.refuse("^ERROR: fileModel model.txt: cannot be written: Permission denied\n$",
                    preexec_fn=bound)
        data.write(self.read("train.txt"))
        data.close()
        error = run.communicate()[1]
        self.assertEqual((1, OLD), (run.returncode, self.read("model.txt")), error)
        self.assertTrue(error.startswith("ERROR: Can not open file!\n\nERROR: Can not write file "
                                         "model.txt: Permission denied!\n"), error)


if __name__ == "__main__":
    unittest.main()
