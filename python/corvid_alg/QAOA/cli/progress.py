"""A one-line progress display on stderr: loss evaluations, the current and the best loss."""

import sys
import time


class Progress:
    """Redraws one status line in place, at most every `interval` seconds.

    Drawn only when `enabled`; by default, when the stream is a terminal.
    """

    _BAR = 20

    def __init__(self, stream=None, enabled=None, interval=0.1, clock=time.monotonic):
        self.stream = sys.stderr if stream is None else stream
        self.enabled = _is_terminal(self.stream) if enabled is None else enabled
        self.interval = interval
        self._clock = clock
        self._start = clock()
        self._last_draw = None
        self._best = None
        self._width = 0

    def update(self, evaluations, loss):
        """Record one evaluation; redraw when the last drawing is old enough."""
        self._best = loss if self._best is None else min(self._best, loss)
        if not self.enabled:
            return
        now = self._clock()
        if self._last_draw is not None and now - self._last_draw < self.interval:
            return
        self._last_draw = now
        filled = evaluations % (2 * self._BAR)  # a sweep: the total is not known in advance
        filled = filled if filled <= self._BAR else 2 * self._BAR - filled
        bar = "#" * filled + "-" * (self._BAR - filled)
        line = (f"optimising [{bar}] {evaluations} evaluations  loss {loss:.6g}  "
                f"best {self._best:.6g}  {now - self._start:.1f} s")
        self._write("\r" + line.ljust(self._width))
        self._width = len(line)

    def close(self):
        """Erase the line (the report that follows is the lasting record)."""
        if self.enabled and self._width:
            self._write("\r" + " " * self._width + "\r")
            self._width = 0

    def _write(self, text):
        self.stream.write(text)
        self.stream.flush()


def _is_terminal(stream):
    try:
        return stream.isatty()
    except (AttributeError, ValueError):
        return False
