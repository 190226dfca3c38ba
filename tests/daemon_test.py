"""The daemon: what a call is answered, what runs and what is logged; who is admitted; how it starts
and ends. The client helper: with the daemon, without it, and on buses that do as they like."""
import codecs
import contextlib
import functools
import os
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time
from concurrent import futures

from jeepney import HeaderFields, Message, message_bus, new_error, new_method_return

import machine
from machine import CORE, DAEMON, MAIN, NAME, PATH, Connection

FAILED, CALLED = "ExecutePopen failed!", ("echo --add", "--add")
unescape = functools.partial(codecs.decode, encoding="unicode_escape")
CASE = re.compile(r"(?:#.*\n)*(?:! (.+)\n)?([>$]) (.*)\n< ?(.*)((?:\n\[.*)*)\n?")
service, auth, method = (
    functools.partial("[ERROR] [{}] ORVIX_BRIMLETD: {}".format, unit)
    for unit in ("BusService", "CallerAuth", "CommandMethod"))
FAILS = method("PopenProcess fail r:-1 ")
LONG = [FAILED, method("lenBuf >= MAX_BUF_SIZE or < 1!"), FAILS]
ORPHAN = [auth(f"CheckParent path:{CORE} failed!"), service("Failed to CheckParent, r:-1")]
CLIENT = machine.BUILD + "/examples/call"
NOTHING, TIMEOUT = ("replied", "", ""), "Connection timed out"
told = "[ERROR] [BrimletdClient] UTILS: {}".format


def expect_log(m, *log):
    assert [re.sub(r"/proc/\d+/", "/proc/ID/", line) for line in m.log()] == list(log)


def expect(m, line, reply, *log):
    assert m.call(line) == reply
    expect_log(m, *log)


def test_answers_with_the_output_of_what_it_allows_and_runs_nothing_else(m):
    m.start()
    descriptors = m.uses()[0]
    for case in machine.read(machine.TREE + "/tests/data/calls.txt").split("\n\n")[1:]:
        fault, sign, line, reply, log = CASE.fullmatch(case).groups("")
        line = m.script(line) + " --add" if sign == "$" else unescape(line)
        fault = fault.replace("CALLER", str(os.getpid()))
        with m.failing(fault) if fault else contextlib.nullcontext():
            expect(m, line, unescape(reply), *unescape(log).splitlines()[1:])
        assert m.uses()[0] == descriptors, case
    assert os.path.exists(m.home + "/ran")
    most, zeros = "w" * (131071 - len("echo --btup ")), r"head -c %d /dev/zero | tr '\0' x"
    for line, reply, *log in [
            # As much as the shell takes for one argument. An emulator's fails in silence.
            (": --btup " + most, ""), ("echo --btup " + most, *LONG),
            ("echo --btup w" + most, *(("",) if m.is_emulated else (FAILED, FAILS))),
            ("x --add" + " " * 20_000_000, FAILED, FAILS),
            # A zero byte hides the rest of its piece of 1023 bytes, the second one here.
            (zeros % 2000 + r"; printf '\0%0100d\n'", "x" * 2000 + "0" * 55),
            (zeros % 102399, "x" * 102398)]:
        expect(m, m.script(line) + " --add" if "head" in line else line, reply, *log)
    expect(m, "brimletd --exit", "error: org.freedesktop.DBus.Error.NoReply")
    assert m.end() == 0


def test_is_what_its_description_says_and_sleeps_while_nobody_calls(m):
    m.start()
    seen, told = (re.findall(r"<\w.*>", text.partition(f'"{NAME}"')[2].partition("</interface")[0])
                  for text in (m.describe(), machine.read(f"{machine.TREE}/packaging/{NAME}.xml")))
    assert seen == told
    time.sleep(3)
    spent = machine.read(f"/proc/{m.pid}/stat").split()[13:15]  # in hundredths of a second
    assert sum(map(int, spent)) < 150


def test_admits_two_paths_and_no_other(m):
    m.start()
    call = ["call", NAME, PATH, NAME, "brimletd", "s", "echo --add"]
    folder, busctl = os.path.dirname(MAIN), shutil.which("busctl")
    for path in (CORE, MAIN):
        with machine.standing_at(path, busctl):
            assert m.run(path, *call) == 's "--add"\n', path
    expect(m, *CALLED)
    call[-1] = "brimletd --exit"
    forged = m.home + "/\x1b[1m\x9f\u2028\u2029\xe9\\\n\r\t\x7f"
    shown = m.home + r"/\x1b[1m\xc2\x9f\xe2\x80\xa8\xe2\x80\xa9" + "\xe9" + r"\\n\r\t\x7f"
    copies = [MAIN + "2", folder + "/brimlet", folder + "/Brimle", m.home + "/OrvixCore"]
    for path in (*copies, forged):
        shutil.copy(busctl, path)
    os.rename(CORE, CORE + "2")
    os.symlink(copies[-1], CORE)
    for path, seen in [*zip(copies, copies), (forged, shown), (CORE, copies[-1])]:
        assert m.run(path, *call) == 's "auth failed"\n', path
        expect_log(m, auth(f"CheckAuth path:{seen} failed!"), method("CheckAuth failed: -1"), FAILS)
    os.rename(CORE + "2", CORE)
    expect(m, *CALLED)


