"""The line of ProgressBar, on a terminal, in a notebook or in a file."""

from __future__ import annotations

import sys
import time
from typing import Any, Optional, TextIO

_WIDTH = 24
_SHORTEST_PAUSE = 0.1  # seconds between two lines


class Display:
    """A line that is written again and again on a terminal."""

    def __init__(self, total: int, stream: TextIO) -> None:
        self._total = max(total, 1)
        self._stream = stream
        self._width = 0
        self._last_time = -1.0

    def is_due(self, number: int) -> bool:
        """Whether round `number` is to be shown."""
        now = time.monotonic()
        if number < self._total and 0 <= now - self._last_time < _SHORTEST_PAUSE:
            return False
        self._last_time = now
        return True

    def show(self, number: int, elapsed: float, metric: str) -> None:
        text = line_of(number, self._total, elapsed, metric)
        self._write(text)

    def close(self) -> None:
        if self._width > 0:
            self._stream.write("\n")
            self._stream.flush()

    def _write(self, text: str) -> None:
        self._stream.write("\r" + text.ljust(self._width))
        self._stream.flush()
        self._width = len(text)


class _Lines(Display):
    """A line for every tenth part."""

    _tenths = 0

    def is_due(self, number: int) -> bool:
        tenths = 10 * number // self._total
        if tenths <= self._tenths:
            return False
        self._tenths = tenths
        return True

    def _write(self, text: str) -> None:
        self._stream.write(text + "\n")
        self._stream.flush()


class _Cell(Display):
    """A line below the cell of a notebook, which is replaced."""

    _handle: Any = None

    def _write(self, text: str) -> None:
        from IPython.display import display  # type: ignore[import]

        content = {"text/plain": text}
        if self._handle is None:
            self._handle = display(content, raw=True, display_id=True)
        else:
            self._handle.update(content, raw=True)


def display_for(total: int, stream: Optional[TextIO] = None) -> Optional[Display]:
    """What suits the place; None without a standard error, as in a program without a window."""
    if _in_notebook():
        return _Cell(total, sys.stderr)
    stream = stream if stream is not None else sys.stderr
    if stream is None:
        return None
    return Display(total, stream) if stream.isatty() else _Lines(total, stream)


def _in_notebook() -> bool:
    """Whether output goes to a notebook. A terminal with IPython has no kernel."""
    if "ipykernel" not in sys.modules or "IPython" not in sys.modules:
        return False
    shell = sys.modules["IPython"].get_ipython()
    return shell is not None and getattr(shell, "kernel", None) is not None


def line_of(number: int, total: int, elapsed: float, metric: str) -> str:
    """Such as ``[######............] 30/100  00:12 < 00:28  dev rmse 46.3``."""
    filled = min(_WIDTH * number // total, _WIDTH)
    bar = "#" * filled + "." * (_WIDTH - filled)
    left = elapsed * (total - number) / number if number > 0 else 0.0
    text = f"[{bar}] {number}/{total}  {clock(elapsed)} < {clock(left)}"
    return f"{text}  {metric}" if metric else text


def clock(seconds: float) -> str:
    """Minutes and seconds, with hours from one hour on."""
    minutes, rest = divmod(int(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02}:{rest:02}" if hours else f"{minutes:02}:{rest:02}"
