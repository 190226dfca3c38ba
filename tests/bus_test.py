"""What everybody on the bus can do to the daemon, and what they cannot."""
import contextlib
import functools
import multiprocessing
import os
import resource
import signal
import socket
import struct
import subprocess
import time
import unittest

from jeepney import DBusAddress, MatchRule, message_bus, new_method_call

import machine
from machine import CORE, NAME, PATH, Connection, Machine, eventually

machine.become_core()
MIB, OWN = 1 << 20, message_bus.RequestName(NAME)
ROOT, MEMBER, NOBODY = None, [machine.MEMBERS], []
BECOME = """import machine, os, sys
me, line, core = machine.Connection(), *sys.argv[1:]
me.post(line); me.has_owner(core); me.sock.set_inheritable(True)
os.execv(core, [core, "-c", "import sys; print(flush=True); sys.stdin.read()"])"""


def hold(me, names, count=500):
    """Keeps connections that never say who they are: more than the bus has places for."""
    with contextlib.suppress(BlockingIOError):
        while len(me.held) < count:
            me.held.append(socket.socket(socket.AF_UNIX))
            me.held[-1].setblocking(False)
            me.held[-1].connect(machine.bus_path())
    me.signal(names)
    me.has_owner(NAME)
    time.sleep(0.1)


def flood(_me, names, prepare=lambda: None):
    """More than the bus keeps for one: so it comes from many, who have connected before."""
    many = [Connection() for _ in range(20)]
    prepare()
    for one in 8 * many:
        one.signal(names, MIB * "x")


def cut(_me, _names):
    """Calls that end early."""
    whole = machine.request("echo --add").serialise(2)
    for length in range(len(whole)):
        with Connection() as one:
            one.sock.sendall(whole[:length])


def linger(me, names, address):
    """Sends a socket that waits in close until somebody reads what was sent."""
    me.held = socket.create_connection(address)
    me.held.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 1000))
    me.held.setblocking(False)
    with contextlib.suppress(BlockingIOError):
        while me.held.send(bytes(MIB)):
            pass
    me.signal(names, descriptors=[me.held.fileno()])


def stranger(step, groups, names, pipe):
    """Takes a step, as root or as another user in these groups, and stays. Where there is no other
    user, root is the stranger."""
    if groups is not ROOT and machine.has_other_users():
        os.setgroups(groups)
        os.setresgid(65534, 65534, 65534)
        os.setresuid(65534, 65534, 65534)
    me = Connection()
    me.held = []
    said = step(me, names)
    me.has_owner(NAME)
    pipe.send(said)
    signal.pause()