def test_ends_with_its_parent_its_bus_or_a_system_call_that_it_cannot_do_without(m, monkeypatch):
    def fail(fault):
        with m.failing(fault):
            m.describe()  # wakes it
    monkeypatch.setenv("LSAN_OPTIONS", "detect_leaks=0")  # who is traced cannot look for its leaks
    for end, *log in [
            (lambda: fail("recvmsg:error=EIO"), service("Failed to sd_bus_process: -5")),
            (lambda: fail("/poll:error=EIO"), service("Failed to sd_bus_wait: -5")),
            (lambda: fail(f"/^readlink:error=EACCES -P /proc/{m.main.pid}/exe"),
             auth("GetSenderPath readlink failed , path =/proc/ID/exe"), ORPHAN[1]),
            (lambda: (m.main.kill(), m.main.wait()), *ORPHAN),
            (m.bus.kill, service("Failed to sd_bus_process: -104"))]:
        m.start()
        end()
        assert m.end() == 1
        expect_log(m, *log)


def test_does_not_start_without_a_parent_its_name_a_bus_and_a_folder_for_its_log(m):
    def expect_end(command, *log):
        assert subprocess.run(command).returncode == 1
        expect_log(m, *log)
    expect_end([DAEMON], *ORPHAN)
    for fault, failure in [("socket:error=EMFILE", "connect to system bus: -24"),
                           ("connect:error=ECONNREFUSED", "connect to system bus: -111"),
                           ("recvmsg:error=EIO", "acquire service name: -5")]:
        expect_end(m.strace(fault, DAEMON), service("Failed to " + failure))
    expect_end(m.strace("/^open:error=ENOENT -P /dev/null", "sh", "-c", f"exec {DAEMON} <&-"))
    m.start()
    os.makedirs("/run/dbus")
    os.symlink(m.home + "/bus", "/run/dbus/system_bus_socket")  # where it is by default
    expect_end(["env", "-u", "DBUS_SYSTEM_BUS_ADDRESS", DAEMON],
               service("Failed to acquire service name: -17"))
    expect(m, *CALLED)
    m.close()
    os.remove(m.home + "/bus")
    expect_end([DAEMON], service("Failed to connect to system bus: -2"))
    os.environ["HOME"] = m.home + "/Brimlet"
    expect_end(m.strace("/^mkdir:error=ENOSPC", DAEMON))
    assert "connect(" not in machine.read(m.home + "/trace")


def test_takes_no_descriptors_and_gives_commands_three_and_the_ignored_signals_of_a_terminal(m):
    foreign = "".join(f" {number}</dev/null" for number in range(3, 23))
    changed = "--ignore-signal=HUP,INT,QUIT,XFSZ,CHLD,PIPE,USR1 --block-signal=TERM,USR2"
    # The tracer is no parent of what it traces: that stays the main program's child.
    old_kernel = " ".join(m.strace("close_range:error=ENOSYS", "-D", DAEMON))
    for how, command, ignored in [
            (changed, DAEMON, 0x1000007), ("--default-signal", old_kernel + foreign, 0),
            *(("--default-signal", DAEMON + closed, 0) for closed in (
                "", foreign, " <&-", " >&-", " 2>&-", " <&- >&- 2>&-" + foreign))]:
        # Not every shell knows descriptors of two digits.
        m.start(m.script(f"exec env {how} bash -c 'exec {command}'"))
        assert m.call("ls${IFS}/proc/$$/fd;: --add") == "0\n1\n2", command
        for name, mask in ("SigBlk", 0), ("SigIgn", ignored):
            shown = m.call(f"grep${{IFS}}{name}${{IFS}}/proc/self/status;: --add")
            # The C library keeps what lies above for itself, and emulators keep more.
            assert m.is_emulated or int(shown.split()[1], 16) & 0x7fffffff == mask, command
        expect(m, "yes;: --add", *LONG)
        assert m.stop() == 0
    trace = machine.read(m.home + "/trace")
    assert "BEGIN" in trace and "NEGOTIATE_UNIX_FD" not in trace
    assert m.is_emulated or "(INJECTED)" in trace  # an emulator has no such call


def call(line, pid, at=CLIENT, **environment):
    """Whether there was a reply, the result, the error text, and the lines of log."""
    log = tempfile.mkdtemp() + "/log"
    output = subprocess.run([at, log, str(pid), line], env={**os.environ, **environment},
                            stdout=subprocess.PIPE, encoding="utf-8").stdout
    return *output.split("\n")[:-1], *machine.read_log(log)


