"""Tells on standard error what is running. On a terminal each line replaces the one before."""

import sys
import time


class Progress:
    """Counts steps, such as workloads, out of `steps`, and the time since its construction."""

    def __init__(self, steps):
        self.steps, self.number, self.what = steps, 0, ""
        self.begin = time.monotonic()
        self.terminal = sys.stderr.isatty()

    def step(self, what):
        """Begins the next step."""
        self.number += 1
        self.what = what

    def tell(self, detail):
        seconds = int(time.monotonic() - self.begin)
        text = (f"[{seconds // 3600}:{seconds // 60 % 60:02}:{seconds % 60:02}] "
                f"{self.number} of {self.steps}: {self.what}: {detail}")
        sys.stderr.write(f"\r\033[K{text[:119]}" if self.terminal else text + "\n")
        sys.stderr.flush()

    def clear(self):
        """Removes the line, before other output."""
        if self.terminal:
            sys.stderr.write("\r\033[K")
            sys.stderr.flush()
