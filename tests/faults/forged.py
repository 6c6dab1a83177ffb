"""Applications that consist of the packets a test sends in their name."""

import itertools
import select
import socket
import struct
import threading
import time

import forge
from basics import METATRAFFIC_PORT, USER_PORT, harness, wait_until
import packets


class Forged:
    """An application that consists of the packets a test sends in its name. What is sent to its address is counted, and its
    writers send again what the tool asks for: an attack does not depend on luck."""

    _numbers = itertools.count(1)

    def __init__(self, network, address="127.0.0.1", target="127.0.0.1", vendor=forge.VENDOR, prefix=None,
                 builtin=forge.BUILTIN_ENDPOINTS, obliging=True):
        """target: where the tool is. obliging: acknowledges what it is sent, as a healthy application does."""
        self.target = target
        self.prefix = prefix or bytes(vendor) + b"fault." + struct.pack(">I", next(Forged._numbers))
        self.vendor = vendor
        self.builtin = builtin
        self.obliging = obliging
        self.address = address
        self._socket = network.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind((address, 0))
        self.port = self._socket.getsockname()[1]
        self.datagrams = self.bytes = 0
        self.sent_datagrams = self.sent_bytes = 0
        self.acknowledged = {}  # writer -> the base of the last ACKNACK
        self.subscribed = set()  # topics of the readers that the tool told of
        self._written = {}      # writer -> [submessages], the first has number 1
        self._announcements = 0
        self._counts = itertools.count(1)
        self._changed = threading.Condition()
        self._closed = False
        self._thread = threading.Thread(target=self._hear, daemon=True)
        self._thread.start()

    def close(self):
        self._closed = True
        self._thread.join()
        self._socket.close()

    def locator(self):
        return forge.locator(self.address, self.port)

    def send(self, *submessages, port=METATRAFFIC_PORT, prefix=None):
        datagram = forge.message(prefix or self.prefix, *submessages, vendor=self.vendor)
        self._socket.sendto(datagram, (self.target, port))
        self.sent_datagrams += 1
        self.sent_bytes += len(datagram)
        return len(datagram)

    def next_count(self):
        return next(self._counts)

    def announce(self, metatraffic=None, prefix=None, **changes):
        """Announces this participant, or another in whose name it speaks."""
        self._announcements += 1
        payload = forge.participant(prefix or self.prefix, [self.locator()] if metatraffic is None else metatraffic,
                                    **{"vendor": self.vendor, "builtin": self.builtin, **changes})
        return self.send(forge.data(packets.PARTICIPANTS, self._announcements, payload), prefix=prefix)

    def leave(self, prefix=None):
        """Says farewell, in its own name, for itself or for another participant."""
        self._announcements += 1
        key = forge.listed([(packets.PARTICIPANT_GUID, forge.guid(prefix or self.prefix, forge.PARTICIPANT))])
        self.send(forge.data(packets.PARTICIPANTS, self._announcements, key, key=True,
                             inline=[forge.status(forge.DISPOSED | forge.UNREGISTERED)]))

    def write(self, writer, payload, port=METATRAFFIC_PORT, **settings):
        """The next sample of a writer, in a datagram of its own."""
        self.write_all(writer, [payload], port, **settings)

    def write_all(self, writer, payloads, port=METATRAFFIC_PORT, tool=None, **settings):
        """The next samples of a writer, in as few datagrams as hold them; with a tool never more than it can take in."""
        written = self._written.setdefault(writer, [])
        first = len(written) + 1
        for payload in payloads:
            written.append(forge.data(writer, len(written) + 1, payload, **settings))
        self._send_from(writer, first, port, tool)

    def _send_from(self, writer, first, port, tool=None, most=None):
        batch, size, sent = [], 0, 0
        for one in self._written[writer][first - 1:]:
            if batch and size + len(one) > 60000:
                self.send(*batch, port=port)
                batch, size, sent = [], 0, sent + 1
                if most is not None and sent >= most:
                    return
                if tool is not None:
                    tool.wait_for_room()
            batch.append(one)
            size += len(one)
        if batch:
            self.send(*batch, port=port)

    def wait_until_read(self, writer, port=METATRAFFIC_PORT, limit=30.0):
        """Waits until the tool acknowledged all that this reliable writer wrote, and sends again what it asks for."""
        last = len(self._written[writer])
        end = time.monotonic() + limit * harness.SLOWNESS
        while self.acknowledged.get(writer, 0) <= last:
            self.send(forge.heartbeat(writer, 1, last, self.next_count()), port=port)
            with self._changed:
                self._changed.wait_for(lambda: self.acknowledged.get(writer, 0) > last, 0.1)
                base = self.acknowledged.get(writer, 0)
            if 0 < base <= last:
                self._send_from(writer, base, port, most=4)
            if time.monotonic() > end:
                raise AssertionError(f"after {limit:g} s the tool acknowledged {max(base - 1, 0)} of {last} samples of a "
                                     "reliable writer")

    def wait_until_subscribed(self, topic, limit=15.0):
        """Waits until the tool has announced a reader of the topic to this application."""
        wait_until(f"a reader of topic {topic}", lambda: topic in self.subscribed, limit)

    def begin(self, writer, limit=15.0):
        """Waits until the tool's reliable reader answers a heartbeat of a writer that has written nothing."""
        self.acknowledged.pop(writer, None)

        def answered():
            self.send(forge.heartbeat(writer, 1, 0, self.next_count()), port=USER_PORT)
            with self._changed:
                return self._changed.wait_for(lambda: writer in self.acknowledged, 0.1)

        wait_until("an acknowledgement of a user writer", answered, limit)

    def publish(self, topic, type_name="fault::Type", entity=0x00000103, **settings):
        """Announces a writer; returns its entity id."""
        self.write(forge.PUBLICATIONS, forge.endpoint(self.prefix, entity, topic, type_name, **settings))
        return entity

    def _hear(self):
        while not self._closed:
            if not select.select([self._socket], [], [], 0.1)[0]:
                continue
            datagram = self._socket.recv(65536)
            with self._changed:
                self.datagrams += 1
                self.bytes += len(datagram)
                self._changed.notify_all()
            answers = [answer for one in forge.submessages(datagram) for answer in self._take(*one)]
            if answers and self.obliging and not self._closed:
                self.send(*answers)

    def _take(self, kind, flags, body):
        order = "<" if flags & 1 else ">"
        if kind == forge.ACKNACK:
            writer, = struct.unpack_from(">I", body, 4)
            high, low = struct.unpack_from(order + "iI", body, 8)
            with self._changed:
                self.acknowledged[writer] = (high << 32) + low
                self._changed.notify_all()
        elif kind == forge.DATA:
            announced = packets.Data(None, None, flags, body, False)
            if announced.writer == forge.SUBSCRIPTIONS and announced.parameters:
                self.subscribed.add(announced.parameters.text(packets.TOPIC))
        elif kind == forge.HEARTBEAT and not flags & 2:
            writer, = struct.unpack_from(">I", body, 4)
            high, low = struct.unpack_from(order + "iI", body, 16)
            # The next count, whatever thread asks: the tool takes only ones that grow.
            yield forge.acknack(forge.reader_of(writer), writer, (high << 32) + low + 1, (), self.next_count(), final=True)
