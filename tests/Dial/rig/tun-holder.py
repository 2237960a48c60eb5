#!/usr/bin/python3
# Creates a TUN device and keeps it open (a TUN device without an open descriptor has no
# carrier). Usage: tun-holder.py <name> <pidfile>. Exits on SIGTERM; the device goes with it.
import fcntl
import os
import signal
import struct
import sys

TUNSETIFF = 0x400454CA
IFF_TUN = 0x0001
IFF_NO_PI = 0x1000

name, pidfile = sys.argv[1], sys.argv[2]
fd = os.open("/dev/net/tun", os.O_RDWR)
fcntl.ioctl(fd, TUNSETIFF, struct.pack("16sH", name.encode(), IFF_TUN | IFF_NO_PI))
with open(pidfile, "w") as f:
    f.write(str(os.getpid()))
signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
while True:
    signal.pause()
