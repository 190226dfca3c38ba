"""Each test of the running daemon has a machine of its own, of a kind of its own in some files."""
import contextlib

import pytest

import machine

machine.become_core()


@pytest.fixture
def m(request):
    with contextlib.closing(getattr(request.module, "Machine", machine.Machine)()) as own:
        yield own
