"""Each test of the running daemon has a machine of its own; a file may bring its own kind."""
import contextlib

import pytest

import machine

machine.become_core()


@pytest.fixture
def m(request):
    with contextlib.closing(getattr(request.module, "Machine", machine.Machine)()) as own:
        yield own
