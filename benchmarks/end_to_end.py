#!/usr/bin/python3
"""Measures the daemon from outside, on the machine of the tests, and prints the results in the JSON
of Google Benchmark: end_to_end.py STARTS OPTION...

The daemon starts STARTS times for its memory, and once more for its times; the OPTIONs go to
caller.cpp. What is not installed is left out, and what needs other users than root where there are
none. Everything runs on one processor.
"""
import contextlib
import json
import os
import re
import shutil
import statistics
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests"))
import machine as tests  # noqa: E402

PROGRAMS = os.environ.setdefault("BRIMLET_BUILD", "build/bench") + "/benchmarks/"
POLKIT, RTKIT = "/usr/lib/polkit-1/polkitd", "/usr/libexec/rtkit-daemon"
RUNNERS, NOBODY = ["doas", "sudo", "pkexec"], 65534
SETUP = r"""set -e
head -c 99999 /dev/zero | tr '\0' x >/opt/one_line
echo >>/opt/one_line
head -c 100000 /dev/zero | tr '\0' '\n' >/opt/byte_lines
strip -o /opt/stripped /opt/brimletd
cat >/etc/dbus-1/system.d/bench.conf <<END
<busconfig>
  <policy user="root"><allow own="*"/></policy>
  <policy context="default"><allow send_destination="brimlet.Popen"/></policy>
</busconfig>
END
[ "$1" = True ] || exit 0  # there is no other user than root
cp -a /etc /opt/etc
mount --bind /opt/etc /etc
mkdir -p /etc/polkit-1/rules.d /run/dbus /run/systemd/machines /run/systemd/seats \
  /run/systemd/sessions /run/systemd/users
echo 'permit nopass nobody' >/etc/doas.conf
rm -f /etc/sudoers
(umask 337 && echo 'nobody ALL=(ALL) NOPASSWD: ALL' >/etc/sudoers)
echo 'polkit.addRule(function() { return polkit.Result.YES; });' >/etc/polkit-1/rules.d/00.rules
"""


@contextlib.contextmanager
def service(machine, name, program):
    """Has a program own its name on the bus."""
    with subprocess.Popen([program], stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT) as child:
        try:
            tests.eventually(lambda: machine.connection.has_owner(name))
            yield child
        finally:
            child.kill()


def kib_in(path, label):
    with open(path, encoding="ascii") as file:
        return int(re.search(rf"^{label}:\s+(\d+) kB", file.read(), re.MULTILINE)[1])


def idle_memory(machine, starts):
    """What the daemon and rtkit-daemon take, both idle, soon after their start. Main program and
    popen service use the daemon's bus library, too, as the two programs of the application do."""
    sizes = {"IdleMemory": [], "IdleMemory_rtkit": []}
    for _ in range(starts):
        with contextlib.ExitStack() as stack:
            pids = [machine.start()]
            stack.callback(machine.stop)
            if os.path.exists(RTKIT) and tests.has_other_users():
                rtkit = service(machine, "org.freedesktop.RealtimeKit1", RTKIT)
                pids.append(stack.enter_context(rtkit).pid)
            machine.call("echo --add")
            machine.call("echo --nope")
            for values, pid in zip(sizes.values(), pids):
                values.append(kib_in(f"/proc/{pid}/smaps_rollup", "Pss"))
    return [(name, statistics.median(values), "KiB") for name, values in sizes.items() if values]


def call(machine, options):
    """What caller.cpp writes."""
    missing, user = RUNNERS, {}
    if tests.has_other_users():
        missing = [runner for runner in RUNNERS if not shutil.which(runner)]
        user = {"user": NOBODY, "group": NOBODY, "extra_groups": [tests.MEMBERS]}
    os.environ["BRIMLETD_PID"] = str(machine.start())

    def run(wanted):
        with tests.standing_at(tests.CORE, PROGRAMS + "caller"):
            output = subprocess.run([tests.CORE, "--benchmark_filter=" + wanted, *options],
                                    check=True, stdout=subprocess.PIPE, **user).stdout
        return json.loads(output)["benchmarks"]

    runs = run("-" + "|".join(["LongLine", "pkexec", *missing]))
    if "pkexec" not in missing:
        # Its daemon stays away from the others: it listens to who comes to the bus and goes.
        os.symlink(machine.home + "/bus", "/run/dbus/system_bus_socket")
        with service(machine, "org.freedesktop.PolicyKit1", POLKIT):
            runs += run("pkexec")
    return runs + run("LongLine")  # these leave much behind


def main():
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    tests.become_core()
    subprocess.run(["sh", "-c", SETUP, "sh", str(tests.has_other_users())], check=True)
    with contextlib.closing(tests.Machine()) as machine:
        with service(machine, "brimlet.Popen", PROGRAMS + "popen_service"):
            figures = idle_memory(machine, int(sys.argv[1]))
            runs = call(machine, sys.argv[2:])
        longest = max(run["real_time"] for run in runs if run["name"].startswith("LongLine/"))
        peak = kib_in(f"/proc/{machine.pid}/status", "VmHWM") * 1024 / 20e6
    figures += [("LongestLine", longest, "ns"), ("LongestLineMemory", peak, "times it"),
                ("FileSize", os.path.getsize("/opt/stripped") / 1024, "KiB")]
    runs += [{"name": name, "cpu_time": value, "time_unit": unit} for name, value, unit in figures]
    print(json.dumps({"benchmarks": runs}))


main()
