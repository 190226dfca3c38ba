"""What everybody on the bus can do to the daemon and to its clients, and what they cannot."""
import contextlib
import json
import os
import resource
import select
import socket
import subprocess
import time
import unittest

import dbus

import machine
from machine import CORE, MAIN, NAME, PATH, Machine, eventually

machine.become_core()
import wire
from wire import BUS, METHOD, MIB, OWN, Wire

ROOT, MEMBER, NOBODY = None, [machine.MEMBERS], []
ASK = r"""said = []
for call in [OWN, *calls]:
    wire.heard = b""; wire.wait(**call); wire.wait()
    said.append(re.findall(r"Error\.(\w+)", wire.heard.decode(errors="replace")))
said = json.dumps(said)"""
HOLD = """try:
    while len(held) < count: held.append(connect(blocking=False))
except BlockingIOError: pass
wire.signal(names); wire.wait(); time.sleep(0.1)
"""
# More than the bus keeps for one, from many: it stops reading from one of whom it keeps much.
MANY = "many = [Wire() for _ in range(20)]\n"
FLOOD = "for one in 20 * many: one.signal(names, MIB * 'x')"
CUT = """whole = GREETING + message(CALL, "echo --add", serial=2, **METHOD)
for length in range(len(whole) + 99):
    cut = bytearray(whole[:length if length <= len(whole) else random.randrange(1, len(whole))])
    if length > len(whole): cut[random.randrange(len(cut))] = random.randrange(256)
    with connect() as connected:
        try: connected.sendall(cut)
        except OSError: pass
        while length == len(whole) and b"auth failed" not in connected.recv(4096): pass"""
LINGER = """held = socket.create_connection(("127.0.0.1", port))
held.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 1000))
held.setblocking(False)
try:
    while True: held.send(bytes(MIB))
except BlockingIOError: wire.signal(names, descriptors=[held.fileno()])"""
BECOME = """wire.post(line); wire.wait(); wire.socket.set_inheritable(True)
os.execv(core, [core, "-c", "print(flush=True); input()"])"""


class Stranger(subprocess.Popen):
    """A program at no admitted path that takes a step (wire.py), as root or as another user in
    these groups. Where there is no other user, root is the stranger."""

    def __init__(self, step, groups, names):
        is_other = groups is not ROOT and machine.has_other_users()
        user = {"user": 65534, "group": 65534, "extra_groups": groups} if is_other else {}
        source = machine.read(wire.__file__)
        super().__init__(["/usr/bin/python3", "-c", source, step, json.dumps(names)], text=True,
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, **user)

    def said(self, steps=0):
        """What it says after its step; then it takes some more."""
        if not (said := self.stdout.readline()):
            raise RuntimeError("the stranger gives up")
        print("\n" * steps, end="", file=self.stdin, flush=True)
        return said


