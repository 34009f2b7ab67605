"""When a picture is there: the camera's last datagram seen on the wire, and the same bytes at a viewer."""
import select
import socket
import struct
import time

from measure import BLOCK, FIRST_ADDRESS

SO_TIMESTAMPNS = 35  # and its message; as time.time_ns()
ETH_P_IP = 0x0800
DATA = 3  # TFTP, RFC 1350: opcode, number of the block, bytes


class Tap:
    """What camera 1 sends, read off the loopback interface with the kernel's time stamps."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_IP))
        self.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        self.socket.setsockopt(socket.SOL_SOCKET, 33, 32 << 20)  # SO_RCVBUFFORCE
        self.socket.bind(("lo", ETH_P_IP))
        self.blocks, self.pictures = [], []

    def read(self):
        data, stamp, _, sender = self.socket.recvmsg(BLOCK + 100, 64)
        if sender[2] == socket.PACKET_OUTGOING or data[9] != socket.IPPROTO_UDP:
            return
        if data[12:16] != socket.inet_aton(FIRST_ADDRESS) or struct.unpack_from(">H", data, 28)[0] != DATA:
            return
        seconds, nanoseconds = struct.unpack_from("qq", stamp[0][2])
        self.take(struct.unpack_from(">H", data, 30)[0], data[32:], seconds * 10**9 + nanoseconds)

    def take(self, block, payload, time_ns):
        """A trailer ends a picture, whose last block is filled up with zeros."""
        if block == 1:
            self.blocks = []
        self.blocks.append(payload)
        if len(self.blocks) < 2 or block != len(self.blocks) or not 90 <= len(payload) <= 128:
            return
        self.pictures.append((b"".join(self.blocks[:-1]).rstrip(b"\0"), time_ns))


def observed(viewer, seconds):
    """What camera 1 sent, and what the viewer read: [bytes, time of it]."""
    tap, pieces = Tap(), []
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for ready in select.select([viewer, tap.socket], [], [], 0.1)[0]:
            if ready is viewer:
                data = viewer.recv(1 << 20)
                pieces.append((data, time.time_ns()))
            else:
                tap.read()
    return tap.pictures, pieces


def latencies(viewer, seconds):
    """Milliseconds from each picture's last datagram to its last byte at the viewer."""
    pictures, pieces = observed(viewer, seconds)
    stream = b"".join(data for data, _ in pieces)
    ends, times, total = [], [], 0
    for data, time_ns in pieces:
        total += len(data)
        ends.append(total)
        times.append(time_ns)
    values, at, piece = [], 0, 0
    for picture, sent_ns in pictures:
        begin = stream.find(picture, at)
        if begin < 0:
            continue  # before the viewer was there, or after
        at = begin + len(picture)
        while ends[piece] < at:
            piece += 1
        values.append((times[piece] - sent_ns) / 1e6)
    return values