class BusTest(unittest.TestCase):
    def setUp(self):
        self.m = Machine()
        self.addCleanup(self.m.close)
        self.m.start()
        self.expect_answer()  # now it has its second connection, which asks who a caller is
        self.names = eventually(self.find_names)

    def expect_answer(self):
        """To an honest call. The bus may have no room for it before the daemon has read others."""
        full = "error: org.freedesktop.DBus.Error.LimitsExceeded"
        self.assertEqual(eventually(lambda: self.m.call("echo --add").replace(full, "")), "--add")

    def find_names(self):
        """The names of the daemon's connections."""
        with Connection() as one:
            return [name for name in one.ask(message_bus.ListNames()) if name[0] == ":" and
                    one.ask(message_bus.GetConnectionUnixProcessID(name)) == self.m.pid]

    def send(self, step, groups=NOBODY):
        """A stranger, whose pipe gives what it says after its step."""
        pipe, end = multiprocessing.Pipe()
        one = multiprocessing.Process(target=stranger, args=(step, groups, self.names, end))
        one.start()
        end.close()
        one.pipe = pipe
        self.addCleanup(lambda: (one.kill(), one.join()))
        return one

    def test_lets_group_and_root_call_the_method_and_root_alone_introspect_and_own_the_name(self):
        bus, line = "org.freedesktop.DBus.", "echo --add"
        rows = [([ROOT, MEMBER], PATH, NAME, "brimletd", line),
                ([ROOT], PATH, bus + "Introspectable", "Introspect"),
                ([ROOT], "/", bus + "Introspectable", "Introspect"),
                ([], PATH, None, "brimletd", line), ([], "/com/tolvane", NAME, "brimletd", line),
                ([], PATH, NAME + "s", "brimletd", line), ([], PATH, NAME, "Brimletd", line),
                ([], PATH, bus + "Peer", "Ping"), ([], PATH, bus + "Properties", "GetAll", NAME)]
        calls = [(users, new_method_call(DBusAddress(path, name, interface), member,
                                         "s" * len(body) or None, tuple(body)))
                 for name in (NAME, self.m.connection.ask(message_bus.GetNameOwner(NAME)))
                 for users, path, interface, member, *body in rows] + [([ROOT], OWN)]
        for user in [ROOT, MEMBER, NOBODY] if machine.has_other_users() else [ROOT]:
            said = self.send(lambda me, _: [me.ask(one) for _, one in calls], user).pipe.recv()
            for reply, (users, one) in zip(said, calls, strict=True):
                denied = reply == f"error: {bus}Error.AccessDenied"
                self.assertEqual(denied, user not in users, (user, one))

    def test_lets_no_signal_through_to_the_owner_of_the_name(self):
        self.m.stop()
        owner, other = Connection(), Connection()
        owner.ask(OWN)
        self.names = [NAME, owner.unique_name, other.unique_name]
        rule = MatchRule(interface="a.b")
        with owner.filter(rule, bufsize=9) as refused, other.filter(rule, bufsize=9) as passed:
            for groups in (ROOT, MEMBER, NOBODY):
                self.send(Connection.signal, groups).pipe.recv()
            owner.has_owner(NAME)
            other.has_owner(NAME)
            self.assertEqual((len(refused), len(passed)), (0, 3))

    def test_stays_as_it_was_and_answers_meanwhile(self):
        for step, groups, growth in [
                # No library takes them for signals, or for calls, since they are replies, too.
                (lambda me, names: me.signal(80 * names, "", 16 * [0], reply_serial=1), NOBODY, 1),
                (lambda me, _: [me.post(descriptors=16 * [0], reply_serial=1) for _ in range(80)],
                 MEMBER, 1),
                (lambda *of: [hold(*of) for _ in range(3)], NOBODY, 1), (cut, MEMBER, 4),
                (lambda me, _: [me.post("x --no") for _ in range(5000)], MEMBER, 4),
                # The allocator keeps some of it.
                (lambda me, _: [me.post(f"x --btup {size * MIB * 'w'}") for size in (1, 31)],
                 MEMBER, 80), (flood, NOBODY, 4)]:
            descriptors, _, memory = self.m.uses()
            one = self.send(step, groups)
            while not one.pipe.poll():
                self.expect_answer()
            one.pipe.recv()
            self.expect_answer()
            one.kill()
            self.expect_answer()
            self.assertEqual(self.m.uses()[0], descriptors)
            self.assertLess(self.m.uses()[2], memory + growth * 1024)

    def test_answers_after_a_flood_while_idle_when_no_new_connection_is_to_be_had(self):
        self.send(lambda me, names: flood(me, names, lambda: hold(me, names, 80))).pipe.recv()
        self.expect_answer()

    def test_recovers_from_a_message_without_room_in_memory(self):
        if whole := self.m.uses()[1]:
            limit = whole * 1024 + 16 * MIB, resource.getrlimit(resource.RLIMIT_AS)[1]
            resource.prlimit(self.m.pid, resource.RLIMIT_AS, limit)
            self.send(lambda me, names: me.signal(names, 31 * MIB * "x")).pipe.recv()
            self.expect_answer()
            self.expect_answer()

    def test_sees_the_end_of_its_parent_within_15_seconds(self):
        caller = Connection()
        self.send(functools.partial(hold, count=80)).pipe.recv()
        self.send(lambda me, names: [hold(me, names, 0) for _ in range(100)])
        for _ in range(100):
            caller.post()
        caller.has_owner(NAME)
        self.m.main.kill()
        self.m.main.wait()
        start = time.monotonic()
        self.assertEqual(self.m.end(), 1)
        self.assertLess(time.monotonic() - start, 15)

    def test_is_not_held_by_a_socket_that_waits_in_close(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            os.kill(self.m.pid, signal.SIGSTOP)
            one = self.send(functools.partial(linger, address=server.getsockname()))
            one.pipe.recv()
            one.kill()
            one.join()
            os.kill(self.m.pid, signal.SIGCONT)  # nobody else has the socket
            self.expect_answer()

    def test_admits_who_executes_an_admitted_program_after_sending(self):
        caller, ran = Connection(), self.m.home + "/ran"
        caller.post(self.m.script("while [ ! -e ~/go ]; do sleep 0.01; done") + " --add")
        caller.has_owner(NAME)  # the daemon looks at the next call only after this one
        command = ["/usr/bin/python3", "-c", BECOME, f"touch${{IFS}}{ran};: --add", CORE]
        environment = {**os.environ, "PYTHONPATH": os.path.dirname(machine.__file__)}
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              env=environment) as sender:
            sender.stdout.readline()
            self.m.run("touch", self.m.home + "/go")
            eventually(lambda: os.path.exists(ran))


if __name__ == "__main__":
    unittest.main(warnings="ignore")
