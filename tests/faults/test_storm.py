#!/usr/bin/env python3
"""Storms of mutated traffic: what two makers' applications really sent, with some of it changed, again and again. On builds
with sanitizers every step beyond what is there ends the tool."""

import os
import random
import socket
import sys
import time

import faults
import forge
import packets
from faults import METATRAFFIC_PORT, MIB, USER_PORT, harness, short_or_long

SECONDS = float(os.environ.get("FAULTS_STORM_SECONDS", short_or_long(5, 120)))
SEED = int(os.environ.get("FAULTS_STORM_SEED", "1"))
TYPES = ("keyed", "unkeyed", "shape", "mutable", "appendable", "everything")
PREFIX = slice(8, 20)  # of a datagram


class Mutator:
    """Datagrams that are nearly the recorded ones."""

    def __init__(self, recorded, seed):
        self.recorded = recorded
        self.random = random.Random(seed)
        self.prefixes = sorted({datagram[PREFIX] for datagram in recorded})
        self.pieces = [(kind, flags, body) for datagram in recorded for kind, flags, body in forge.submessages(datagram)]

    def next(self):
        choice = self.random.random()
        if choice < 0.3:
            datagram = self._spliced()
        else:
            datagram = self.random.choice(self.recorded)
        datagram = bytearray(datagram)
        if self.random.random() < 0.1:
            datagram[PREFIX] = self.random.choice(self.prefixes)
        for _ in range(self.random.choice((0, 0, 1, 1, 2, 4, 16))):
            self._change(datagram)
        if self.random.random() < 0.1:
            del datagram[self.random.randrange(len(datagram)):]
        return bytes(datagram[:65000])

    def _spliced(self):
        """Submessages of several datagrams, some of them cut, in the name of one application."""
        result = b"RTPS\x02\x03" + bytes(forge.VENDOR) + self.random.choice(self.prefixes)
        for _ in range(self.random.randint(1, 6)):
            kind, flags, body = self.random.choice(self.pieces)
            if self.random.random() < 0.2:
                body = body[:self.random.randrange(len(body) + 1)]
            result += bytes((kind, flags)) + len(body).to_bytes(2, "little" if flags & 1 else "big") + body
        return result

    def _change(self, datagram):
        at = self.random.randrange(len(datagram))
        what = self.random.random()
        if what < 0.4:
            datagram[at] ^= 1 << self.random.randrange(8)
        elif what < 0.6:
            datagram[at] = self.random.choice((0, 1, 0x7F, 0x80, 0xFF))
        elif what < 0.75:  # a length, a count or a number
            at -= at % 4
            value = self.random.choice((0, 1, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, self.random.randrange(1 << 32)))
            datagram[at:at + 4] = value.to_bytes(4, "little")
        elif what < 0.85:
            del datagram[at:at + self.random.randint(1, 8)]
        else:
            other = self.random.choice(self.recorded)
            begin = self.random.randrange(len(other))
            datagram[at:at] = other[begin:begin + self.random.randint(1, 64)]
        if len(datagram) == 0:
            datagram += b"R"


class Storms(faults.FaultTest):
    def applications(self):
        """One of each maker, with writers of all types."""
        result = []
        for make, types in ((self.cyclone, TYPES), (self.fastdds, TYPES[:2])):
            peer = make()
            peer.do("participant")
            for name in types:
                peer.do(f"writer {name} topic=T_{name} type={name} transient_local depth=5")
            if make == self.cyclone:  # of a topic that Fast DDS does not write: see "Known" in ../interop/peers/README.md
                peer.do("reader r topic=T_shape type=shape")
            for name in types:
                peer.do(f"matched {name}")
                peer.do(f"write {name} count=20 keys=5 size=40")
                if name != "unkeyed":
                    peer.do(f"dispose {name} key=1")
                peer.do(f"write {name} size=150000")
            peer.do(f"delete {types[0]}")
            result.append(peer)
        return result

    def test_mutated_traffic(self):
        tool = self.tool("-useFirstPublicationQos", "-printSample", "-showSampleIdentity", "-showHandle", "-showPartition",
                         "-showEntityName")
        tap = packets.Tap(self.network)
        self.addCleanup(tap.close)
        self.applications()
        tool.wait_at_rest()
        recorded = [(datagram.payload, datagram.port) for datagram in tap.arrived("lo")
                    if datagram.prefix and datagram.length == len(datagram.payload)]
        ports = {METATRAFFIC_PORT: [], USER_PORT: []}
        for payload, port in recorded:
            ports[USER_PORT if port % 2 else METATRAFFIC_PORT].append(payload)
        mutators = {port: Mutator(payloads, SEED + port) for port, payloads in ports.items()}
        before = tool.memory()
        sender = self.network.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(sender.close)
        end, count = time.monotonic() + SECONDS, 0
        while time.monotonic() < end:
            for port, mutator in mutators.items():
                for _ in range(20):
                    sender.sendto(mutator.next(), ("127.0.0.1", port))
                    count += 1
            tool.wait_for_room()
        tool.wait_at_rest(60)
        print(f"\n    {len(recorded)} recorded datagrams, {count} mutated ones, seed {SEED}", end="", file=sys.stderr, flush=True)
        if harness.SLOWNESS == 1:
            self.bound_memory(tool, before)
        self.assert_discovers(tool)
        self.bound("lines on standard error", len(tool.errors), 100, "lines")
        status, _ = tool.interrupt(30 * harness.SLOWNESS)
        self.assertEqual(status, 1, tool.story())


if __name__ == "__main__":
    faults.main()
