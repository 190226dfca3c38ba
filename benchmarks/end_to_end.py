#!/usr/bin/python3
"""Measures the daemon from outside, on the machine of the tests, and prints the results in the JSON
of Google Benchmark.

    end_to_end.py STARTS OPTION...

The daemon and its main program start STARTS times for its memory, and once more for its times: the
OPTIONs go to caller.cpp. A peer that is not installed is left out, and so are all of them where
there is no other user than root. Everything runs on one processor.
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

BUILD = os.environ.setdefault("BRIMLET_BUILD", "build/bench")
POLKIT, RTKIT = "/usr/lib/polkit-1/polkitd", "/usr/libexec/rtkit-daemon"
NOBODY = 65534
LONG_LINE = 20e6  # bytes, in caller.cpp
POLICY = """<busconfig>
  <policy user="root"><allow own="*"/></policy>
  <policy context="default"><allow send_destination="brimlet.Popen"/></policy>
</busconfig>"""
CONFIGURATION = """set -e
cp -a /etc /opt/etc
mount --bind /opt/etc /etc
echo 'permit nopass nobody' >/etc/doas.conf
rm -f /etc/sudoers
(umask 337; echo 'nobody ALL=(ALL) NOPASSWD: ALL' >/etc/sudoers)
mkdir -p /etc/polkit-1/rules.d /run/dbus /run/systemd/seats /run/systemd/sessions \
  /run/systemd/users /run/systemd/machines
echo 'polkit.addRule(function() { return polkit.Result.YES; });' >/etc/polkit-1/rules.d/00.rules
ln -s "${DBUS_SYSTEM_BUS_ADDRESS#unix:path=}" /run/dbus/system_bus_socket
"""


def write(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def number_in(path, label):
    with open(path, encoding="ascii") as file:
        return int(re.search(rf"^{label}:\s+(\d+)", file.read(), re.MULTILINE)[1])


@contextlib.contextmanager
def service(machine, name, program):
    """Has a program own its name on the bus; gives its process id."""
    with subprocess.Popen([program], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        tests.eventually(lambda: machine.connection.name_has_owner(name) or process.poll())
        yield process.pid
        process.kill()


def memory(machine, starts):
    """Yields in KiB what the idle daemon and the idle rtkit-daemon take, soon after their start."""
    def pss(pid):
        return number_in(f"/proc/{pid}/smaps_rollup", "Pss")
    daemon, rtkit = [], []
    for _ in range(starts):
        machine.start()
        machine.call("echo --add")
        machine.call("echo --nope")
        daemon.append(pss(machine.pid))
        if os.path.exists(RTKIT):
            with service(machine, "org.freedesktop.RealtimeKit1", RTKIT) as pid:
                rtkit.append(pss(pid))
        machine.stop()
    yield "IdleMemory", statistics.median(daemon), "KiB"
    if rtkit:
        yield "IdleMemory_rtkit", statistics.median(rtkit), "KiB"


def times(machine, options):
    """What caller.cpp writes."""
    missing = [peer for peer in ("doas", "sudo", "pkexec") if not shutil.which(peer)]
    user = {}
    with contextlib.ExitStack() as stack:
        stack.enter_context(service(machine, "brimlet.Popen", os.path.join(
            os.environ["BRIMLET_BUILD"], "benchmarks/popen_service")))
        if tests.has_other_users():
            user = {"user": NOBODY, "group": NOBODY, "extra_groups": [tests.MEMBERS]}
            subprocess.run(["sh", "-c", CONFIGURATION], check=True)
            if "pkexec" not in missing:
                stack.enter_context(service(machine, "org.freedesktop.PolicyKit1", POLKIT))
        else:
            missing = ["doas", "sudo", "pkexec"]
        left_out = [f"--benchmark_filter=-_({'|'.join(missing)})"] if missing else []
        os.environ["BRIMLETD_PID"] = str(machine.start())
        program = os.path.join(os.environ["BRIMLET_BUILD"], "benchmarks/caller")
        with tests.standing_at(tests.CORE, program):
            return json.loads(subprocess.run(
                [tests.CORE, "--benchmark_format=json", *left_out, *options],
                stdout=subprocess.PIPE, check=True, **user).stdout)


def size():
    subprocess.run(["strip", "-o", "/opt/stripped", tests.DAEMON], check=True)
    return os.path.getsize("/opt/stripped") / 1024


def main():
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    tests.become_core()
    write("/etc/dbus-1/system.d/popen.conf", POLICY)
    write("/opt/one_line", "x" * 99999 + "\n")
    write("/opt/byte_lines", "\n" * 100000)
    with contextlib.closing(tests.Machine()) as machine:
        figures = [*memory(machine, int(sys.argv[1])), ("FileSize", size(), "KiB")]
        results = times(machine, sys.argv[2:])
        peak = number_in(f"/proc/{machine.pid}/status", "VmHWM") * 1024
        figures.append(("LongLineMemory", peak / LONG_LINE, "times the line"))
    results["benchmarks"] += [{"name": name, "real_time": value, "cpu_time": value,
                               "time_unit": unit} for name, value, unit in figures]
    print(json.dumps(results))


if __name__ == "__main__":
    main()
