"""--checkpoint and --resume: the best angles so far in a JSON file, and a start from them."""

import hashlib
import json
import math
import os
import tempfile
import time

from .errors import InputError, UsageError

FORMAT = "corvid-qaoa checkpoint"


def fingerprint(qaoa):
    """A hash of the circuit's Hamiltonian: angles are only meaningful for the same terms."""
    terms = sorted((str(term), repr(float(coefficient))) for term, coefficient in qaoa.operator)
    return hashlib.sha256(json.dumps(terms).encode()).hexdigest()


class Saver:
    """Writes the best evaluation of a run to `path`, at most every `interval` seconds."""

    def __init__(self, path, interval=5.0, clock=time.monotonic):
        self.path = path
        self.interval = interval
        self._clock = clock
        self._last = clock()

    def maybe_save(self, qaoa):
        if self._clock() - self._last >= self.interval:
            self.save(qaoa)

    def save(self, qaoa):
        self._last = self._clock()
        best = qaoa.best
        if best is None:
            return
        document = {"format": FORMAT, "problem": fingerprint(qaoa),
                    "layers": len(best.angles) // 2, "angles": [float(a) for a in best.angles],
                    "loss": float(best.loss), "evaluations": len(qaoa.history)}
        text = json.dumps(document)
        folder = os.path.dirname(self.path) or "."
        temporary = None
        try:  # a reader, or a kill mid-write, sees the old file or the new one, never half
            descriptor, temporary = tempfile.mkstemp(dir=folder, suffix=".tmp")
            with os.fdopen(descriptor, "w", encoding="utf-8") as f:
                f.write(text)
            os.replace(temporary, self.path)
        except OSError as error:
            raise InputError(f"cannot write the checkpoint {self.path}: "
                             f"{error.strerror or error}") from None
        finally:  # after a failure or a Ctrl-C mid-write
            if temporary is not None and os.path.exists(temporary):
                os.unlink(temporary)


def resume(path, qaoa, layers):
    """The best angles of the checkpoint at `path`, refused unless it is one for this problem
    and this number of layers."""
    try:
        with open(path, encoding="utf-8") as f:
            document = json.load(f)
    except (OSError, UnicodeDecodeError, ValueError, RecursionError) as error:
        raise InputError(f"--resume {path}: cannot read it: "
                         f"{getattr(error, 'strerror', None) or error}") from None
    if not isinstance(document, dict) or document.get("format") != FORMAT:
        raise InputError(f"--resume {path}: not a {FORMAT}")
    angles = document.get("angles")
    if (not isinstance(angles, list) or not angles or len(angles) % 2
            or not all(_finite(a) for a in angles) or document.get("layers") != len(angles) // 2):
        raise InputError(f"--resume {path}: its angles are not 2 x layers finite numbers")
    if document.get("problem") != fingerprint(qaoa):
        raise InputError(f"--resume {path}: the checkpoint is of another problem")
    if document["layers"] != layers:
        raise UsageError(f"--resume {path}: the checkpoint has {document['layers']} layers, "
                         f"--layers is {layers}")
    return [float(a) for a in angles]


def _finite(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool) and math.isfinite(value)
