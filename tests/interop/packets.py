"""What really goes over the wires of a private network: its datagrams, and the participant and endpoint announcements in
them (OMG DDSI-RTPS 2.5, 8.3, 8.5 and 9.6)."""

import ipaddress
import socket
import struct
import threading

import harness

ETH_P_ALL, ETH_P_IP, ETH_P_IPV6 = 0x0003, 0x0800, 0x86DD
SO_TIMESTAMPNS = 35
UDP = 17

PARTICIPANTS, READERS = 0x000100C2, 0x000004C2  # the writers that announce participants and readers

LEASE, TOPIC, DOMAIN_ID, PARTITION, PARTICIPANT_GUID, PROPERTIES, NAME = 0x02, 0x05, 0x0F, 0x29, 0x50, 0x59, 0x62
DEFAULT_UNICAST, METATRAFFIC_UNICAST, METATRAFFIC_MULTICAST, DEFAULT_MULTICAST = 0x31, 0x32, 0x33, 0x48
ENDPOINT_GUID, KEY_HASH, STATUS = 0x5A, 0x70, 0x71
DOMAIN_TAG = 0x4014  # with the bit that makes those who do not know it refuse the whole announcement
UDPV4, UDPV6 = 1, 2


class Parameters:
    """A parameter list; each parameter may be there several times."""

    def __init__(self, octets, order):
        self._order = order
        self._values = {}
        at = 0
        while True:
            number, length = struct.unpack_from(order + "HH", octets, at)
            if number == 1:
                break
            value = octets[at + 4:at + 4 + length]
            if len(value) != length:
                raise AssertionError(f"parameter 0x{number:04x} of {length} octets is cut off")
            self._values.setdefault(number, []).append(value)
            at += 4 + length
        self.size = at + 4

    def all(self, number):
        return self._values.get(number, [])

    def get(self, number):
        """Its octets, or None; it must not be there twice."""
        values = self.all(number)
        if len(values) > 1:
            raise AssertionError(f"parameter 0x{number:04x} is there {len(values)} times")
        return values[0] if values else None

    def integer(self, number):
        value = self.get(number)
        return None if value is None else struct.unpack_from(self._order + "I", value)[0]

    def _strings(self, value, at, count):
        result = []
        for _ in range(count):
            at += -at % 4
            length, = struct.unpack_from(self._order + "I", value, at)
            result.append(value[at + 4:at + 4 + length - 1].decode())
            at += 4 + length
        return result

    def text(self, number):
        value = self.get(number)
        return None if value is None else self._strings(value, 0, 1)[0]

    def texts(self, number, per_element=1):
        """The strings of a sequence whose elements hold so many of them."""
        value = self.get(number)
        if value is None:
            return []
        return self._strings(value, 4, per_element * struct.unpack_from(self._order + "I", value)[0])

    def properties(self):
        texts = self.texts(PROPERTIES, per_element=2)
        return dict(zip(texts[::2], texts[1::2]))

    def seconds(self, number):
        whole, fraction = struct.unpack(self._order + "iI", self.get(number))
        return whole + fraction / 2**32

    def locators(self, *numbers):
        """(kind, address, port) of each locator under any of these numbers."""
        result = []
        for value in (value for number in numbers for value in self.all(number)):
            kind, port = struct.unpack_from(self._order + "iI", value)
            address = value[20:24] if kind == UDPV4 else value[8:24]
            result.append((kind, str(ipaddress.ip_address(address)), port))
        return result


class Data:
    """A DATA submessage, or the first of its DATA_FRAG, whose parameters are not looked at."""

    def __init__(self, datagram, prefix, flags, body, fragment):
        order = "<" if flags & 1 else ">"
        self.datagram = datagram
        self.prefix = prefix
        self.writer, = struct.unpack_from(">I", body, 8)
        self.parameters = self.inline = None
        self.is_key = bool(flags & 8) and not fragment
        if fragment:
            return
        at = 4 + struct.unpack_from(order + "H", body, 2)[0]
        if flags & 2:
            self.inline = Parameters(body[at:], order)
            at += self.inline.size
        if flags & 12:
            representation = struct.unpack_from(">H", body, at)[0]
            if representation in (2, 3):
                self.parameters = Parameters(body[at + 4:], "<" if representation == 3 else ">")

    @property
    def status(self):
        """Bit 1: disposed, bit 2: unregistered."""
        value = self.inline.get(STATUS) if self.inline else None
        return 0 if value is None else value[3]


