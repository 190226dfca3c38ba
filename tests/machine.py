"""A machine of its own, for root and for an ordinary user: a mount and process namespace with the
application installed, a bus with the system bus's configuration and the packaged policy, the main
program, and the daemon as its child.

    become_core()               # first of all: the program starts once more, on that machine
    machine = Machine()
    machine.start()
    machine.call("echo --add")  # "--add": the interpreter runs from the casting engine's path

All files and processes go with the program. The environment says what is tried: BRIMLET_BUILD, the
build folder; BRIMLET_TESTED_DAEMON, another daemon; BRIMLET_TEST_BUS, dbus-daemon or dbus-broker,
which may lie in BRIMLET_BROKER_DIR: where it is missing, the program ends with status 77."""
import contextlib
import os
import re
import socket
import subprocess
import sys
import tempfile
import time

from jeepney import (DBusAddress, HeaderFields, MessageFlag, message_bus, new_method_call,
                     new_signal)
from jeepney.io.blocking import DBusConnection, prep_socket

CORE = "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore"
MAIN = "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet"
DAEMON, NAME, PATH = "/opt/brimletd", "com.tolvane.brimlet", "/com/tolvane/brimlet"
MEMBERS = 64000  # the group that may call the daemon, on this machine
TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.environ.get("BRIMLET_BUILD", "build/release")
JOURNAL = "/run/systemd/journal/socket"
SETUP = f"""set -e
umask 022
exec 9<"{TREE}"  # which the new file systems may hide
if [ "$BRIMLET_TEST_BUS" = dbus-broker ]; then
  [ -z "$BRIMLET_BROKER_DIR" ] ||
    mount -t overlay -o "lowerdir=$BRIMLET_BROKER_DIR:/usr/bin" none /usr/bin || true
  command -v dbus-broker-launch >/dev/null || {{ echo "not run: no dbus-broker"; exit 77; }}
fi
mount -t tmpfs -o mode=0755 none /opt
mount -t tmpfs -o mode=0755 none /run
# Dbus-broker does not start without a journal, and stands still when nobody reads it.
(umask 0 && exec systemd-socket-activate --datagram --inetd --listen={JOURNAL} sh -c 'cat >&2') \
  2>/dev/null &
timeout 60 sh -c 'until [ -S {JOURNAL} ]; do sleep 0.01; done'
[ -e "{TREE}" ] || {{ mkdir -p "{TREE}"; mount -c --rbind /proc/self/fd/9 "{TREE}"; }}
install -D "${{BRIMLET_TESTED_DAEMON:-{BUILD}/bin/brimletd}}" {DAEMON}
install -D "{BUILD}/examples/main_program" {MAIN}
install -D /usr/bin/python3 {CORE}
mount -t tmpfs -o mode=0755 none /etc/dbus-1/system.d
cp "{BUILD}/packaging/{NAME}.conf" /etc/dbus-1/system.d/
# The first group of a name is the one that counts.
sed -n 's/.*<policy group="\\(.*\\)">.*/\\1:x:{MEMBERS}:/p' /etc/dbus-1/system.d/*.conf |
  cat - /etc/group >/opt/group
mount --bind /opt/group /etc/group
# Where there is no other user, the bus cannot become one.
if ! setpriv --reuid messagebus --clear-groups true 2>/dev/null; then
  sed '/<user>/d' /usr/share/dbus-1/system.conf >/opt/system.conf
  mount --bind /opt/system.conf /usr/share/dbus-1/system.conf
fi
mkdir -m 1777 /opt/tmp
export TMPDIR=/opt/tmp PYTHONHOME=/usr PYTHONDONTWRITEBYTECODE=1
exec {CORE} "$@" 9<&-
"""


def become_core():
    """Goes on, with the same arguments, as the casting engine on a machine of its own."""
    if os.readlink("/proc/self/exe") != CORE:
        unshare = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        if subprocess.run([*unshare, "true"], stderr=subprocess.DEVNULL).returncode != 0:
            unshare.append("--map-root-user")  # an ordinary user, and root in some containers
        os.execvp("unshare", [*unshare, "sh", "-c", SETUP, "sh", *sys.argv])


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def read_log(path):
    return [re.sub(r"^\[[\d :.-]{24}\] (\[\w+\] \[\w+):\d+\] ", r"\1] ", line)
            for line in read(path).split("\n")[:-1]]


def has_other_users():
    return read("/proc/self/uid_map").split()[2] != "1"


def eventually(condition):
    """Waits until `condition()` is true, and returns what it gave; fails after two minutes."""
    end = time.monotonic() + 120
    while not (result := condition()):
        assert time.monotonic() < end, "what was waited for does not come"
        time.sleep(0.005)
    return result


@contextlib.contextmanager
def standing_at(path, program):
    """Has a file stand at the path of an installed one."""
    subprocess.run(["mount", "--bind", program, path], check=True)
    yield
    subprocess.run(["umount", "--lazy", path], check=True)


def request(line):
    return new_method_call(DBusAddress(PATH, NAME, NAME), "brimletd", "s", (line,))


