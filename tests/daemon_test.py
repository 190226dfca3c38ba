"""The daemon: what a call is answered, what runs and what is logged; who is admitted; how it starts
and ends."""
import functools
import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree as xml

from jeepney import DBusAddress, HeaderFields, message_bus, new_method_call

import machine
from machine import CORE, DAEMON, MAIN, METHOD, NAME, PATH, Connection, Machine

machine.become_core()
FAILED, REFUSED, CALLED = "ExecutePopen failed!", "echo --nope", ("echo --add", "--add")
MONITORING, BUS_ERROR = "org.freedesktop.DBus.Monitoring", "error: org.freedesktop.DBus.Error."
LIST = "ls${IFS}/proc/$$/fd;: --add"
service, auth, method, policy = (
    functools.partial("[ERROR] [{}] ORVIX_BRIMLETD: {}".format, unit)
    for unit in ("BusService", "CallerAuth", "CommandMethod", "verifycmds"))
FAILS, UNKNOWN = method("PopenProcess fail r:-1 "), policy("It doesn't find this command")
LONG = [FAILED, method("lenBuf >= MAX_BUF_SIZE or < 1!"), FAILS]
DENIED = [method("CheckAuth failed: -1"), FAILS]
UNREADABLE = auth("GetSenderPath readlink failed , path =/proc/ID/exe")
ORPHAN = [auth(f"CheckParent path:{CORE} failed!"), service("Failed to CheckParent, r:-1")]


