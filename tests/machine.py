"""A machine of its own for who needs the running daemon: a mount and process namespace in which the
application is installed, a bus with the system bus's own configuration and the packaged policy, the
main program, and the daemon as its child. Works as root and as an ordinary user.

    become_core()               # first of all: the program starts once more, on that machine
    with contextlib.closing(Machine()) as machine:
        machine.start()
        machine.call("echo --add")      # "--add"

The interpreter then runs from the casting engine's installed path: it is an admitted caller. All
files that the machine makes lie in a file system that nobody else sees; it goes, and every process
ends, when the program does. The environment says what is tried:

BRIMLET_BUILD          the build folder (build/release)
BRIMLET_TESTED_DAEMON  another daemon: an installed one, or a script that starts it in an emulator
BRIMLET_TESTED_MAIN    another main program
BRIMLET_TESTED_POLICY  another bus policy; empty: what the machine has installed
BRIMLET_TEST_BUS       dbus-daemon, or dbus-broker, unpacked in BRIMLET_BROKER_DIR or installed;
                       the program exits with status 77 where that is missing
"""
import contextlib
import os
import re
import resource
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import dbus
import dbus.bus

CORE = "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore"
MAIN = "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet"
DAEMON = "/opt/brimletd"
NAME, PATH = "com.tolvane.brimlet", "/com/tolvane/brimlet"
MEMBERS = 64000  # the group that may call the daemon, on this machine
ON_BROKER = os.environ.get("BRIMLET_TEST_BUS") == "dbus-broker"
SKIPPED = 77
TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# What the new file systems may hide is opened before.
SETUP = f"""set -e
umask 022
build=${{BRIMLET_BUILD:-build/release}}
policy=${{BRIMLET_TESTED_POLICY-$build/packaging/{NAME}.conf}}
exec 3<"${{BRIMLET_TESTED_DAEMON:-$build/bin/brimletd}}" 9<"$TREE" \
  4<"${{BRIMLET_TESTED_MAIN:-$build/examples/main_program}}" 5<"${{policy:-/dev/null}}"
if [ "$BRIMLET_TEST_BUS" = dbus-broker ]; then
  [ -z "$BRIMLET_BROKER_DIR" ] ||
    mount -t overlay -o "lowerdir=$BRIMLET_BROKER_DIR:/usr/bin" none /usr/bin || true
  command -v dbus-broker-launch >/dev/null || {{ echo "not run: no dbus-broker"; exit {SKIPPED}; }}
fi
mount -t tmpfs -o mode=0755 none /opt
mount -t tmpfs -o mode=0755 none /run
[ -e "$TREE" ] || {{ mkdir -p "$TREE"; mount --no-canonicalize --rbind /proc/self/fd/9 "$TREE"; }}
mkdir -m 1777 /opt/tmp
mkdir -p /run/systemd/journal
install -D /proc/self/fd/3 {DAEMON}
install -D /proc/self/fd/4 {MAIN}
install -D /usr/bin/python3 {CORE}
if [ -n "$policy" ]; then
  cat <&5 >/opt/policy
  # The first group of a name is the one that counts.
  sed -n 's/.*<policy group="\\(.*\\)">.*/\\1:x:{MEMBERS}:/p' /opt/policy >/opt/group
  cat /etc/group >>/opt/group
  mount --bind /opt/group /etc/group
  mount -t tmpfs -o mode=0755 none /etc/dbus-1/system.d
  cp /opt/policy /etc/dbus-1/system.d/brimlet.conf
fi
# Where there is no other user, the bus cannot become one.
if ! setpriv --reuid messagebus --clear-groups true 2>/dev/null; then
  sed '/<user>/d' /usr/share/dbus-1/system.conf >/opt/system.conf
  mount --bind /opt/system.conf /usr/share/dbus-1/system.conf
fi
export TMPDIR=/opt/tmp PYTHONHOME=/usr PYTHONDONTWRITEBYTECODE=1
exec {CORE} "$@" 3<&- 4<&- 5<&- 9<&-
"""


def become_core():
    """Goes on, with the same arguments, as the casting engine on a machine of its own."""
    if os.readlink("/proc/self/exe") != CORE:
        unshare = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        if subprocess.run([*unshare, "true"], stderr=subprocess.DEVNULL).returncode != 0:
            unshare.append("--map-root-user")  # an ordinary user, and root in some containers
        os.environ["TREE"] = TREE
        os.execvp("unshare", [*unshare, "sh", "-c", SETUP, "sh", *sys.argv])


def has_other_users():
    """Whether this machine knows anybody but root."""
    with open("/proc/self/uid_map", encoding="ascii") as users:
        return users.read().split()[2] != "1"


def eventually(condition):
    """Waits until `condition()` is true, and returns what it gave; fails after two minutes."""
    end = time.monotonic() + 120
    while not (result := condition()):
        if time.monotonic() > end:
            raise TimeoutError("what was waited for does not come")
        time.sleep(0.005)
    return result