class Datagram:
    """A UDP datagram as it passed an interface. length is that of its payload, which is cut where IP made fragments."""

    def __init__(self, when, device, sent, packet):
        self.time, self.device, self.sent = when, device, sent
        version = packet[0] >> 4
        header = (packet[0] & 15) * 4 if version == 4 else 40
        self.family = UDPV4 if version == 4 else UDPV6
        self.ttl = packet[8] if version == 4 else packet[7]
        addresses = (packet[12:16], packet[16:20]) if version == 4 else (packet[8:24], packet[24:40])
        self.source, self.destination = (ipaddress.ip_address(address) for address in addresses)
        self.source_port, self.port, length = struct.unpack_from(">HHH", packet, header)
        self.length = length - 8
        self.payload = packet[header + 8:]

    @staticmethod
    def is_udp(packet):
        """Neither another protocol nor a later fragment."""
        if packet[0] >> 4 == 4:
            return packet[9] == UDP and not struct.unpack_from(">H", packet, 6)[0] & 0x1FFF
        return packet[6] == UDP

    @property
    def prefix(self):
        """Of the participant that sent it; None: not RTPS."""
        return self.payload[8:20] if self.payload[:4] == b"RTPS" else None

    def data(self):
        result, at = [], 20
        while self.prefix and at + 4 <= len(self.payload):
            kind, flags = self.payload[at], self.payload[at + 1]
            length, = struct.unpack_from("<H" if flags & 1 else ">H", self.payload, at + 2)
            end = at + 4 + length if length else len(self.payload)
            if kind in (0x15, 0x16):
                result.append(Data(self, self.prefix, flags, self.payload[at + 4:end], kind == 0x16))
            at = end
        return result

    def __repr__(self):
        return f"{self.device} {'to' if self.sent else 'from'} [{self.destination}]:{self.port} ttl {self.ttl}, {self.length} bytes"


class Tap:
    """Hears every datagram at every interface of a network, whatever its address, from now on. Times are the kernel's."""

    def __init__(self, network):
        self._socket = network.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_ALL))
        self._socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.settimeout(0.2)
        self._heard = []
        self._changed = threading.Condition()
        self._closed = False
        self._thread = threading.Thread(target=self._listen, daemon=True)
        self._thread.start()

    def close(self):
        self._closed = True
        self._thread.join()
        self._socket.close()

    def _listen(self):
        while not self._closed:
            try:
                packet, ancillary, _, (device, protocol, kind, *_) = self._socket.recvmsg(65536, 64)
            except socket.timeout:
                continue
            if protocol not in (ETH_P_IP, ETH_P_IPV6) or not Datagram.is_udp(packet):
                continue
            when = next(seconds + nanoseconds / 1e9 for _, number, value in ancillary if number == SO_TIMESTAMPNS
                        for seconds, nanoseconds in [struct.unpack("qq", value)])
            with self._changed:
                self._heard.append(Datagram(when, device, kind == socket.PACKET_OUTGOING, packet))
                self._changed.notify_all()

    def sent(self, device=None):
        """What left through that interface, or any: once per interface."""
        return [datagram for datagram in list(self._heard) if datagram.sent and device in (None, datagram.device)]

    def arrived(self, device):
        return [datagram for datagram in list(self._heard) if not datagram.sent and datagram.device == device]

    def announcements(self, device=None, disposed=False):
        """Of participants: alive, or gone."""
        return [data for datagram in self.sent(device) for data in datagram.data()
                if data.writer == PARTICIPANTS and bool(data.status & 1) == disposed]

    def wait_for(self, what, condition, limit=None):
        """Waits until condition() is true and returns its value; it is asked again after every datagram."""
        def complaint():
            heard = "\n".join(f"  {datagram}" for datagram in self._heard[-40:])
            return f"waited in vain for {what}; heard {len(self._heard)} datagrams, at last:\n{heard}"
        return harness.wait_until(self._changed, condition, limit, complaint)