class DaemonTest(unittest.TestCase):
    def setUp(self):
        self.m = Machine()
        self.addCleanup(self.m.close)
        # Who is traced cannot look for its leaks.
        os.environ["LSAN_OPTIONS"] = f"detect_leaks={int('system_call' not in self.id())}"

    def expect(self, line, reply, *log):
        with self.subTest(line[:99]):
            self.assertEqual(self.m.call(line), reply)
            self.expect_log(*log)

    def expect_log(self, *log):
        lines = [re.sub(r"/proc/\d+/", "/proc/ID/", line) for line in self.m.log()]
        self.assertEqual(lines, list(log))

    def test_answers_with_the_output_of_what_it_allows_and_runs_nothing_else(self):
        self.m.start()
        most = "w" * (131071 - len("echo --btup "))  # with it, what the shell takes as one argument
        for line, reply, *log in [
                ("echo\tone\necho\ttwo --add", "one\ntwo --add"), (": --btup " + most, ""),
                (REFUSED, FAILED, UNKNOWN, FAILS), ("echo --add y", FAILED, FAILS),
                ("echo --btup " + most, *LONG),
                # An emulator's shell does not tell that it has not started.
                ("echo --btup w" + most, *(("",) if self.m.is_emulated else (FAILED, FAILS))),
                ("x --add" + " " * 20_000_000, FAILED, FAILS), ("brimletd --exit ", ""),
                ("Brimletd --exit", FAILED, FAILS), ("brimletd  --exit", FAILED, UNKNOWN, FAILS)]:
            self.expect(line, reply, *log)
        for body, reply, *log in [
                ("echo ok; exit 3", "ok"), ("printf o", ""), (":", ""), ("echo error >&2", ""),
                ("echo ok; kill -9 $$", "ok"), ("printf '%s' $*", "--ad"),
                (r"printf 'a\n\nb\n'", "a\n\nb"), (r"printf '\n\0\nb\n'", "\nb"),
                (r"printf 'a\0hidden\nb\n'", "ab"), (r"printf 'caf\303\251\n'", "caf\u00e9"),
                (r"printf '\351\n'", BUS_ERROR + "InvalidArgs", method("PopenProcess fail r:-22 ")),
                # A zero byte hides the rest of its piece of 1023 bytes, the second one here.
                (r"head -c 2000 /dev/zero | tr '\0' x; printf '\0%0100d\n'", "x" * 2000 + "0" * 55),
                # A piece is judged when it is whole.
                (r"printf '\0'; sleep 0.3; echo x; touch ~/ran", *LONG), ("yes x", *LONG),
                (r"head -c 102399 /dev/zero | tr '\0' x", "x" * 102398),
                (r"head -c 102400 /dev/zero | tr '\0' x", *LONG)]:
            with self.subTest(body):
                self.expect(self.m.script(body) + " --add", reply, *log)
        self.assertTrue(os.path.exists(self.m.home + "/ran"))
        number = new_method_call(METHOD, "brimletd", "i", (7,))
        self.assertEqual(self.m.connection.ask(number), BUS_ERROR + "InvalidArgs")
        self.expect("brimletd --exit", BUS_ERROR + "NoReply")
        self.assertEqual(self.m.end(), 0)

    def test_replies_once_to_each_call(self):
        self.m.start()
        caller, monitor, replies = Connection(), Connection(), 0
        monitoring = DBusAddress(message_bus.object_path, message_bus.bus_name, MONITORING)
        monitor.ask(new_method_call(monitoring, "BecomeMonitor", "asu", ([], 0)))
        for body in (r"printf '\351\n'", "echo", "yes"):
            caller.ask(machine.request(self.m.script(body) + " --add"))
        self.m.stop()
        # The bus rejects a second reply, but shows it to a monitor: up to where the daemon leaves.
        while (seen := monitor.receive()).body[:1] != (NAME,):
            replies += seen.header.fields.get(HeaderFields.destination) == caller.unique_name
        self.assertEqual(replies, 3)

    def test_is_what_its_description_says(self):
        self.m.start()
        seen, told = (
            xml.tostring(xml.fromstring(text).find(f"interface[@name='{NAME}']"))
            for text in (self.m.describe(), machine.read(f"{machine.TREE}/packaging/{NAME}.xml")))
        self.assertEqual(*(xml.canonicalize(text, strip_text=True) for text in (seen, told)))

    def test_sleeps_while_nobody_calls(self):
        def spent():  # processor time, in hundredths of a second
            return sum(map(int, machine.read(f"/proc/{self.m.pid}/stat").split()[13:15]))
        self.m.start()
        before = spent()
        time.sleep(1)
        self.assertLess(spent() - before, 20)

    def test_admits_two_paths_and_no_other(self):
        self.m.start()
        call = ["call", NAME, PATH, NAME, "brimletd", "s", "echo --add"]
        for path in (CORE, MAIN):
            self.assertEqual(self.m.run("busctl", *call, at=path), 's "--add"\n', path)
        self.expect(*CALLED)
        call[-1], folder, home = "brimletd --exit", os.path.dirname(MAIN), self.m.home
        busctl, core = os.path.realpath(shutil.which("busctl")), home + "/core"
        forged = home + "/\x1b[1m\x9f\u2028\u2029\xe9\\\n\r\t\x7f"
        shown = home + r"/\x1b[1m\xc2\x9f\xe2\x80\xa8\xe2\x80\xa9" + "\xe9" + r"\\n\r\t\x7f"
        copies = [MAIN + "2", folder + "/brimlet", folder + "/Brimle", core + "/OrvixCore"]
        os.mkdir(core)
        for path in (*copies, forged):
            shutil.copy(busctl, path)
        os.rename(CORE, core + "/old")
        os.symlink(busctl, CORE)
        for path, seen in [*zip(copies, copies), (forged, shown), (CORE, busctl)]:
            self.assertEqual(self.m.run(path, *call), 's "auth failed"\n', path)
            self.expect_log(auth(f"CheckAuth path:{seen} failed!"), *DENIED)
        os.rename(core + "/old", CORE)
        self.expect(*CALLED)

    def test_refuses_a_caller_that_is_gone(self):
        self.m.start()
        first, gone = Connection(), Connection()
        first.post(self.m.script("while [ ! -e ~/go ]; do sleep 0.01; done") + " --add")
        first.has_owner(NAME)
        gone.post("touch${IFS}$HOME/ran;: --add")
        gone.has_owner(NAME)
        gone.close()
        machine.eventually(lambda: not first.has_owner(gone.unique_name))
        self.m.run("touch", self.m.home + "/go")
        self.expect(*CALLED, auth("sd_bus_query_sender_creds failed: -6, creds = (nil)"),
                    auth("GetSenderPid failed. pid = -6"), method("CheckAuth failed: -6"),
                    method("PopenProcess fail r:-6 "))
        self.assertFalse(os.path.exists(self.m.home + "/ran"))

    def test_ends_with_its_parent_its_bus_or_a_system_call_that_it_cannot_do_without(self):
        def replace():
            shutil.copy(MAIN, MAIN + "2")
            os.rename(MAIN + "2", MAIN)

        def fail(fault):
            with self.m.failing(fault):
                self.m.describe()  # wakes it
        deleted = auth(f"CheckParent path:{MAIN} (deleted) failed!"), ORPHAN[1]
        for end, *log in [
                (lambda: fail("recvmsg:error=EIO"), service("Failed to sd_bus_process: -5")),
                (lambda: fail("/poll:error=EIO"), service("Failed to sd_bus_wait: -5")),
                (lambda: fail(f"/^readlink:error=EACCES -P /proc/{self.m.main.pid}/exe"),
                 UNREADABLE, ORPHAN[1]), (replace, *deleted),
                (lambda: (self.m.main.kill(), self.m.main.wait()), *ORPHAN),
                (self.m.bus.kill, service("Failed to sd_bus_process: -104"))]:
            self.m.start()
            end()
            self.assertEqual(self.m.end(), 1)
            self.expect_log(*log)

    def test_does_not_start_without_a_parent_its_name_a_bus_and_a_folder_for_its_log(self):
        def expect_end(command, *log):
            self.assertEqual(subprocess.run(command).returncode, 1)
            self.expect_log(*log)
        expect_end([DAEMON], *ORPHAN)
        for fault, failure in [("socket:error=EMFILE", "connect to system bus: -24"),
                               ("connect:error=ECONNREFUSED", "connect to system bus: -111"),
                               ("recvmsg:error=EIO", "acquire service name: -5")]:
            expect_end(self.m.strace(fault, DAEMON), service("Failed to " + failure))
        self.m.start()
        expect_end([DAEMON], service("Failed to acquire service name: -17"))
        self.expect(*CALLED)
        self.m.close()
        os.remove(self.m.home + "/bus")
        expect_end([DAEMON], service("Failed to connect to system bus: -2"))
        os.environ["HOME"] = tempfile.mkdtemp()
        expect_end(self.m.strace("/^mkdir:error=ENOSPC", DAEMON))
        self.assertNotIn("connect(", machine.read(self.m.home + "/trace"))

    def test_survives_failing_system_calls(self):
        self.m.start()
        descriptors = self.m.uses()[0]
        for fault, line, reply, *log in [
                (f"/^readlink:error=EACCES -P /proc/{os.getpid()}/exe", "echo --add", "auth failed",
                 UNREADABLE, *DENIED),
                ("/^pipe:error=EMFILE", "echo --add", FAILED, FAILS),
                ("/^v*fork|^clone:error=EAGAIN", "echo --add", FAILED, FAILS),
                ("read:error=EIO", "echo --add", ""), ("/^wait:error=ECHILD", *CALLED),
                ("sendmsg:error=ENOBUFS:when=1", *CALLED),  # the question who calls, asked again
                # The library's own error follows the reply that could not be sent.
                ("sendmsg:error=ENOBUFS:when=2", "echo --add", BUS_ERROR + "LimitsExceeded",
                 method("PopenProcess fail r:-105 ")),
                ("write:error=ENOSPC:when=1", REFUSED, FAILED, FAILS)]:  # one of two lines is lost
            with self.subTest(fault):
                with self.m.failing(fault):
                    self.expect(line, reply, *log)
                self.expect(*CALLED)
                self.assertEqual(self.m.uses()[0], descriptors)

    def test_gives_commands_three_descriptors_and_the_ignored_signals_of_a_terminal(self):
        foreign = "".join(f" {number}</dev/null" for number in range(3, 23))
        changed = "--ignore-signal=HUP,INT,QUIT,XFSZ,CHLD,PIPE,USR1 --block-signal=TERM,USR2"
        # The tracer is no parent of what it traces: that stays the main program's child.
        old_kernel = " ".join(self.m.strace("close_range:error=ENOSYS", "-D", DAEMON))
        for how, command, ignored in [
                (changed, DAEMON, 0x1000007), ("--default-signal", old_kernel + foreign, 0),
                *(("--default-signal", DAEMON + closed, 0) for closed in (
                    "", foreign, " <&-", " >&-", " 2>&-", " <&- >&- 2>&-" + foreign))]:
            # Not every shell knows descriptors of two digits.
            self.m.start(self.m.script(f"exec env {how} bash -c 'exec {command}'"))
            self.assertEqual(self.m.call(LIST), "0\n1\n2", command)
            for name, mask in ("SigBlk", 0), ("SigIgn", ignored):
                shown = self.m.call(f"grep${{IFS}}{name}${{IFS}}/proc/self/status;: --add")
                # The C library keeps what lies above for itself, and emulators keep more.
                if not self.m.is_emulated:
                    self.assertEqual(int(shown.split()[1], 16) & 0x7fffffff, mask, command)
            self.expect("yes;: --add", *LONG)
            self.assertEqual(self.m.stop(), 0)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