@contextlib.contextmanager
def standing_at(path, program):
    """Has a file stand at the path of an installed one."""
    subprocess.run(["mount", "--bind", program, path], check=True)
    yield
    subprocess.run(["umount", path], check=True)


class Machine:
    """A bus, a home folder, and what start() starts. `home`, `bus`, `address`, `pid` are for all."""

    def __init__(self):
        self.home, self.main, self.pid, self.taken = tempfile.mkdtemp(), None, 0, 0
        os.chmod(self.home, 0o711)  # other users come to the bus and to nothing else
        self.log_path = self.home + "/Brimlet/log/brimletd.log"
        self.address = f"unix:path={self.home}/bus"
        os.environ.update(HOME=self.home, DBUS_SYSTEM_BUS_ADDRESS=self.address)
        self.start_bus()

    def start_bus(self):
        """Starts the bus; `connection` is one to it then."""
        command = ["dbus-daemon", "--system", "--nofork", "--nopidfile", "--address=" + self.address]
        if ON_BROKER:
            read_journal()
            command = ["systemd-socket-activate", f"--listen={self.home}/bus",
                       "--setenv=DBUS_SYSTEM_BUS_ADDRESS", "dbus-broker-launch", "--scope=system"]
        self.bus = subprocess.Popen(command, stderr=subprocess.DEVNULL)
        eventually(lambda: os.path.exists(self.home + "/bus"))
        os.chmod(self.home + "/bus", 0o777)
        self.connection = eventually(self.connect)

    def connect(self):
        """A new connection to the bus; None where there is none to be had."""
        with contextlib.suppress(dbus.DBusException):
            return dbus.bus.BusConnection(self.address)

    def start(self, program=DAEMON):
        """Starts the main program, which starts `program` (the daemon, or what becomes it), and
        waits until the daemon answers. Returns the daemon's process id."""
        self.main = subprocess.Popen([MAIN, program], stdin=subprocess.PIPE, text=True,
                                     stdout=subprocess.PIPE)
        started, ready = self.main.stdout.readline(), self.main.stdout.readline()
        if ready != "ready\n":
            raise RuntimeError(f"the daemon does not start: {started}{ready}")
        self.pid = int(started.split()[-1])
        return self.pid

    def call(self, line, connection=None):
        """The daemon's reply to a line, or "error: " and the name of the bus's error."""
        try:
            return str((connection or self.connection).call_blocking(
                NAME, PATH, NAME, "brimletd", "s", (line,), timeout=600))
        except dbus.DBusException as error:
            return "error: " + error.get_dbus_name()

    def log(self):
        """The lines logged since the last call, without times and line numbers."""
        # The daemon logs a failure after its reply, and describes itself when it is done with that.
        with contextlib.suppress(dbus.DBusException):
            self.connection.call_blocking(NAME, PATH, dbus.INTROSPECTABLE_IFACE, "Introspect", "",
                                          (), timeout=600)
        with open(self.log_path, encoding="utf-8") as file:
            lines = file.read().split("\n")[self.taken:-1]
        self.taken += len(lines)
        return [re.sub(r"^\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\] (\[\w+\] \[\w+):\d+\] ",
                       r"\1] ", line) for line in lines]

    def run(self, *command, at=None, **options):
        """What a program prints; it stands at the path `at` while it runs."""
        program = os.path.realpath(shutil.which(command[0]))
        with standing_at(at, program) if at else contextlib.nullcontext():
            return subprocess.run(command, executable=at or program, stdout=subprocess.PIPE,
                                  text=True, check=False, **options).stdout

    def script(self, body):
        """The path of a shell script, the same each time."""
        with open(self.home + "/script", "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + body + "\n")
        os.chmod(file.name, 0o755)
        return file.name

    def uses(self):
        """How many descriptors the daemon has open, and how many bytes of memory are resident."""
        with open(f"/proc/{self.pid}/statm", encoding="ascii") as statm:
            pages = int(statm.read().split()[1])
        return len(os.listdir(f"/proc/{self.pid}/fd")), pages * resource.getpagesize()

    def stop(self):
        """Has the main program stop the daemon and end; returns the daemon's exit status."""
        self.main.stdin.close()
        return self.main.wait(120)

    def end(self):
        """The exit status of the daemon, which ends by itself."""
        def has_ended():
            with open(f"/proc/{self.pid}/stat", encoding="ascii") as stat:
                return stat.read().split()[2] == "Z"
        eventually(has_ended)
        if self.main.poll() is None:
            return self.stop()
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def close(self):
        """Ends what runs; fails when the daemon does not end as it should."""
        status = self.stop() if self.main and self.main.poll() is None else 0
        self.bus.kill()
        self.bus.wait()
        if status != 0:
            raise RuntimeError(f"the daemon ends with status {status}")


def read_journal(path="/run/systemd/journal/socket"):
    """Dbus-broker does not start without a journal, and stands still when nobody reads it."""
    if not os.path.exists(path):
        journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        journal.bind(path)
        os.chmod(path, 0o777)
        if os.fork() == 0:
            while True:
                journal.recv(1)
