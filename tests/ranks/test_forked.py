"""Trainings by ranks that are processes of this machine give the bytes of one process.

SYLVORA_KILLS in the environment is the number of ranks to kill (50).
"""

import os
import random
import subprocess

from workbench import REPOSITORY, Workbench, data_lines

FORKED = os.environ["SYLVORA_FORKED_RANKS"]
KILLS = int(os.environ.get("SYLVORA_KILLS", "50"))
KILLED = 128 + 9
BUNDLED = {
    "bike": ["-modelType", "GBDT", "-numTree", "30", "-valSmpRt", "0.7"],
    "wdbc": ["-modelType", "GBDT", "-lossFunc", "LogLoss", "-numTree", "30"],
    "mushroom": ["-modelType", "GBDT", "-lossFunc", "LogLoss", "-numTree", "20", "-ratio", "0.5"],
    "rank": ["-modelType", "GBRank", "-lossFunc", "CrossEntropy", "-numTree", "5",
             "-randomMode", "QUERY", "-valSmpRt", "0.7", "-absent", "zero"],
    "letter": ["-modelType", "RandomForest", "-fRegCls", "CLS", "-numTree", "2",
               "-maxDepth", "100", "-maxLeaf", "100000", "-valSmpRt", "0.6", "-ratio", "0.25"],
}


class ForkedRanks(Workbench):

    def train(self, ranks, *options, status=0):
        """Trains with the command for `ranks` 0, or with RANKS[:RANK:EXCHANGE]."""
        if ranks == 0:
            return self.succeed(*map(str, options))
        run = subprocess.run([FORKED, str(ranks), "run.cfg", *map(str, options)], cwd=self.folder,
                             text=True, timeout=240, capture_output=True)
        if status is not None:
            self.assertEqual(status, run.returncode, run.stderr)
        return run

    def test_bundled_sets_give_the_model_of_one_process(self):
        for name, options in BUNDLED.items():
            data = {kind: str(REPOSITORY / "data" / f"{name}.{kind}.txt")
                    for kind in ("train", "test")}
            options = [*options, "-digits", "17", "-fileTrain", data["train"], "-fileTest",
                       data["test"], "-filePred", "scores.txt"]
            whole = self.train(0, *options)
            files = [self.read("model.txt"), self.read("scores.txt")]
            for ranks in 1, 2, 3, 4, 7:
                for threads in 1, 4:
                    with self.subTest(name=name, ranks=ranks, threads=threads):
                        for file in "model.txt", "scores.txt":
                            (self.folder / file).unlink(missing_ok=True)
                        run = self.train(ranks, *options, "-numThread", threads)
                        self.assertEqual(whole.stdout, run.stdout)
                        self.assertEqual(files, [self.read("model.txt"), self.read("scores.txt")])

    def test_killed_ranks_are_followed_by_another_number(self):
        """A rank kills itself at a random exchange; other ranks go on from the checkpoint."""
        draw = random.Random(5)
        self.write("train.txt", data_lines([i % 10 for i in range(400)], columns=8))
        queries = [i // 8 for i in range(400)]
        self.write("queries.txt", data_lines([i % 3 for i in range(400)], queries, columns=5))
        cases = [["-numTree", "20"],
                 ["-numTree", "10", "-modelType", "RandomForest", "-fRegCls", "REG",
                  "-ratio", "0.5"],
                 ["-numTree", "12", "-modelType", "GBRank", "-lossFunc", "CrossEntropy",
                  "-fileTrain", "queries.txt"]]
        killed, resumed = 0, 0
        while killed < KILLS or resumed == 0:
            options = [*cases[killed % len(cases)], "-digits", "17"]
            whole = self.model(*options)
            ranks, status = 0, None
            while status != 0:
                ranks = draw.choice([r for r in (1, 2, 3, 4, 7) if r != ranks])
                death = f":{draw.randrange(ranks)}:{draw.randrange(300)}" if ranks > 1 else ""
                (self.folder / "model.txt").unlink(missing_ok=True)
                run = self.train(f"{ranks}{death}", *options, "-checkpoint", "state",
                                 "-checkpointEvery", draw.choice("12"), "-numThread",
                                 draw.choice("14"), status=None)
                status = run.returncode
                resumed += "the training goes on after" in run.stderr
                if status != 0:
                    killed += 1
                    self.assertIn(status, (1, KILLED), run.stderr)
                    self.assertFalse((self.folder / "model.txt").exists())
            self.assertEqual(whole, self.read("model.txt"))
            (self.folder / "state").unlink()
