"""The client helper: with the running daemon, without it, and on buses that do as they like."""
import os
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

import machine
from machine import MAIN, NAME, Machine

machine.become_core()
from wire import BUS, ERROR, OWN, RETURN, Wire, message

CLIENT = machine.BUILD + "/tests/call"
LEFT, UNKNOWN = [("Message recipient disconnected from message bus without replying",
                  f"The name {NAME} was not provided by any .service files"),
                 ("Remote peer disconnected", "The name is not activatable")][machine.ON_BROKER]
error = "[ERROR] [BrimletdClient] UTILS: {}".format
failed = error("Failed to call method, reason: {}").format
LATE = "[WARNING] [BrimletdClient] UTILS: popoen error, please retry orvix, result:, errormessage:"
NOTHING = ("replied", "", "")


def start(line, pid, at=MAIN, **environment):
    """Makes a call, which tells its failures in the file `log`."""
    log = tempfile.mkdtemp() + "/log"
    call = subprocess.Popen([at, log, str(pid), line], env={**os.environ, **environment},
                            stdout=subprocess.PIPE)
    call.log = log
    return call


def serve(server, replies):
    """A bus for one client: gives these replies to calls of these members, and says nothing else;
    nothing at all when there are none."""
    bus = server.accept()[0]
    while heard := bus.recv(65536):
        for member, reply in replies.items():
            if member.encode() + b"\0" in heard:
                number = struct.unpack_from("<I", heard.split(b"BEGIN\r\n")[-1], 8)[0]
                sender = ":1.1" if member == "brimletd" else BUS["destination"]
                bus.sendall(message(**{"kind": RETURN, "reply": number, "destination": ":1.2",
                                       "sender": sender, **reply}))
        if replies and b"DATA" in heard:
            bus.sendall(b"DATA\r\nOK " + b"0" * 32 + b"\r\n")


class ClientTest(unittest.TestCase):
    def setUp(self):
        self.m = Machine()
        self.addCleanup(self.m.close)

    def expect(self, call, reply, *log):
        """`reply` is the whole output: whether there was one, the result, the error text."""
        with self.subTest(call.args[3]):
            self.assertEqual(call.communicate()[0].decode(), "{}\n{}\n{}\n".format(*reply))
            self.assertEqual(machine.read_log(call.log), list(log))

    def test_gives_back_what_the_daemon_replies(self):
        pid, not_utf8 = self.m.start(), self.m.script(r"printf '\351\n'") + " --add"
        with machine.standing_at(MAIN, CLIENT):
            for line, reply, *log in [
                    ("true --add", NOTHING),
                    ("echo --virt a orvix0", ("replied", "--virt a orvix0", "")),
                    ("echo --add now", ("replied", "ExecutePopen failed!", "")),
                    (not_utf8, ("failed", "", "Invalid argument"), failed("Invalid argument"))]:
                self.expect(start(line, pid), reply, *log)
            self.expect(start("echo --add", pid, CLIENT), ("replied", "auth failed", ""))
            for other in (0, -1, self.m.main.pid):
                self.expect(start(f"touch${{IFS}}$HOME/ran{other};: --add", other), NOTHING,
                            error(f"Failed to msg reply id: {pid} != brimletd pid {other}"))
                self.assertTrue(os.path.exists(f"{self.m.home}/ran{other}"))
            self.expect(start("brimletd --exit", pid), ("failed", "", LEFT), failed(LEFT))
            self.assertEqual(self.m.end(), 0)
            self.expect(start("echo --add", pid), ("failed", "", UNKNOWN), failed(UNKNOWN))
        os.remove(self.m.home + "/bus")
        self.expect(start("echo --add", pid, CLIENT), ("failed", "", ""),
                    error("Failed to connect to system bus: No such file or directory"))

    def test_comes_back_in_good_time_whatever_the_bus_and_the_daemon_do(self):
        # Within about ten seconds, of which five are for the reply; at once where nothing is sent.
        owner = Wire()  # never looks at a call
        owner.wait(**OWN)
        number = {"signature": "u", "body": struct.pack("<I", 7)}
        gone = {"kind": ERROR, "error": "org.freedesktop.DBus.Error.NameHasNoOwner", "body": "gone"}
        known = {"Hello": {"body": ":1.2"}, "brimletd": {"body": "fine"}}

        def told(**answer):
            return {**known, "GetConnectionUnixProcessID": {**number, **answer}}

        def late(text="Connection timed out"):
            return ("failed", "", "Connection timed out"), failed(text), LATE + text

        def unknown(status, step="query_sender_creds"):
            return (NOTHING, error(f"sd_bus_{step} failed: {status}, creds = (nil)"),
                    error(f"Failed to msg reply id: -{status} != brimletd pid 7"))
        calls = []
        for replies, language, *expected in [
                (None, "C", *late()), (None, "zh_CN", *late("连接超时")),
                (None, "de_DE", *late("Die Wartezeit für die Verbindung ist abgelaufen")),
                ({}, "C", *late()), ({"silent": {}}, "C", *late()), (known, "C", *unknown(110)),
                (told(), "C", ("replied", "fine", "")), (told(**gone), "C", *unknown(6)),
                (told(sender=":1.9"), "C", *unknown(74)),
                (told(body=bytes(4)), "C", *unknown(61, "creds_get_pid")),
                ({**known, "brimletd": gone}, "C", ("failed", "", "gone"), failed("gone")),
                ({**told(), "brimletd": number}, "C", ("failed", "", ""),
                 error("sd_bus_message_read failed.")),
                ({}, "C", ("failed", "", ""), error("Failed to sd_bus_message_append"))]:
            environment = {"LC_ALL": language, "LOCPATH": self.m.home}
            if language != "C":
                self.m.run("localedef", "-i", language, "-f", "UTF-8", f"{self.m.home}/{language}")
            if replies is not None:
                path = tempfile.mkdtemp() + "/bus"
                server = socket.create_server(path, family=socket.AF_UNIX)
                threading.Thread(target=serve, args=(server, replies), daemon=True).start()
                environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + path
            line = b"\xe9 --add" if "append" in str(expected) else "echo --add"
            calls.append((start(line, 7, CLIENT, **environment), expected))
        begin = time.monotonic()
        call, expected = calls.pop()
        self.expect(call, *expected)
        self.assertLess(time.monotonic() - begin, 5)
        for call, expected in calls:
            self.expect(call, *expected)
        self.assertLess(time.monotonic() - begin, 20)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
