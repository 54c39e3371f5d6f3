"""``python -m corvid_alg.QAOA``: the corvid-qaoa command line."""

from .cli import main

raise SystemExit(main())
