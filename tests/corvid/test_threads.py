import pytest

import corvid


def test_thread_count_round_trips():
    before = corvid.get_num_threads()
    try:
        corvid.set_num_threads(1)
        assert corvid.get_num_threads() == 1
    finally:
        corvid.set_num_threads(before)


def test_thread_count_must_be_positive():
    with pytest.raises(ValueError, match="at least 1"):
        corvid.set_num_threads(0)
