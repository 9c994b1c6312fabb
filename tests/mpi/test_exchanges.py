"""Exchanges between ranks; see Exchanges.cpp."""

import os
import subprocess
import time
import unittest

from mpibench import LAUNCHER, LIMIT, own_lines

PROGRAM = os.environ["SYLVORA_MPI_EXCHANGES"]


class ExchangesTest(unittest.TestCase):

    def run_mode(self, ranks, mode, status=0):
        run = subprocess.run([*LAUNCHER, "-n", str(ranks), PROGRAM, mode], text=True, timeout=120,
                             capture_output=True)
        self.assertEqual(status, run.returncode, run.stderr)
        return run

    def test_all_bytes_arrive_in_pieces_of_any_size(self):
        for ranks in (2, 3, 5):
            run = self.run_mode(ranks, "pieces")
            self.assertEqual("as they should be\n", run.stdout)
            self.assertEqual("", run.stderr)

    def test_a_rank_that_computes_for_long_is_waited_for(self):
        self.run_mode(3, "slow")

    def test_exchanges_fail_when_a_rank_has_left(self):
        run = self.run_mode(3, "leave", status=1)
        self.assertEqual(["noticed", "ERROR: rank 1: the cause"], own_lines(run.stderr))

    def test_a_rank_that_cannot_end_in_time_is_ended(self):
        begin = time.monotonic()
        run = self.run_mode(3, "ends-late", status=1)
        self.assertLess(time.monotonic() - begin, LIMIT)
        self.assertEqual(["ERROR: rank 1: the cause"], own_lines(run.stderr))
