"""Checkpoints: runs that are killed or stopped, and end as if nothing had happened.

SYLVORA_KILLS in the environment is the number of runs to kill.
"""

import os
import random
import resource
import signal
import subprocess
import time
import unittest

from workbench import COMMAND, Workbench, data_lines

KILLS = int(os.environ.get("SYLVORA_KILLS", "12"))


class Checkpoints(Workbench):
    def setUp(self):
        super().setUp()
        self.write("dev.txt", data_lines([i * 7 % 10 for i in range(50)], seed=3))
        self.write("train.txt", data_lines([i % 10 for i in range(3000)]))
        self.keep = ["-checkpoint", "state"]

    def start(self, *options):
        return subprocess.Popen([COMMAND, "run.cfg", *options], cwd=self.folder, text=True,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def bytes_of(self, name):
        return (self.folder / name).read_bytes()

    def test_killed_runs_end_with_the_model_of_one(self):
        """Each time after a part of the time that the whole run takes, until one ends by itself."""
        draw = random.Random(11)
        for options in (["-numTree", "300", "-maxLeaf", "30"],
                        ["-numTree", "40", "-modelType", "RandomForest", "-fRegCls", "CLS"]):
            begin = time.monotonic()
            whole = self.model(*options)
            longest = time.monotonic() - begin
            killed, resumed = 0, 0
            while killed < KILLS // 2:
                run = self.start(*options, *self.keep, "-checkpointEvery", draw.choice("0125"),
                                 "-numThread", str(draw.randint(1, 4)), "-fileModel", "end.txt")
                time.sleep(draw.uniform(0, 0.8 * longest))
                run.kill()
                run.communicate()
                killed += 1
                if (self.folder / "end.txt").exists():
                    self.assertEqual(whole, self.read("end.txt"))
                    for name in "end.txt", "state":
                        (self.folder / name).unlink()
            resumed = (self.folder / "state").exists()
            run = self.succeed(*options, *self.keep, "-fileModel", "end.txt")
            self.assertEqual(resumed, "the training goes on after" in run.stderr)
            self.assertEqual(whole, self.read("end.txt"))
            # Nothing else stays, of killed runs neither.
            self.assertEqual(["dev.txt", "end.txt", "model.txt", "run.cfg", "state", "train.txt"],
                             sorted(os.listdir(self.folder)))
            for name in "end.txt", "state":
                (self.folder / name).unlink()

    def test_a_stopped_run_goes_on(self):
        """A signal has a checkpoint written. The table goes on with the next round."""
        self.configure("fileDev = dev.txt", "valShrink = 0.01")
        options = ["-numTree", "1500", "-evalEvery", "500", "-numThread", "1"]
        whole = self.succeed(*options)
        model = self.read("model.txt")
        run = self.start(*options, *self.keep, "-checkpointEvery", "10")
        while run.poll() is None and not (self.folder / "state").exists():
            time.sleep(0.002)
        run.send_signal(signal.SIGINT)
        stopped = run.communicate()[1]
        self.assertRegex(stopped, r"^Notice: Training was stopped after \d+ of 1500, ")
        self.assertEqual(130, run.returncode)
        done = stopped.split("after ")[1].split()[0]
        again = self.succeed(*options, *self.keep)
        self.assertEqual("Notice: checkpoint state: the training goes on after "
                         f"{done} of 1500 rounds!\n", again.stderr)
        self.assertEqual(model, self.read("model.txt"))
        header, *lines = whole.stdout.splitlines()
        self.assertEqual(header, again.stdout.splitlines()[0])
        self.assertEqual(lines[-1], again.stdout.splitlines()[-1])

    def test_a_file_has_one_user(self):
        """The second run is refused; after a kill the file is free again."""
        options = ["-numTree", "100000", "-checkpointEvery", "5", *self.keep]
        run = self.start(*options)
        try:
            while run.poll() is None and not (self.folder / "state").exists():
                time.sleep(0.002)
            self.fail_with("checkpoint state: is in use by another training; .*!$",
                           *options, "-fileModel", "other.txt")
            self.assertIsNone(run.poll())
        finally:
            run.kill()
            run.communicate()
        self.assertIn(".sylvora-state.lock", os.listdir(self.folder))
        done = self.fail_with("and numTree is only 1;", *self.keep, "-numTree", "1").stderr
        done = int(done.split("has ")[1].split()[0])
        model = self.model("-numTree", str(done + 1))
        self.assertEqual(model, self.model(*self.keep, "-numTree", str(done + 1)))
        self.assertNotIn(".sylvora-state.lock", os.listdir(self.folder))

    def test_a_full_disk_keeps_the_last_one(self):
        """A file size limit simulates a full disk; the model is smaller than the checkpoint."""
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (16384, 16384))
        options = ["-numTree", "9", *self.keep, "-checkpointEvery", "2"]
        model = self.model("-numTree", "9")
        run = self.succeed(*options, preexec_fn=limit)
        self.assertRegex(run.stderr, r"^ERROR: .*state in full: File too large!\n"
                                     r"Notice: checkpoint state: was never written!\n$")
        self.succeed(*self.keep)
        before = self.bytes_of("state")
        run = self.succeed(*options, preexec_fn=limit)
        self.assertRegex(run.stderr, r"^Notice: .* goes on after 5 of 9 rounds!\n"
                                     r"ERROR: .*state in full: File too large.*is kept!\n"
                                     r"Notice: .*the last one was written after 5 of 9 rounds!\n$")
        self.assertEqual(before, self.bytes_of("state"))
        self.assertEqual(model, self.read("model.txt"))

    def test_refusals(self):
        self.succeed(*self.keep)
        before = self.bytes_of("state")
        for part, options in (
                ("of a training with maxDepth 4, not 5", ["-maxDepth", "5"]),
                ("of a training with randomSeed 1, not 2", ["-randomSeed", "2"]),
                ("has 5 rounds, and numTree is only 4", ["-numTree", "4"]),
                ("does not go together with fileDebug", ["-fileDebug", "debug.txt"])):
            self.fail_with(f"checkpoint state: .*({part})", *self.keep, *options)
        self.fail_with("checkpointEvery: -1", *self.keep, "-checkpointEvery", "-1")
        self.fail_with("checkpoint model.txt: is the same file", "-checkpoint", "model.txt")
        self.fail_with("checkpoint train.txt: is the same file", "-checkpoint", "train.txt")
        lines = self.read("train.txt").splitlines()
        self.write("train.txt", lines[:-1] + [lines[-1][:-1] + "7"])
        self.fail_with("checkpoint state: is of another training: feature values .* differ",
                       *self.keep)
        self.write("train.txt", lines[:-1])
        self.fail_with("checkpoint state: is of a training with rows 3000, not 2999", *self.keep)
        self.assertEqual(before, self.bytes_of("state"))
        (self.folder / "state").write_bytes(before.replace(b"maxDepth 4", b"maxDepth 5"))
        self.fail_with("checkpoint state: is damaged or not complete", *self.keep)
        # A wrong file is found before the data are read.
        self.write("train.txt", ["not data"])
        (self.folder / "state").write_bytes(b"sylvora checkpoint 2\n" + before)
        self.fail_with("checkpoint state: was written by a newer version", *self.keep)
        self.fail_with("checkpoint dev.txt: is no checkpoint", "-checkpoint", "dev.txt")


if __name__ == "__main__":
    unittest.main()
