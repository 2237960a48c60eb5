#!/usr/bin/python3
# Watches the command line and environment of every process of this run (every process in
# the caller's network namespace: the rig gives the run one of its own) until <stop file>
# exists, and writes one line per process and file that held a secret to <hits file>.
# The secrets come from a file, one a line, so that no argument list of the scan holds them.
#   proc-watch.py <secrets file> <stop file> <hits file> <seen file>
import os
import sys
import time

secrets_file, stop_file, hits_file, seen_file = sys.argv[1:5]
with open(secrets_file, "rb") as f:
    secrets = [s for s in f.read().split(b"\n") if s]
own_net = os.readlink("/proc/self/ns/net")
hits = set()
seen = set()


def read(path):
    try:
        with open(path, "rb") as f:
            return f.read()
    except OSError:
        return b""


while not os.path.exists(stop_file):
    for pid in os.listdir("/proc"):
        if not pid.isdigit():
            continue
        try:
            if os.readlink("/proc/%s/ns/net" % pid) != own_net:
                continue
        except OSError:
            continue
        cmdline = read("/proc/%s/cmdline" % pid)
        args = cmdline.split(b"\0")
        program = args[0].rsplit(b"/", 1)[-1].decode(errors="replace")
        # A script is known by its own name, not its interpreter's.
        if program in ("sh", "dash", "bash", "python3") and len(args) > 1 and args[1].startswith(b"/"):
            program = args[1].rsplit(b"/", 1)[-1].decode(errors="replace")
        seen.add(program)
        for what, data in (("cmdline", cmdline), ("environ", read("/proc/%s/environ" % pid))):
            for secret in secrets:
                if secret in data:
                    hits.add("%s (pid %s): %s" % (program, pid, what))
    time.sleep(0.01)

with open(hits_file, "w") as f:
    f.write("".join(h + "\n" for h in sorted(hits)))
with open(seen_file, "w") as f:
    f.write("".join(s + "\n" for s in sorted(seen)))
