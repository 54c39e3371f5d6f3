"""Runs Python snippets in a fresh interpreter, optionally sending Ctrl-C (SIGINT) to it."""

import os
import signal
import subprocess
import sys
import textwrap
import time

_PRELUDE = """
import signal, sys, time
signal.signal(signal.SIGINT, signal.default_int_handler)  # a background job may ignore SIGINT
import corvid
"""


_TESTS = os.path.dirname(os.path.abspath(__file__))


def _command(code):
    # The library's path, not the test folders pytest put first: tests/corvid would be read as
    # part of the corvid package.
    path = [p for p in sys.path if p and not os.path.abspath(p).startswith(_TESTS)]
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(path))
    return [sys.executable, "-u", "-c", _PRELUDE + textwrap.dedent(code)], env


def run_python(code, timeout):
    """stdout + stderr of `code`; subprocess.TimeoutExpired after `timeout` seconds."""
    command, env = _command(code)
    done = subprocess.run(command, capture_output=True, text=True, timeout=timeout, env=env)
    return done.stdout + done.stderr


def interrupt_after(code, delay=1.0):
    """Runs `code`, sends SIGINT `delay` s after it prints "ready", and returns (seconds from the
    signal to the child's next line of output, that line)."""
    command, env = _command(code)
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             env=env)
    try:
        first = child.stdout.readline().strip()
        assert first == "ready", first + child.stdout.read()
        time.sleep(delay)
        sent = time.monotonic()
        child.send_signal(signal.SIGINT)
        line = child.stdout.readline().strip()
        elapsed = time.monotonic() - sent
        child.wait(timeout=60)
        return elapsed, line
    finally:
        if child.poll() is None:
            child.kill()
            child.wait()
