"""Each test of the running daemon has a machine of its own."""
import contextlib

import pytest

import machine

machine.become_core()


@pytest.fixture
def m():
    with contextlib.closing(machine.Machine()) as own:
        yield own
