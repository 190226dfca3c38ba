"""The daemon: what a call is answered, what runs and what is logged; who is admitted; how it starts
and ends."""
import datetime
import functools
import os
import re
import resource
import shutil
import struct
import subprocess
import unittest
import xml.etree.ElementTree as xml

import machine
from machine import CORE, DAEMON, MAIN, NAME, PATH, Machine

machine.become_core()
from wire import BUS, CALL, METHOD, Wire

FAILED, REFUSED, CALLED = "ExecutePopen failed!", "echo --nope", ("echo --add", "--add")
BUS_ERROR = "error: org.freedesktop.DBus.Error."
BUSCTL = os.path.realpath(shutil.which("busctl"))
LIST = "ls${IFS}/proc/$$/fd;: --add"
LATE_CALL = f"""import dbus, sys; sys.stdin.readline(); bus = dbus.SystemBus()
print(bus.call_blocking("{NAME}", "{PATH}", "{NAME}", "brimletd", "s", ["echo --add"]))"""
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

    def test_answers_with_the_output_within_its_bounds(self):
        self.m.start()
        for body, reply, *log in [
                ("echo ok; exit 3", "ok"), ("printf o", ""), (":", ""), ("echo error >&2", ""),
                ("echo ok; kill -9 $$", "ok"), ("printf '%s' $*", "--ad"),
                (r"printf 'a\n\nb\n'", "a\n\nb"), (r"printf '\n\0\nb\n'", "\nb"),
                (r"printf 'a\0hidden\nb\n'", "ab"), (r"printf '\0a\n'", *LONG),
                (r"printf 'caf\303\251\n'", "caf\u00e9"),
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

    def test_runs_allowed_lines_as_they_came_and_no_others(self):
        self.m.start()
        most = "w" * (131071 - len("echo --btup "))  # with it, what the shell takes as one argument
        for line, reply, *log in [
                ("echo\tone\necho\ttwo --add", "one\ntwo --add"), (": --btup " + most, ""),
                ("echo --setIP orvix0 192.168.1.1", "--setIP orvix0 192.168.1.1"),
                (REFUSED, FAILED, UNKNOWN, FAILS), ("echo --add y", FAILED, FAILS),
                ("echo --btup " + most, *LONG),
                # An emulator's shell does not tell that it has not started.
                ("echo --btup w" + most, *(("",) if self.m.is_emulated else (FAILED, FAILS))),
                ("x --setIP orvix0 " + "w" * 20_000_000, FAILED, FAILS),
                ("x --add" + " " * 20_000_000, FAILED, FAILS)]:
            self.expect(line, reply, *log)
        caller = Wire()
        caller.wait(**METHOD, body=struct.pack("<i", 7), signature="i")
        caller.until(rb"Error\.InvalidArgs\0")

    def test_replies_once_to_each_call_in_its_order(self):
        self.m.start()
        monitor, callers = Wire(), [Wire() for _ in range(8)]
        monitor.wait(**dict(BUS, interface="org.freedesktop.DBus.Monitoring"), signature="asu",
                     member="BecomeMonitor", body=bytes(8))
        not_utf8 = self.m.script(r"printf '\351\n'") + " --add"
        for serial in b"ABCDEFGHIJKL":
            for caller in callers:
                line = [not_utf8, "echo --add", REFUSED, "echo --add y"][serial % 4]
                caller.send(CALL, line, serial=serial, **METHOD)
        for caller in callers:
            caller.until(rb"\x05\x01u\0L\0\0\0")
            replies = re.findall(rb"\x05\x01u\0([A-Z])\0\0\0", caller.heard)
            self.assertEqual(b"".join(replies), b"ABCDEFGHIJKL")
        # The bus rejects a second reply, but shows it to a monitor: up to where the daemon leaves.
        self.m.stop()
        monitor.until(rb"NameOwnerChanged\0.*" + NAME.encode() + rb"\0")
        self.assertEqual(len(re.findall(rb"\x06\x01s\0....%b\0" % callers[0].name.encode(),
                                        monitor.heard, re.S)), 12)

    def test_is_what_its_description_says(self):
        self.m.start()
        seen, told = (
            xml.tostring(xml.fromstring(text).find(f"interface[@name='{NAME}']"))
            for text in (self.m.describe(), machine.read(f"{machine.TREE}/packaging/{NAME}.xml")))
        self.assertEqual(*(xml.canonicalize(text, strip_text=True) for text in (seen, told)))

    def test_logs_with_the_time_to_a_file_of_its_own(self):
        self.m.start()
        before = datetime.datetime.now()
        self.expect(REFUSED, FAILED, UNKNOWN, FAILS)
        stamp = datetime.datetime.strptime(machine.read(self.m.log_path)[:26],
                                           "[%y-%m-%d %H:%M:%S.%f]")
        self.assertTrue(before <= stamp <= datetime.datetime.now(), (before, stamp))
        for path, mode in (self.m.log_path, 0o100600), (os.path.dirname(self.m.log_path), 0o40700):
            self.assertEqual(os.stat(path).st_mode, mode)

    def test_admits_two_paths_and_no_other(self):
        self.m.start()
        call = ["call", NAME, PATH, NAME, "brimletd", "s", "echo --add"]
        for path in (CORE, MAIN):
            self.assertEqual(self.m.run("busctl", *call, at=path), 's "--add"\n', path)
        self.expect(*CALLED)
        call[-1], folder, home = "brimletd --exit", os.path.dirname(MAIN), self.m.home
        forged = home + "/\x1b[1m\u0085\u2028\u2029\u00e9\\\n\r\t\x7f"
        shown = home + r"/\x1b[1m\xc2\x85\xe2\x80\xa8\xe2\x80\xa9" + "\u00e9" + r"\\n\r\t\x7f"
        for path, seen in [(folder + "/Brimlet2", 0), (folder + "/brimlet", 0), (forged, shown),
                           (folder + "/Brimle", 0), (home + "/OrvixCore", 0), (BUSCTL, 0)]:
            if path != BUSCTL:
                shutil.copy(BUSCTL, path)
            said = subprocess.run(["x", *call], executable=path, stdout=subprocess.PIPE).stdout
            self.assertEqual(said, b's "auth failed"\n', path)
            self.expect_log(auth(f"CheckAuth path:{seen or path} failed!"), *DENIED)
        os.rename(CORE, home + "/core")
        os.symlink(BUSCTL, CORE)
        self.assertEqual(self.m.run(CORE, *call), 's "auth failed"\n')
        self.expect_log(auth(f"CheckAuth path:{BUSCTL} failed!"), *DENIED)
        os.remove(CORE)
        shutil.copy(home + "/core", CORE)
        replaced = subprocess.Popen([CORE, "-c", LATE_CALL], stdin=subprocess.PIPE, text=True,
                                    stdout=subprocess.PIPE)
        os.rename(home + "/core", CORE)
        self.assertEqual(replaced.communicate("\n")[0], "auth failed\n")
        self.expect_log(auth(f"CheckAuth path:{CORE} (deleted) failed!"), *DENIED)
        self.expect(*CALLED)

    def test_refuses_a_caller_that_is_gone(self):
        self.m.start()
        first, gone = Wire(), Wire()
        first.post(self.m.script("while [ ! -e ~/go ]; do sleep 0.01; done") + " --add")
        first.wait()
        gone.post("touch${IFS}$HOME/ran;: --add")
        gone.wait()
        gone.socket.close()
        machine.eventually(lambda: not self.m.connection.name_has_owner(gone.name))
        self.m.run("touch", self.m.home + "/go")
        self.expect(*CALLED, auth("sd_bus_query_sender_creds failed: -6, creds = (nil)"),
                    auth("GetSenderPid failed. pid = -6"), method("CheckAuth failed: -6"),
                    method("PopenProcess fail r:-6 "))
        self.assertFalse(os.path.exists(self.m.home + "/ran"))

    def test_stops_for_the_exact_line_alone(self):
        self.m.start()
        for line in ("brimletd --exit ", "Brimletd --exit", "brimletd  --exit", " brimletd --exit"):
            self.assertFalse(self.m.call(line).startswith("error"), line)
        self.m.log()
        self.expect("brimletd --exit", BUS_ERROR + "NoReply")
        self.assertEqual(self.m.end(), 0)

    def test_ends_with_its_parent_and_with_its_bus(self):
        for end, *log in [(lambda: (self.m.main.kill(), self.m.main.wait()), *ORPHAN),
                          (self.m.bus.kill, service("Failed to sd_bus_process: -104"))]:
            self.m.start()
            end()
            self.assertEqual(self.m.end(), 1)
            self.expect_log(*log)

    def test_does_not_stay_without_a_parent_its_name_a_bus_and_a_folder_for_its_log(self):
        def expect_end(*log):
            self.assertEqual(subprocess.run([DAEMON]).returncode, 1)
            self.expect_log(*log)
        expect_end(*ORPHAN)
        self.m.start()
        expect_end(service("Failed to acquire service name: -17"))
        self.expect(*CALLED)
        self.m.close()
        os.remove(self.m.home + "/bus")
        expect_end(service("Failed to connect to system bus: -2"))
        os.environ["HOME"] = self.m.log_path
        expect_end()

    def test_serves_whatever_stands_at_the_path_of_its_log(self):
        path, other = self.m.log_path, self.m.home + "/other"
        for make, logs in [
                (":", True), (f"mkdir -p {path}/a/b", True), (f"mkfifo {path}", False),
                (f"touch {path}; mount --bind /dev/null {path}", False),
                (f"ln {other} {path}", True), (f"ln -s {other} {path}", True),
                (f"ln -s {self.m.home} {path}", True), (f"ln -s {other}2 {path}", True)]:
            with self.subTest(make):
                self.m.run("sh", "-c", f"""umount {path} 2>/dev/null; rm -rf ~/Brimlet {other}
                    mkdir -p ~/Brimlet/log; umask 027; echo old >{other}; {make}""")
                self.m.start()
                self.assertEqual(self.m.call(REFUSED), FAILED)
                self.assertEqual(self.m.stop(), 0)
                self.assertEqual(not logs or machine.read_log(path), not logs or [UNKNOWN, FAILS])
                self.assertEqual(machine.read(other), "old\n")
                self.assertEqual((os.stat(other).st_mode, os.stat(other).st_nlink), (0o100640, 1))
                self.assertFalse(os.path.exists(other + "2"))
        self.m.run("umount", path)

    def test_gives_commands_three_descriptors_and_the_ignored_signals_of_a_terminal(self):
        foreign = "".join(f" {number}</dev/null" for number in range(3, 23))
        changed = "--ignore-signal=HUP,INT,QUIT,XFSZ,CHLD,PIPE,USR1 --block-signal=TERM,USR2"
        for how, redirections, ignored in [
                (changed, "", 0x1000007), *(("--default-signal", closed, 0) for closed in (
                    "", foreign, "<&-", ">&-", "2>&-", "<&- >&- 2>&-" + foreign))]:
            with self.subTest(how + redirections):
                # Not every shell knows descriptors of two digits.
                start = f"exec env {how} bash -c 'exec {DAEMON} {redirections}'"
                self.m.start(self.m.script(start))
                self.assertEqual(self.m.call(LIST), "0\n1\n2")
                for name, mask in ("SigBlk", 0), ("SigIgn", ignored):
                    shown = self.m.call(f"grep${{IFS}}{name}${{IFS}}/proc/self/status;: --add")
                    # The C library keeps what lies above for itself.
                    if not self.m.is_emulated:  # emulators keep signals for themselves, too
                        self.assertEqual(int(shown.split()[1], 16) & 0x7fffffff, mask, name)
                self.expect("yes;: --add", *LONG)
                self.assertEqual(self.m.stop(), 0)

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

    def test_tears_no_line_at_a_limit_of_the_file_size(self):
        self.m.start(self.m.script(f"trap '' XFSZ; exec {DAEMON}"))
        for room, *log in [(1000, UNKNOWN, FAILS), (30,), (1000, UNKNOWN, FAILS)]:
            limit = os.path.getsize(self.m.log_path) + room, resource.RLIM_INFINITY
            resource.prlimit(self.m.pid, resource.RLIMIT_FSIZE, limit)
            self.expect(REFUSED, FAILED, *log)

    def test_ends_when_a_system_call_fails_that_it_cannot_do_without(self):
        for fault, *log in [
                ("recvmsg:error=EIO", service("Failed to sd_bus_process: -5")),
                ("/poll:error=EIO", service("Failed to sd_bus_wait: -5")),
                ("/^readlink:error=EACCES -P /proc/PARENT/exe", UNREADABLE, ORPHAN[1])]:
            with self.subTest(fault):
                self.m.start()
                with self.m.failing(fault.replace("PARENT", str(self.m.main.pid))):
                    self.m.describe()  # wakes it
                    self.assertEqual(self.m.end(), 1)
                self.expect_log(*log)

    def test_starts_or_not_when_a_system_call_fails(self):
        for fault, *log in [
                ("/^mkdir:error=ENOSPC",), ("socket:error=EMFILE", "connect to system bus: -24"),
                ("connect:error=ECONNREFUSED", "connect to system bus: -111"),
                ("recvmsg:error=EIO", "acquire service name: -5")]:
            with self.subTest(fault):
                self.assertEqual(subprocess.run(self.m.strace(fault, DAEMON)).returncode, 1)
                self.m.await_fault()
                if log:
                    self.expect_log(service("Failed to " + log[0]))
        for fault, *log in [(f"/^open:error=EACCES -P {self.m.log_path}",),
                            ("/^fchmod:error=EPERM", UNKNOWN, FAILS),
                            ("close_range:error=ENOSYS", UNKNOWN, FAILS)]:
            with self.subTest(fault):
                # The tracer is no parent of what it traces: that stays the main program's child.
                command = self.m.strace(fault, "-D", DAEMON, "7</dev/null", "9>&1")
                self.m.start(self.m.script("exec " + " ".join(command)))
                self.m.await_fault()
                self.expect(REFUSED, FAILED, *log)
                self.assertEqual(self.m.call(LIST), "0\n1\n2")
                self.assertEqual(self.m.stop(), 0)

    def test_does_not_grow(self):
        self.m.start()
        used = []
        for _ in range(600):
            self.m.call("echo --add")
            self.m.call(REFUSED)
            used.append(self.m.uses())
        self.assertEqual(used[199][0], used[-1][0])
        self.assertLessEqual(used[-1][1], used[199][1] + 65536)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
