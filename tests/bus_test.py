"""What everybody on the bus can do to the daemon, and what they cannot."""
import contextlib
import multiprocessing
import os
import shutil
import signal
import socket
import time

import pytest
from jeepney import DBusAddress, MatchRule, message_bus, new_method_call

import machine
from machine import CORE, NAME, PATH, Connection, eventually

MIB, OWN = 1 << 20, message_bus.RequestName(NAME)
ROOT, MEMBER, NOBODY = None, [machine.MEMBERS], []


class Machine(machine.Machine):
    def __init__(self):
        super().__init__()
        self.start()
        self.expect_answer()
        self.names = eventually(self.find_names)

    def close(self):
        for one in multiprocessing.active_children():
            one.kill()
        super().close()

    def expect_answer(self):
        """An honest call has one. The bus may have no room for it before the daemon has read."""
        full = "error: org.freedesktop.DBus.Error.LimitsExceeded"
        assert eventually(lambda: self.call("echo --add").replace(full, "")) == "--add"

    def find_names(self):
        with Connection() as one:
            return [name for name in one.ask(message_bus.ListNames()) if name[0] == ":" and
                    one.ask(message_bus.GetConnectionUnixProcessID(name)) == self.pid]

    def send(self, step, groups=NOBODY):
        """A stranger that takes a step, as root or as another user in these groups, and stays. Its
        pipe gives what it says then. Where there is no other user, root is the stranger."""
        def live():
            if groups is not ROOT and machine.has_other_users():
                os.setgroups(groups)
                os.setgid(65534)
                os.setuid(65534)
            me = Connection()
            me.held = []
            said = step(me, self.names)
            me.has_owner(NAME)
            end.send(said)
            signal.pause()
        pipe, end = multiprocessing.Pipe()
        one = multiprocessing.Process(target=live)
        one.start()
        end.close()
        one.pipe = pipe
        return one


def hold(me, names, count=500):
    """Keeps up to so many connections that never say who they are, and wakes the daemon."""
    with contextlib.suppress(BlockingIOError):
        while len(me.held) < count:
            me.held.append(socket.socket(socket.AF_UNIX))
            me.held[-1].setblocking(False)
            me.held[-1].connect(me.sock.getpeername())
    me.signal(names)
    me.has_owner(NAME)
    time.sleep(0.1)


def flood(_me, names):
    """More than the bus keeps for one: so it comes from many."""
    for one in 8 * [Connection() for _ in range(20)]:
        one.signal(names, MIB * "x")


def test_lets_group_and_root_call_the_method_and_root_alone_introspect_and_own_the_name(m):
    bus, line = "org.freedesktop.DBus.", "echo --add"
    rows = [([ROOT, MEMBER], PATH, NAME, "brimletd", line), ([], PATH, None, "brimletd", line),
            ([], "/a", NAME, "brimletd", line), ([], PATH, NAME + "s", "brimletd", line),
            ([], PATH, NAME, "Brimletd", line), ([], PATH, bus + "Peer", "Ping"),
            ([], PATH, bus + "Properties", "GetAll", NAME),
            *(([ROOT], path, bus + "Introspectable", "Introspect") for path in ("/", PATH))]
    calls = [(users, new_method_call(DBusAddress(path, name, interface), member,
                                     "s" * len(body) or None, tuple(body)))
             for name in (NAME, m.connection.ask(message_bus.GetNameOwner(NAME)))
             for users, path, interface, member, *body in rows] + [([ROOT], OWN)]
    for user in [ROOT, MEMBER, NOBODY] if machine.has_other_users() else [ROOT]:
        said = m.send(lambda me, _: [me.ask(one) for _, one in calls], user).pipe.recv()
        for reply, (users, one) in zip(said, calls, strict=True):
            assert (reply == f"error: {bus}Error.AccessDenied") == (user not in users), (user, one)
    assert sorted(m.find_names()) == sorted(m.names)  # that has cost it no connection


def test_lets_no_signal_through_to_the_owner_of_the_name(m):
    m.stop()
    owner, other = Connection(), Connection()
    owner.ask(OWN)
    m.names = [NAME, owner.unique_name, other.unique_name]
    rule = MatchRule(interface="a.b")
    with owner.filter(rule, bufsize=9) as refused, other.filter(rule, bufsize=9) as passed:
        for groups in (ROOT, MEMBER, NOBODY):
            m.send(Connection.signal, groups).pipe.recv()
        owner.has_owner(NAME)
        other.has_owner(NAME)
        assert (len(refused), len(passed)) == (0, 3)


def test_stays_as_it_was_and_answers_meanwhile(m):
    for step, groups, growth in [  # in MiB
            (lambda *of: [hold(*of) for _ in range(3)], NOBODY, 1),
            (lambda me, _: [me.post("x --no") for _ in range(5000)], MEMBER, 4),
            # The allocator keeps some of it.
            (lambda me, _: [me.post(f"x --btup {size * MIB * 'w'}") for size in (1, 31)],
             MEMBER, 80), (flood, NOBODY, 4)]:
        descriptors, memory = m.uses()
        one = m.send(step, groups)
        while not one.pipe.poll():
            m.expect_answer()
        one.pipe.recv()
        one.kill()
        m.expect_answer()
        assert m.uses()[0] == descriptors
        assert m.uses()[1] < memory + growth * 1024


def test_sees_the_end_of_its_parent_within_15_seconds(m):
    caller = Connection()
    m.send(lambda *of: hold(*of, 80)).pipe.recv()
    m.send(lambda me, names: [hold(me, names, 0) for _ in range(100)])
    for _ in range(100):
        caller.post("x --no")
    caller.has_owner(NAME)
    m.main.kill()
    start = time.monotonic()
    assert m.end() == 1
    assert time.monotonic() - start < 15


def test_judges_a_caller_by_what_it_runs_when_its_turn_comes(m):
    def become(me, _names):
        me.post("touch${IFS}$HOME/ran;: --add")
        me.has_owner(NAME)
        me.sock.set_inheritable(True)
        shutil.copy(CORE + "2", CORE)
        os.execv(CORE, [CORE, "-c", "import signal; signal.pause()"])
    caller, gone = Connection(), Connection()
    caller.post(m.script("touch ~/busy; while [ ! -e ~/go ]; do sleep 0.01; done") + " --add")
    eventually(lambda: os.path.exists(m.home + "/busy"))
    gone.post("touch${IFS}$HOME/wrong;: --add")
    gone.has_owner(NAME)
    gone.close()
    eventually(lambda: not caller.has_owner(gone.unique_name))
    os.rename(CORE, CORE + "2")  # where all interpreters run from now
    with pytest.raises(EOFError):
        m.send(become, ROOT).pipe.recv()
    m.run("touch", m.home + "/go")
    eventually(lambda: os.path.exists(m.home + "/ran"))
    assert [line.replace("] ORVIX_BRIMLETD", "") for line in m.log()] == [
        "[ERROR] [CallerAuth: sd_bus_query_sender_creds failed: -6, creds = (nil)",
        "[ERROR] [CallerAuth: GetSenderPid failed. pid = -6",
        "[ERROR] [CommandMethod: CheckAuth failed: -6",
        "[ERROR] [CommandMethod: PopenProcess fail r:-6 "]
    assert not os.path.exists(m.home + "/wrong")
    os.rename(CORE + "2", CORE)
