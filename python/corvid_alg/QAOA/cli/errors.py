"""The two kinds of failure the command line reports, each with its exit status."""


class UsageError(Exception):
    """A bad option or combination of options (exit status 2, as argparse uses)."""

    exit_status = 2


class InputError(Exception):
    """A problem file or expression that cannot be read (exit status 1)."""

    exit_status = 1
