"""Solve two small problems end to end with the corvid-qaoa command line: a three-variable
polynomial, and MaxCut of the 14-node 3-regular graph in examples/maxcut14.txt.

Run: python examples/demo.py [--quick]   (`make demo` runs the MaxCut part from the shell)
"""

import os
import sys

from corvid_alg.QAOA.cli import main as corvid_qaoa

HERE = os.path.dirname(os.path.abspath(__file__))


def main(quick=False):
    layers = "2" if quick else "3"
    budget = ["--optimizer", "COBYLA", "--option", "maxiter=20"] if quick else []
    status = corvid_qaoa(["-e", "2*x0*x1 + 3*x2 - 1", "--layers", "2", "--seed", "2026",
                          "--top", "3"])
    print()
    status |= corvid_qaoa(["--maxcut", os.path.join(HERE, "maxcut14.txt"), "--layers", layers,
                           "--interp", "--initial-angles", "0.4,0.6", "--seed", "2026",
                           "--top", "3", *budget])
    return status


if __name__ == "__main__":
    sys.exit(main(quick="--quick" in sys.argv))
