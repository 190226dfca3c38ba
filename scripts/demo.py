#!/usr/bin/python3
"""The demonstration, on a machine of its own. scripts/demo.sh builds what it needs and starts it."""
import contextlib
import os
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests"))
from machine import MAIN, NAME, PATH, Machine, become_core

CORE, BRIMLET, STRANGER = "OrvixCore", "Brimlet", "busctl"
FAILED = "ExecutePopen failed!"
PSK = "0123456789abcdef" * 4

# Who asks, the line, the reply, and why it is this one.
STORY = [
    (CORE, "echo --add", "--add",
     "Allowed: --add takes no more words. Echo stands for the program that does the work."),
    (CORE, "echo --setIP orvix0 192.168.1.1", "--setIP orvix0 192.168.1.1",
     "Allowed: the interface is orvix0, and the address is well-formed."),
    (CORE, f"echo --hostapd 36 abcdefgh_1234567 {PSK} cn",
     f"--hostapd 36 abcdefgh_1234567 {PSK} cn",
     "Allowed: a channel from 36 to 177, a word of 16 bytes, one of 64, and any other."),
    (CORE, "true --search", "", "Allowed: this command prints nothing."),
    (CORE, "whoami;echo --add", "root\n--add",
     "Allowed: the shell runs the line as root, and word 0 is free. Whoever may call is root."),
    (CORE, "echo --add now", FAILED, "Refused: --add takes no more words."),
    (CORE, "echo --setIP orvix0 192.168.1.256", FAILED, "Refused: this is no IPv4 address."),
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
    """Shows one request with all that comes of it. Returns whether the reply is the expected one."""
    reply = ask(machine, who, line)
    notes = [("# ", why)] if why else []
    notes += [(f"{who:>9} -> ", line), (f"{'':9} <- ", reply)]
    notes += [(f"{'':8} log ", entry) for entry in machine.log()]
    is_right = expected in (None, reply)
    if not is_right:
        notes.append(("WRONG: expected ", expected))
    for mark, text in notes:
        text = text.replace("\n", "\\n") or "(nothing)"
        print(mark + (text if len(text) <= 88 else f"{text[:60]}... ({len(text)} characters)"))
    print(flush=True)
    return is_right


def main():
    """Sends the lines given, or the story's."""
    become_core()
    with contextlib.closing(Machine()) as machine:
        print(f"brimletd runs as process {machine.start()}, a child of {MAIN}\n")
        requests = [(CORE, line) for line in sys.argv[1:]] or STORY
        wrong = [request for request in requests if not show(machine, *request)]
        status = machine.stop()
    print(f"brimletd ended with exit status {status}")
    if requests is STORY:
        print(f"{len(STORY)} requests, {len(wrong)} of them not answered as expected")
    return bool(wrong) or status


if __name__ == "__main__":
    sys.exit(main())