def failed(text):
    return "failed", "", text, told("Failed to call method, reason: " + text)


def late(text=TIMEOUT):
    warning = "popoen error, please retry orvix, result:, errormessage:" + text
    return *failed(TIMEOUT)[:3], *failed(text)[3:], "[WARNING] [BrimletdClient] UTILS: " + warning


def unknown(status, step="query_sender_creds"):
    return (*NOTHING, told(f"sd_bus_{step} failed: {status}, creds = (nil)"),
            told(f"Failed to msg reply id: -{status} != brimletd pid 7"))


def answer(*of, sender=message_bus.bus_name, make=new_method_return):
    """What turns a call into the bytes of a reply."""
    def reply_to(call):
        reply = make(call, *of)
        reply.header.fields.update({HeaderFields.sender: sender, HeaderFields.destination: ":1.2"})
        return reply.serialise(7)
    return reply_to


def serve(replies):
    """A bus for one client: lets it in where there are replies, gives these to calls of these
    members, and says nothing else; nothing more when the client would take descriptors."""
    def run():
        bus = server.accept()[0]
        while (heard := bus.recv(65536)) and b"UNIX_FD" not in heard:
            if replies and b"DATA" in heard:
                bus.sendall(b"DATA\r\nOK " + 32 * b"0" + b"\r\n")
            for member, reply_to in replies.items():
                if member.encode() + b"\0" in heard:
                    bus.sendall(reply_to(Message.from_buffer(heard.split(b"BEGIN\r\n")[-1])))
    path = tempfile.mkdtemp() + "/bus"
    server = socket.create_server(path, family=socket.AF_UNIX)
    threading.Thread(target=run, daemon=True).start()
    return {"DBUS_SYSTEM_BUS_ADDRESS": "unix:path=" + path}


def test_gives_back_what_the_daemon_replies(m):
    pid, not_utf8 = m.start(), m.script(r"printf '\351\n'") + " --add"
    with machine.standing_at(MAIN, CLIENT):
        for line, *expected in [("true --add", *NOTHING), (not_utf8, *failed("Invalid argument")),
                                ("echo --virt a orvix0", "replied", "--virt a orvix0", "")]:
            assert call(line, pid, MAIN) == (*expected,)
        assert call("echo --add", pid) == ("replied", "auth failed", "")
        for other in (0, -1, m.main.pid):
            assert call(f"touch${{IFS}}$HOME/{other};: --add", other, MAIN) == (
                *NOTHING, told(f"Failed to msg reply id: {pid} != brimletd pid {other}"))
            assert os.path.exists(f"{m.home}/{other}")
        for line in ("brimletd --exit", "echo --add"):
            left = call(line, pid, MAIN)
            assert left[2] and left == failed(left[2])  # which each bus says in its own words
        assert m.end() == 0
    os.remove(m.home + "/bus")
    assert call("echo --add", pid) == (
        "failed", "", "", told("Failed to connect to system bus: No such file or directory"))


def test_comes_back_in_good_time_whatever_the_bus_and_the_daemon_do(m):
    owner = Connection()
    assert call(b"\xe9 --add", 7, **serve({})) == (
        "failed", "", "", told("Failed to sd_bus_message_append"))
    owner.ask(message_bus.RequestName(NAME))  # and never looks at a call
    asked, seven = "GetConnectionUnixProcessID", answer("u", (7,))
    gone = answer("org.freedesktop.DBus.Error.NameHasNoOwner", "s", ("gone",), make=new_error)
    known = {"Hello": answer("s", (":1.2",)), "brimletd": answer("s", ("fine",), sender=":1.1")}
    rows = [({"LC_ALL": "C.UTF-8", "LANGUAGE": language}, late(text)) for language, text in [
        ("zh_CN", "连接超时"), ("de", "Die Wartezeit für die Verbindung ist abgelaufen")]]
    rows += [(serve(replies), expected) for replies, expected in [
        ({}, late()), ({"silent": None}, late()), (known, unknown(110)),
        ({**known, asked: seven}, ("replied", "fine", "")), ({**known, asked: gone}, unknown(6)),
        ({**known, asked: answer("u", (7,), sender=":1.9")}, unknown(74)),
        ({**known, asked: answer("u", (0,))}, unknown(61, "creds_get_pid")),
        ({**known, "brimletd": gone}, failed("gone")),
        ({**known, asked: seven, "brimletd": seven},
         ("failed", "", "", told("sd_bus_message_read failed.")))]]
    begin = time.monotonic()
    with futures.ThreadPoolExecutor(len(rows)) as pool:
        seen = list(pool.map(lambda row: call("echo --add", 7, **row[0]), rows))
    assert time.monotonic() - begin < 20  # about ten seconds, of which five are for the reply
    assert seen == [expected for _, expected in rows]