class BusTest(unittest.TestCase):
    def start(self):
        """A machine, on which the daemon has its second connection, which asks who a caller is."""
        self.m = Machine()
        self.addCleanup(self.m.close)
        self.m.start()
        self.expect_answer()
        self.waiting = self.m.script("while [ ! -e ~/go ]; do sleep 0.01; done; echo ok") + " --add"

    def expect_answer(self):
        """To an honest call. The bus may have no room for it before the daemon has read others."""
        full = "error: org.freedesktop.DBus.Error.LimitsExceeded"
        self.assertEqual(eventually(lambda: self.m.call("echo --add").replace(full, "")), "--add")

    def names_of(self, pid):
        """The names of the connections that a process has to the bus."""
        def has(name):
            return pid == self.m.connection.call_blocking(
                *map(BUS.get, ("destination", "path", "interface")), "GetConnectionUnixProcessID",
                "s", (name,))
        with contextlib.suppress(dbus.DBusException):  # one has just gone
            return [name for name in self.m.connection.list_names() if name[0] == ":" and has(name)]

    def send(self, step, groups=NOBODY, **names):
        known = {"names": eventually(lambda: self.names_of(self.m.pid)), "count": 500}
        one = Stranger(step, groups, {**known, **names})
        self.addCleanup(lambda: (one.kill(), one.communicate()))
        return one

    def send_socket(self, pid):
        """Has nobody but the process `pid` hold a socket that waits in close for its reader."""
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)
        names = eventually(lambda: self.names_of(pid))
        one = self.send(LINGER, names=names, port=server.getsockname()[1])
        one.said()
        one.kill()
        one.wait()

    def test_lets_group_and_root_call_the_method_and_root_alone_introspect_and_own_the_name(self):
        self.start()
        echo = dict(METHOD, body="echo --add")
        look = dict(METHOD, interface="org.freedesktop.DBus.Introspectable", member="Introspect")
        rows = [(echo, [ROOT, MEMBER]), (look, [ROOT]), (dict(look, path="/"), [ROOT]),
                ({key: value for key, value in echo.items() if key != "interface"}, []),
                (dict(echo, path="/com/tolvane"), []), (dict(echo, member="Brimletd"), []),
                (dict(echo, interface="com.tolvane.brimlets"), []),
                (dict(METHOD, interface="org.freedesktop.DBus.Peer", member="Ping"), []),
                (dict(echo, interface="org.freedesktop.DBus.Properties", member="GetAll"), [])]
        names = NAME, self.m.connection.get_name_owner(NAME)
        calls = [dict(row, destination=name) for name in names for row, _ in rows]
        for user in [ROOT, MEMBER, NOBODY] if machine.has_other_users() else [ROOT]:
            with self.subTest(user):
                allowed = [user is ROOT] + 2 * [user in users for _, users in rows]
                self.assertEqual(json.loads(self.send(ASK, user, calls=calls).said()),
                                 [[] if row else ["AccessDenied"] for row in allowed])

    def test_lets_no_signal_through_to_the_owner_of_the_name(self):
        self.m = Machine()
        self.addCleanup(self.m.close)
        self.m.pid = os.getpid()
        owner, other = Wire(), Wire()
        owner.wait(**OWN)
        for groups in (ROOT, MEMBER, NOBODY):
            self.send("wire.signal(names)", groups, names=[NAME, owner.name, other.name]).said()
        for one, count in (owner, 0), (other, 3):
            one.wait()
            self.assertEqual(one.heard.count(b"a.b\0"), count)

    def test_stays_as_it_was_and_answers_meanwhile(self):
        for step, groups, steps, growth in [
                # No library takes them for signals, or for calls, since they are replies, too.
                ("for _ in 1, 2, 3, 4: wire.signal(names, b'', 16 * [0], reply=1)", NOBODY, 20, 1),
                ("for _ in 1, 2, 3, 4: wire.post(descriptors=16 * [0], reply=1)", MEMBER, 30, 1),
                (HOLD, NOBODY, 3, 1), (CUT, MEMBER, 1, 4), (MANY + FLOOD, NOBODY, 1, 4),
                ("for _ in range(5000): wire.post()", MEMBER, 1, 4),
                # The allocator keeps some of it.
                ("for size in 1, 31: wire.post('x --btup ' + size * MIB * 'w')", MEMBER, 1, 80)]:
            with self.subTest(step):
                self.start()
                descriptors, memory, _ = self.m.uses()
                one = self.send(step, groups)
                for _ in range(steps):
                    while not select.select([one.stdout], [], [], 0)[0]:
                        self.expect_answer()
                    one.said(1)
                    self.expect_answer()
                self.assertEqual(self.m.uses()[0], descriptors)
                self.assertLess(self.m.uses()[1], memory + growth * MIB)
                self.doCleanups()

    def test_answers_after_a_flood_while_idle_when_no_new_connection_is_to_be_had(self):
        self.start()
        self.send(MANY + HOLD + FLOOD, count=80).said()
        self.expect_answer()

    def test_recovers_from_a_message_without_room_in_memory(self):
        self.start()
        if whole := self.m.uses()[2]:
            resource.prlimit(self.m.pid, resource.RLIMIT_AS, (whole + 16 * MIB, -1))
            self.send("wire.signal(names, 31 * MIB * 'x')").said()
            self.expect_answer()
            self.expect_answer()

    def test_sees_the_end_of_its_parent_within_15_seconds(self):
        self.start()
        caller, one = Wire(), self.send(HOLD, count=80)
        one.said(1000)
        for _ in range(100):
            caller.post()
        caller.wait()
        self.m.main.kill()
        self.m.main.wait()
        start = time.monotonic()
        self.assertEqual(self.m.end(), 1)
        self.assertLess(time.monotonic() - start, 15)

    def test_is_not_held_by_a_socket_that_waits_in_close(self):
        self.start()
        self.send_socket(self.m.pid)
        self.expect_answer()

    def test_does_not_hold_a_client(self):
        self.start()
        with machine.standing_at(MAIN, machine.BUILD + "/tests/call"):
            command = [MAIN, "/dev/null", str(self.m.pid), self.waiting]
            client = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
            self.send_socket(client.pid)
            self.m.run("touch", self.m.home + "/go")
            self.assertEqual(client.communicate(timeout=60)[0], "replied\nok\n\n")

    def test_admits_who_executes_an_admitted_program_after_sending(self):
        self.start()
        caller, line, ran = Wire(), f"touch${{IFS}}{self.m.home}/ran;: --add", self.m.home + "/ran"
        self.send("wire.wait(body=line, **METHOD)", MEMBER, line=line).said()
        self.assertFalse(os.path.exists(ran))
        caller.post(self.waiting)
        caller.wait()  # the daemon looks at the next call only after this one
        self.send(BECOME, MEMBER, line=line, core=CORE).said()
        self.m.run("touch", self.m.home + "/go")
        eventually(lambda: os.path.exists(ran))

    def test_admits_what_a_mount_namespace_shows_at_an_admitted_path(self):
        self.start()
        shown = f"mount --bind /usr/bin/busctl {CORE} && exec {CORE} call {NAME} {PATH} {NAME} "
        self.assertEqual(self.m.run("unshare", "--mount", "sh", "-c",
                                    shown + "brimletd s 'echo --add'"), 's "--add"\n')


if __name__ == "__main__":
    unittest.main(warnings="ignore")
