#!/usr/bin/python3
"""The demonstration, on a machine of its own. scripts/demo.sh builds what it needs and starts it."""
import contextlib
import os
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests"))
from machine import MAIN, NAME, PATH, Machine, become_core

CORE, BRIMLET, STRANGER = "OrvixCore", "Brimlet", "busctl"
FAILED = "ExecutePopen failed!"

# Who asks, the line, the reply, and why it is this one.
STORY = [
    (CORE, "echo --setIP orvix0 192.168.1.1", "--setIP orvix0 192.168.1.1",
     "Allowed: the interface is orvix0, and the address is well-formed."),
    (CORE, "echo --disconbt hci0 aa:bb:cc:dd:ee:0f", "--disconbt hci0 aa:bb:cc:dd:ee:0f",
     "Allowed: a word and a hardware address."),
    (CORE, "true --search", "", "Allowed: this command prints nothing."),
    (CORE, "whoami;echo --add", "root\n--add",
     "Allowed: the shell runs the line as root, and word 0 is free. Whoever may call is root."),
    (CORE, "echo --setIP orvix0 192.168.1.256", FAILED, "Refused: this is no IPv4 address."),
    (CORE, "echo --add now", FAILED, "Refused: --add takes no more words."),
    (CORE, "echo --format disk", FAILED, "Refused: no rule has this option word."),
    (CORE, "echo  --add", FAILED, "Refused: between two blanks stands an empty option word."),
    (CORE, "seq${IFS}30000;: --add", FAILED, "Allowed, but 102400 bytes of output are too many."),
    (BRIMLET, "echo --reload", FAILED,
     "Refused: the main program is admitted, too, but --reload takes five more words."),
    (STRANGER, "echo --add", "auth failed", "Not admitted: only the two installed programs are."),
    (CORE, "brimletd --exit", "error: org.freedesktop.DBus.Error.NoReply",
     "The stop line: the daemon ends without a reply."),
]


def ask(machine, who, line):
    """The reply to a line that one of the three programs sends."""
    if who == CORE:  # this very process
        return machine.call(line)
    if who == BRIMLET:
        print(line, file=machine.main.stdin, flush=True)
        return machine.main.stdout.readline().removesuffix("\n")
    return machine.run(STRANGER, "call", NAME, PATH, NAME, "brimletd", "s", line)[3:-2]


def show(machine, who, line, expected=None, why=None):
    """Shows a request and all that comes of it. Returns whether the reply is the expected one."""
    reply = ask(machine, who, line)
    is_right = expected in (None, reply)
    print(f"# {why}\n" if why else "", f"{who:>9} -> {line}", sep="")
    print(f"{'':9} <- " + (reply.replace("\n", "\\n") or "(nothing)"))
    for entry in machine.log():
        print(f"{'':8} log {entry}")
    print("" if is_right else f"WRONG: expected {expected}\n", flush=True)
    return is_right


def main():
    """Sends the lines given, or the story's."""
    become_core()
    with contextlib.closing(Machine()) as machine:
        print(f"brimletd runs as process {machine.start()}, a child of {MAIN}\n")
        requests = [(CORE, line) for line in sys.argv[1:]] or STORY
        are_right = [show(machine, *request) for request in requests]
        status = machine.stop()
    print(f"brimletd ended with exit status {status}")
    return 0 if all(are_right) and status == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