class Connection(DBusConnection):
    def __init__(self):
        path = os.environ["DBUS_SYSTEM_BUS_ADDRESS"].removeprefix("unix:path=")
        super().__init__(prep_socket(path, timeout=None))

    def ask(self, message):
        """The reply, or "error: " and the error's name."""
        reply = self.send_and_get_reply(message, timeout=100)
        error = reply.header.fields.get(HeaderFields.error_name)
        return f"error: {error}" if error else reply.body[0] if reply.body else None

    def post(self, line="echo --add"):
        message = request(line)
        message.header.flags = MessageFlag.no_reply_expected
        self.send(message)

    def signal(self, names, text=""):
        for name in names:
            message = new_signal(DBusAddress("/a", interface="a.b"), "c", "s", (text,))
            message.header.fields[HeaderFields.destination] = name
            self.send(message)

    def has_owner(self, name):
        """Also waits until the bus has seen what was sent before."""
        return self.ask(message_bus.NameHasOwner(name))


class Machine:
    def __init__(self):
        self.home, self.main, self.taken = tempfile.mkdtemp(), None, 0
        os.chmod(self.home, 0o711)  # other users come to the bus and to nothing else
        self.log_path, path = self.home + "/Brimlet/log/brimletd.log", self.home + "/bus"
        os.environ.update(HOME=self.home, DBUS_SYSTEM_BUS_ADDRESS="unix:path=" + path)
        bus = ["dbus-daemon", "--system", "--nofork", "--nopidfile", "--address=systemd:"]
        if os.environ.get("BRIMLET_TEST_BUS") == "dbus-broker":
            bus = ["dbus-broker-launch", "--scope=system"]
        with socket.create_server(path, family=socket.AF_UNIX) as listening:
            start = 'LISTEN_FDS=1 LISTEN_PID=$$ exec "$@" 3<&0 </dev/null'
            self.bus = subprocess.Popen(["sh", "-c", start, "sh", *bus], stdin=listening,
                                        stderr=subprocess.DEVNULL)
        os.chmod(path, 0o777)
        self.connection = Connection()

    def start(self, program=DAEMON):
        """Has the main program start the daemon, or what becomes it; returns its process id."""
        self.main = subprocess.Popen([MAIN, program], stdin=subprocess.PIPE, text=True,
                                     stdout=subprocess.PIPE)
        started, ready = self.main.stdout.readline(), self.main.stdout.readline()
        assert ready == "ready\n", started + ready
        self.pid = int(started.split()[-1])
        self.is_emulated = "qemu" in os.readlink(f"/proc/{self.pid}/exe")
        return self.pid

    def call(self, line):
        return self.connection.ask(request(line))

    def describe(self):
        """The daemon's description of itself; None when the bus is gone."""
        introspectable = DBusAddress(PATH, NAME, "org.freedesktop.DBus.Introspectable")
        with contextlib.suppress(OSError):
            return self.connection.ask(new_method_call(introspectable, "Introspect"))

    def log(self):
        """The lines logged since the last call, without times and line numbers."""
        self.describe()  # it logs a failure after its reply, and does this when it is done
        lines = read_log(self.log_path)[self.taken:]
        self.taken += len(lines)
        return lines

    @staticmethod
    def run(*command):
        return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False).stdout

    def script(self, body):
        """The path of a shell script, the same each time."""
        with open(self.home + "/script", "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + body + "\n")
        os.chmod(file.name, 0o755)
        return file.name

    def uses(self):
        """How many descriptors are open, and how many KiB resident: 0 where not all is its own."""
        whole, resident = re.findall(r"(?:VmSize|VmRSS):\s+(\d+)", read(f"/proc/{self.pid}/status"))
        own = int(whole) < 1 << 25 and not self.is_emulated
        return len(os.listdir(f"/proc/{self.pid}/fd")), own * int(resident)

    def strace(self, fault, *words):
        """A command that has system calls fail: "read:error=EIO -P /a/file"."""
        return ["strace", "-E", "LSAN_OPTIONS=detect_leaks=0", "-o", self.home + "/trace",
                *f"-e inject={fault}".split(), *words]

    @contextlib.contextmanager
    def failing(self, fault):
        """Has system calls of the running daemon fail, and waits until one has."""
        tracer = subprocess.Popen(self.strace(fault, "-p", str(self.pid)), stderr=subprocess.PIPE)
        assert any(said.endswith(b"attached\n") for said in tracer.stderr), "tracing is forbidden"
        yield
        eventually(lambda: "(INJECTED)" in read(self.home + "/trace"))
        tracer.terminate()
        tracer.communicate()

    def stop(self):
        """Has the main program stop the daemon and end; returns the daemon's exit status."""
        self.main.stdin.close()
        return self.main.wait(120)

    def end(self):
        """The exit status of the daemon, which ends by itself."""
        eventually(lambda: read(f"/proc/{self.pid}/stat").split()[2] == "Z")
        if self.main.poll() is None:
            return self.stop()
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def close(self):
        """Ends what runs; fails when the daemon does not end as it should."""
        status = self.stop() if self.main and self.main.poll() is None else 0
        self.bus.kill()
        self.bus.wait()
        assert status == 0, f"the daemon ends with status {status}"
