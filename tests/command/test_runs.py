"""Whole runs: seeds, paths, modes, and the files after a failure."""

import os
import subprocess
import unittest

from workbench import COMMAND, OLD, REPOSITORY, Workbench, data_lines


class Seeds(Workbench):
    def test_seeds(self):
        forest = ["-modelType", "RandomForest", "-fRegCls", "REG"]
        for options in [], forest:
            plain = self.model(*options)
            self.assertEqual(plain, self.model(*options, "-randomSeed", "1"))
            self.assertNotEqual(plain, self.model(*options, "-randomSeed", "2"))
        signs = {self.model("-randomSeed", seed) for seed in ("7", "-7", "7.9")}
        self.assertEqual(1, len(signs))

    def test_seeds_beyond_all_bounds(self):
        for seed in "1e19", "-1e19", "1e999":
            self.fail_with("randomSeed .*is too large", "-randomSeed", seed)
        self.model("-randomSeed", "9e18")
        self.fail_with("randomSeed", "-randomSeed", "9e18", "-modelType", "RandomForest",
                       "-fRegCls", "REG")


class Processors(Workbench):
    def test_models_do_not_depend_on_the_processor(self):
        """Without FMA the C library rounds differently; models must not change."""
        without_fma = {**os.environ, "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-FMA,-AVX2,-FMA4"}
        for name in "wdbc", "rank":
            models = []
            for environment in os.environ, without_fma:
                run = subprocess.run(
                    [COMMAND, f"examples/{name}.cfg", "-filePred", self.folder / "p.txt",
                     "-fileModel", self.folder / "model.txt"],
                    cwd=REPOSITORY, env=environment, capture_output=True, text=True, timeout=120)
                self.assertEqual(0, run.returncode, run.stderr)
                models.append(self.read("model.txt"))
            self.assertEqual(models[0], models[1], name)


class Paths(Workbench):
    def test_missing_settings(self):
        for mode, names in (("train", ["fileTrain", "fileModel"]),
                            ("predict", ["fileModel", "fileTest", "filePred"]),
                            ("analyze", ["fileModel", "fileTest"])):
            every = {"fileTrain": "train.txt", "fileModel": "model.txt", "fileTest": "train.txt",
                     "filePred": "p.txt"}
            for name in names:
                given = [f"{key} = {every[key]}\n" for key in names if key != name]
                self.write("run.cfg", f"modelType = GBDT\nmode = {mode}\n" + "".join(given))
                self.fail_with(f"{name} is not set")

    def test_outputs_are_checked_before_the_data_is_read(self):
        self.configure("fileTrain = none.txt", "fileTest = none.txt", "pathOutput = none/")
        for option in "-fileModel", "-fileDebug", "-filePred":
            self.fail_with(option[1:] + " none/x: cannot be written: No such", option, "none/x")
            self.fail_with(option[1:] + " run.cfg: is the same file as the conf", option, "run.cfg")
        self.fail_with("filePred ./model.txt: is the same file as fileModel", "-filePred",
                       "./model.txt")
        self.configure("fTestRealTime = true")
        self.fail_with("fileResultBase none/Result.train.txt.1: cannot be written")

    def test_results_of_rounds_overwrite_nothing(self):
        self.configure("fTestRealTime = true")
        self.write("Result.train.txt.4", self.read("train.txt"))
        for option in "-fileTrain", "-fileTest", "-fileModel":
            self.fail_with(f"fileResultBase Result.train.txt.4: is the same file as {option[1:]}",
                           option, "./Result.train.txt.4")
        self.assertEqual(self.read("train.txt"), self.read("Result.train.txt.4"))

    def test_a_failed_run_leaves_older_files(self):
        self.write("good.txt", data_lines(range(9)))
        self.write("wrong.txt", ["1 1:1", "1 x"])
        outputs = {"model.txt": ["-modelType", "GBRank"], "wrong.model": ["-mode", "predict"],
                   "train.txt": ["-mode", "analyze"]}
        for model, options in outputs.items():
            for name in "model.txt", "old.txt":
                self.write(name, OLD)
            before = sorted(os.listdir(self.folder))
            self.fail_with("", "-fileTest", "good.txt", "-filePred", "old.txt", "-fileModel", model,
                           *options)
            self.assertEqual([OLD, OLD], [self.read(n) for n in ("model.txt", "old.txt")])
            self.assertEqual(before, sorted(os.listdir(self.folder)))

    def test_scores_of_a_wrong_file_leave_the_old_ones(self):
        self.model()
        self.write("wrong.txt", ["1 1:1", "1 2:x"])
        for mode in "predict", "analyze":
            self.write("old.txt", OLD)
            self.fail_with("fileTest wrong.txt, line 2: ", "-mode", mode, "-fileTest", "wrong.txt",
                           "-filePred", "old.txt")
            self.assertEqual(OLD, self.read("old.txt"))


class Modes(Workbench):
    def test_scoring_needs_no_training_settings(self):
        self.model()
        self.write("score.cfg", "fileModel = model.txt\nfileTest = train.txt\nfilePred = p.txt\n")
        for mode in "predict", "analyze":
            run = self.run_command("score.cfg", "-mode", mode)
            self.assertEqual((0, ""), (run.returncode, run.stderr))
            self.assertTrue(self.read("p.txt"))

    def test_report_beside_the_model(self):
        self.model()
        self.succeed("-mode", "analyze", "-fileTest", "train.txt")
        beside = self.read("model.txt.features")
        self.succeed("-mode", "analyze", "-fileTest", "train.txt", "-filePred", "named.txt")
        self.assertEqual(beside, self.read("named.txt"))
        self.assertRegex(beside, "^Average Accumulated Absolute Difference: .*\n.*\n0\t")

    def test_nothing_to_score(self):
        self.model()
        self.write("p.txt", OLD)
        for text in "", "\n \r\n\t":
            self.write("empty.txt", text)
            for mode, message in ("predict", "has no rows to score"), ("analyze", ".* 0 rows"):
                self.fail_with("fileTest empty.txt: " + message, "-mode", mode, "-fileTest",
                               "empty.txt", "-filePred", "p.txt")
            self.fail_with("fileTest empty.txt: .* 0 rows", "-fileTest", "empty.txt")
        self.assertEqual(OLD, self.read("p.txt"))

    def test_a_loss_that_no_configuration_can_supply(self):
        self.fail_with("lossFunc USER", "-lossFunc", "USER")


if __name__ == "__main__":
    unittest.main()
