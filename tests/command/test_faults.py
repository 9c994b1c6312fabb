"""Failing machines: signals, kills, disks and folders that take no more. SYLVORA_KILLS says how many
runs are killed."""

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
LONG = ["-numTree", "100000"]  # rounds that no test waits for


class Faults(Workbench):
    def start(self, *options, **settings):
        settings = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, **settings}
        return subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder, text=True,
                                **settings)

    def start_reading(self, *options, **settings):
        """A run that waits for its training data, and where they are awaited."""
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
        self.assertIn(run.returncode, (130, 143))  # the kernel chooses which comes first
        self.assertEqual(("Notice: Stopped by a signal!\n", OLD), (error, self.read("model.txt")))

    def test_reading_ends_at_once(self):
        self.write("model.txt", OLD)
        run, data = self.start_reading()
        # ThreadSanitizer delivers a signal only when the call that waits has returned.
        returning = threading.Timer(10, data.close)
        returning.start()
        self.addCleanup(returning.cancel)
        self.check_stopped(run, signal.SIGTERM, "Stopped by a signal!")

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
        """A run that fails leaves everything as it was."""
        before = {name: self.read(name) for name in self.names() if name.endswith(".txt")}
        run = self.run_command("run.cfg", *options, **settings)
        self.assertEqual(1, run.returncode, run.stderr)
        self.assertRegex(run.stderr, message)
        self.assertEqual(before,
                         {name: self.read(name) for name in self.names() if name.endswith(".txt")})

    def test_a_full_disk_leaves_older_files(self):
        """A limit on the size of files stands for the disk: both end a write half-way."""
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
            self.refuse("ERROR: .*(File too large|in full)", *options, preexec_fn=limit)

    def test_a_full_device(self):
        self.model()
        scores = ["-fileTest", "train.txt", "-filePred", "/dev/full"]
        for options in (["-fileModel", "/dev/full"], ["-mode", "predict", *scores],
                        ["-mode", "analyze", *scores]):
            self.refuse("(?m)^ERROR: .*/dev/full.*(No space|in full)", *options)

    def test_a_full_device_for_reports_costs_no_model(self):
        self.configure("fTestRealTime = true", "fileTest = train.txt")
        expected = self.model()
        for extra, message in (("fileDebug = /dev/full", "fileDebug /dev/full: "),
                               ("fileResultBase = full", "Can not write file full.train.txt.2 ")):
            self.write("model.txt", OLD)
            self.write("full.cfg", self.read("run.cfg") + extra)
            if not (self.folder / "full.train.txt.2").is_symlink():
                (self.folder / "full.train.txt.2").symlink_to("/dev/full")
            run = self.run_command("full.cfg")
            self.assertEqual(1, run.returncode)
            self.assertRegex(run.stderr, f"^ERROR: {message}.*\n$")
            self.assertIn("RMSE: ", run.stdout)
            self.assertEqual(expected, self.read("model.txt").replace("[debug]", ""))

    def test_a_folder_in_the_place_of_a_file(self):
        self.model()
        (self.folder / "folder").mkdir()
        for option in "-fileModel", "-filePred", "-fileDebug":
            self.refuse(f"^ERROR: {option[1:]} folder: cannot be written: Is a directory\n$",
                        "-fileTest", "train.txt", option, "folder")

    def test_a_read_only_folder(self):
        """Also one that becomes so in the middle of a run. The superuser runs without its right to
        write everywhere."""
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
        self.assertTrue(error.startswith("ERROR: Can not open file!\n"), error)


if __name__ == "__main__":
    unittest.main()
