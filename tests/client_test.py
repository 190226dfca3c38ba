"""The client helper: with the running daemon, without it, and on buses that do as they like."""
import os
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from jeepney import HeaderFields, Message, message_bus, new_error, new_method_return

import machine
from machine import MAIN, NAME, Connection, Machine

machine.become_core()
CLIENT = machine.BUILD + "/examples/call"
LEFT, UNKNOWN = [("Message recipient disconnected from message bus without replying",
                  f"The name {NAME} was not provided by any .service files"),
                 ("Remote peer disconnected", "The name is not activatable")][machine.ON_BROKER]
NOTHING, TIMEOUT = ("replied", "", ""), "Connection timed out"
error = "[ERROR] [BrimletdClient] UTILS: {}".format


def failed(text):
    return error("Failed to call method, reason: " + text)


def late(text=TIMEOUT):
    warning = "popoen error, please retry orvix, result:, errormessage:" + text
    return ("failed", "", TIMEOUT), failed(text), "[WARNING] [BrimletdClient] UTILS: " + warning


def unknown(status, step="query_sender_creds"):
    return (NOTHING, error(f"sd_bus_{step} failed: {status}, creds = (nil)"),
            error(f"Failed to msg reply id: -{status} != brimletd pid 7"))


def start(line, pid, at=CLIENT, **environment):
    """Makes a call, which tells its failures in the file `log`."""
    log = tempfile.mkdtemp() + "/log"
    call = subprocess.Popen([at, log, str(pid), line], env={**os.environ, **environment},
                            stdout=subprocess.PIPE)
    call.log = log
    return call


def answer(*of, sender=message_bus.bus_name, make=new_method_return):
    """What turns a call into the bytes of a reply."""
    def reply_to(call):
        reply = make(call, *of)
        reply.header.fields.update({HeaderFields.sender: sender, HeaderFields.destination: ":1.2"})
        return reply.serialise(7)
    return reply_to


def serve(replies):
    """A bus for one client: gives these replies to calls of these members, and says nothing else;
    nothing at all when there are none. Returns its address."""
    def run():
        bus = server.accept()[0]
        while heard := bus.recv(65536):
            if replies and b"DATA" in heard:
                bus.sendall(b"DATA\r\nOK " + 32 * b"0" + b"\r\n")
            for member, reply_to in replies.items():
                if member.encode() + b"\0" in heard:
                    bus.sendall(reply_to(Message.from_buffer(heard.split(b"BEGIN\r\n")[-1])))
    path = tempfile.mkdtemp() + "/bus"
    server = socket.create_server(path, family=socket.AF_UNIX)
    threading.Thread(target=run, daemon=True).start()
    return "unix:path=" + path


class ClientTest(unittest.TestCase):
    def setUp(self):
        self.m = Machine()
        self.addCleanup(self.m.close)

    def expect(self, call, reply, *log):
        """`reply` is the whole output: whether there was one, the result, the error text."""
        self.assertEqual(call.communicate()[0].decode(), "{}\n{}\n{}\n".format(*reply), call.args)
        self.assertEqual(machine.read_log(call.log), list(log), call.args)

    def test_gives_back_what_the_daemon_replies(self):
        pid, not_utf8 = self.m.start(), self.m.script(r"printf '\351\n'") + " --add"
        with machine.standing_at(MAIN, CLIENT):
            for line, reply, *log in [
                    ("true --add", NOTHING),
                    ("echo --virt a orvix0", ("replied", "--virt a orvix0", "")),
                    (not_utf8, ("failed", "", "Invalid argument"), failed("Invalid argument"))]:
                self.expect(start(line, pid, MAIN), reply, *log)
            self.expect(start("echo --add", pid), ("replied", "auth failed", ""))
            for other in (0, -1, self.m.main.pid):
                self.expect(start(f"touch${{IFS}}$HOME/{other};: --add", other, MAIN), NOTHING,
                            error(f"Failed to msg reply id: {pid} != brimletd pid {other}"))
                self.assertTrue(os.path.exists(f"{self.m.home}/{other}"))
            self.expect(start("brimletd --exit", pid, MAIN), ("failed", "", LEFT), failed(LEFT))
            self.assertEqual(self.m.end(), 0)
            self.expect(start("echo --add", pid), ("failed", "", UNKNOWN), failed(UNKNOWN))
        os.remove(self.m.home + "/bus")
        self.expect(start("echo --add", pid), ("failed", "", ""),
                    error("Failed to connect to system bus: No such file or directory"))

    def test_comes_back_in_good_time_whatever_the_bus_and_the_daemon_do(self):
        begin, calls = time.monotonic(), []
        not_utf8 = start(b"\xe9 --add", 7, DBUS_SYSTEM_BUS_ADDRESS=serve({}))
        self.expect(not_utf8, ("failed", "", ""), error("Failed to sd_bus_message_append"))
        self.assertLess(time.monotonic() - begin, 5)  # nothing was sent
        owner = Connection()  # never looks at a call
        owner.ask(message_bus.RequestName(NAME))
        for language, text in (("en", TIMEOUT), ("zh_CN", "连接超时"),
                               ("de", "Die Wartezeit für die Verbindung ist abgelaufen")):
            call = start("echo --add", 7, LC_ALL="C.UTF-8", LANGUAGE=language)
            calls.append((call, *late(text)))
        asked, seven = "GetConnectionUnixProcessID", answer("u", (7,))
        gone = answer("org.freedesktop.DBus.Error.NameHasNoOwner", "s", ("gone",), make=new_error)
        known = {"Hello": answer("s", (":1.2",)), "brimletd": answer("s", ("fine",), sender=":1.1")}
        for replies, *expected in [
                ({}, *late()), ({"silent": None}, *late()), (known, *unknown(110)),
                ({**known, asked: seven}, ("replied", "fine", "")),
                ({**known, asked: gone}, *unknown(6)),
                ({**known, asked: answer("u", (7,), sender=":1.9")}, *unknown(74)),
                ({**known, asked: answer("u", (0,))}, *unknown(61, "creds_get_pid")),
                ({**known, "brimletd": gone}, ("failed", "", "gone"), failed("gone")),
                ({**known, asked: seven, "brimletd": seven}, ("failed", "", ""),
                 error("sd_bus_message_read failed."))]:
            call = start("echo --add", 7, DBUS_SYSTEM_BUS_ADDRESS=serve(replies))
            calls.append((call, *expected))
        # Within about ten seconds, of which five are for the reply.
        begin = time.monotonic()
        for call, *expected in calls:
            self.expect(call, *expected)
        self.assertLess(time.monotonic() - begin, 20)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
