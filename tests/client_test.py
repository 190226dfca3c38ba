"""The client helper: with the running daemon, without it, and on buses that do as they like."""
import os
import socket
import subprocess
import tempfile
import threading
import time
from concurrent import futures

from jeepney import HeaderFields, Message, message_bus, new_error, new_method_return

import machine
from machine import MAIN, NAME, Connection

CLIENT = machine.BUILD + "/examples/call"
LEFT, UNKNOWN = [("Message recipient disconnected from message bus without replying",
                  f"The name {NAME} was not provided by any .service files"),
                 ("Remote peer disconnected", "The name is not activatable")][machine.ON_BROKER]
NOTHING, TIMEOUT = ("replied", "", ""), "Connection timed out"
error = "[ERROR] [BrimletdClient] UTILS: {}".format


def call(line, pid, at=CLIENT, **environment):
    """Whether there was a reply, the result, the error text, and the lines of log."""
    log = tempfile.mkdtemp() + "/log"
    output = subprocess.run([at, log, str(pid), line], env={**os.environ, **environment},
                            stdout=subprocess.PIPE, encoding="utf-8").stdout
    return *output.split("\n")[:-1], *machine.read_log(log)


def failed(text):
    return "failed", "", text, error("Failed to call method, reason: " + text)


def late(text=TIMEOUT):
    warning = "popoen error, please retry orvix, result:, errormessage:" + text
    return *failed(TIMEOUT)[:3], *failed(text)[3:], "[WARNING] [BrimletdClient] UTILS: " + warning


def unknown(status, step="query_sender_creds"):
    return (*NOTHING, error(f"sd_bus_{step} failed: {status}, creds = (nil)"),
            error(f"Failed to msg reply id: -{status} != brimletd pid 7"))


def answer(*of, sender=message_bus.bus_name, make=new_method_return):
    """What turns a call into the bytes of a reply."""
    def reply_to(call):
        reply = make(call, *of)
        reply.header.fields.update({HeaderFields.sender: sender, HeaderFields.destination: ":1.2"})
        return reply.serialise(7)
    return reply_to


def serve(replies):
    """A bus for one client: gives these replies to calls of these members, and says nothing else;
    nothing at all when there are none, or when the client would take descriptors."""
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
                *NOTHING, error(f"Failed to msg reply id: {pid} != brimletd pid {other}"))
            assert os.path.exists(f"{m.home}/{other}")
        assert call("brimletd --exit", pid, MAIN) == failed(LEFT)
        assert m.end() == 0
    assert call("echo --add", pid) == failed(UNKNOWN)
    os.remove(m.home + "/bus")
    assert call("echo --add", pid) == (
        "failed", "", "", error("Failed to connect to system bus: No such file or directory"))


def test_comes_back_in_good_time_whatever_the_bus_and_the_daemon_do(m):
    begin, owner = time.monotonic(), Connection()
    assert call(b"\xe9 --add", 7, **serve({})) == (
        "failed", "", "", error("Failed to sd_bus_message_append"))
    assert time.monotonic() - begin < 5  # nothing was sent
    owner.ask(message_bus.RequestName(NAME))  # and never looks at a call
    asked, seven = "GetConnectionUnixProcessID", answer("u", (7,))
    gone = answer("org.freedesktop.DBus.Error.NameHasNoOwner", "s", ("gone",), make=new_error)
    known = {"Hello": answer("s", (":1.2",)), "brimletd": answer("s", ("fine",), sender=":1.1")}
    rows = [({"LC_ALL": "C.UTF-8", "LANGUAGE": language}, late(text)) for language, text in [
        ("en", TIMEOUT), ("zh_CN", "连接超时"),
        ("de", "Die Wartezeit für die Verbindung ist abgelaufen")]]
    rows += [(serve(replies), expected) for replies, expected in [
        ({}, late()), ({"silent": None}, late()), (known, unknown(110)),
        ({**known, asked: seven}, ("replied", "fine", "")), ({**known, asked: gone}, unknown(6)),
        ({**known, asked: answer("u", (7,), sender=":1.9")}, unknown(74)),
        ({**known, asked: answer("u", (0,))}, unknown(61, "creds_get_pid")),
        ({**known, "brimletd": gone}, failed("gone")),
        ({**known, asked: seven, "brimletd": seven},
         ("failed", "", "", error("sd_bus_message_read failed.")))]]
    begin = time.monotonic()
    with futures.ThreadPoolExecutor(len(rows)) as pool:
        told = list(pool.map(lambda row: call("echo --add", 7, **row[0]), rows))
    assert time.monotonic() - begin < 20  # about ten seconds, of which five are for the reply
    assert told == [expected for _, expected in rows]
