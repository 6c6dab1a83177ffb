"""A cable between two hosts that loses, doubles and disorders frames, or is cut: what the kernel could do with netem, in the
test's own hands and from a seed."""

import random
import select
import socket
import threading
import time

import basics  # noqa: F401 - with it comes the way to the modules of the interop tests
import harness
from packets import ETH_P_ALL, ETH_P_IP, UDP

LARGEST_FRAME = 65535


class BadCable:
    """Joins two networks at a device "eth0" with the addresses subnet.1 and subnet.2. Frames pass through this process,
    each datagram in one frame. What the cable does to them is set at any time; the chances are from 0 to 1."""

    def __init__(self, left, right, subnet="10.77.0", seed=1):
        self.loss = self.doubling = self.disorder = 0.0
        self.cut = False
        self.passed = self.lost = 0
        self._random = random.Random(seed)
        self._middle = harness.Network()
        self._ends = [self._lay(network, f"{subnet}.{number}", f"end{number}")
                      for number, network in ((1, left), (2, right))]
        self._kept = {}  # end -> (a frame that the next one overtakes, when it was kept)
        self._closed = threading.Event()
        self._thread = threading.Thread(target=self._forward, daemon=True)
        self._thread.start()

    def _lay(self, network, address, device):
        network.ip("link", "add", "eth0", "mtu", str(LARGEST_FRAME), "type", "veth", "peer", "name", device, "mtu",
                   str(LARGEST_FRAME), "netns", f"/proc/self/fd/{self._middle.handle}", handles=(self._middle.handle,))
        self._middle.ip("link", "set", device, "addrgenmode", "none", "up")
        network.ip("address", "add", f"{address}/24", "dev", "eth0")
        network.ip("link", "set", "eth0", "addrgenmode", "none", "multicast", "on", "up")
        network.route_multicast("eth0")
        end = self._middle.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        end.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 16 << 20)
        end.bind((device, ETH_P_ALL))
        return end

    def close(self):
        if self._closed.is_set():
            return
        self._closed.set()
        self._thread.join()
        for end in self._ends:
            end.close()
        self._middle.close()

    def _forward(self):
        other = {self._ends[0]: self._ends[1], self._ends[1]: self._ends[0]}
        while not self._closed.is_set():
            for end in select.select(self._ends, [], [], 0.02)[0]:
                frame, (_, _, kind, *_) = end.recvfrom(LARGEST_FRAME + 14)
                if kind != socket.PACKET_OUTGOING:  # what this process sends itself is heard too
                    self._pass_on(other[end], frame)
            # A frame is not kept for good where no other follows.
            for end, (frame, since) in list(self._kept.items()):
                if time.monotonic() - since > 0.02:
                    self._send(end, self._kept.pop(end)[0])

    def _pass_on(self, end, frame):
        if self.cut or self._random.random() < self.loss:
            self.lost += 1
            return
        if end not in self._kept and self._random.random() < self.disorder:
            self._kept[end] = frame, time.monotonic()
            return
        self._send(end, frame)
        if self._random.random() < self.doubling:
            self._send(end, frame)
        if end in self._kept:
            self._send(end, self._kept.pop(end)[0])

    def _send(self, end, frame):
        self.passed += 1
        try:
            end.send(without_checksum(frame))
        except OSError:
            pass  # the device is down at present


def without_checksum(frame):
    """A datagram between virtual interfaces has an unfinished checksum; UDP over IPv4 may do without."""
    if int.from_bytes(frame[12:14], "big") != ETH_P_IP or frame[14 + 9] != UDP:
        return frame
    at = 14 + (frame[14] & 15) * 4 + 6
    return frame[:at] + b"\0\0" + frame[at + 2:]
