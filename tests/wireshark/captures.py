"""Random CAN frames, sound and damaged, and capture files of them."""

import random
import struct

EXTENDED, REMOTE, ERROR = 0x80000000, 0x40000000, 0x20000000
LINK_SOCKETCAN, LINK_COOKED, LINK_COOKED_2 = 227, 113, 276
COOKED_HEADER = struct.pack(">HHHQ", 0, 280, 0, 0)
CAN, CAN_FD = b"\0\x0C", b"\0\x0D"


def packet(identifier, data, length=None):
    """A classical frame as SocketCAN hands it out, of 16 bytes."""
    length = len(data) if length is None else length
    return struct.pack(">IB3x", identifier, length) + data.ljust(8, b"\0")


def cooked(socket_can):
    """The packet behind a cooked header, where the identifier has the byte order of the host."""
    protocol = CAN if len(socket_can) <= 16 else CAN_FD
    return COOKED_HEADER + protocol + socket_can[3::-1] + socket_can[4:]


def cooked_2(interface, socket_can):
    """As tcpdump writes it of all interfaces."""
    header = struct.pack(">2sHIHBBQ", CAN, 0, interface, 280, 0, 0, 0)
    return header + socket_can[3::-1] + socket_can[4:]


def frame(literal):
    """The packet of a frame as 0F800001#20."""
    identifier, _, data = literal.partition("#")
    return packet(EXTENDED | int(identifier, 16), bytes.fromhex(data))


def write_pcap(path, link, packets, times=None):
    """Times are microseconds, by default the numbers of the packets. A packet may be a pair: its
    bytes, and how many there were on the wire."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, link))
        for time, item in zip(times or range(len(packets)), packets, strict=True):
            content, size = item if isinstance(item, tuple) else (item, len(item))
            seconds, micros = divmod(time, 1000000)
            file.write(struct.pack("<IIII", 1600000000 + seconds, micros, len(content), size) + content)


def write_pcapng(path, packets):
    """Of two interfaces; a packet is a pair: number of the interface and bytes."""

    def block(kind, body):
        size = len(body) + 12
        return struct.pack("<II", kind, size) + body + struct.pack("<I", size)

    with open(path, "wb") as file:
        file.write(block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)))
        for _ in range(2):
            file.write(block(1, struct.pack("<HHI", LINK_SOCKETCAN, 0, 0)))
        for time, (interface, content) in enumerate(packets):
            header = struct.pack("<IIIII", interface, 0, time, len(content), len(content))
            file.write(block(6, header + content))


class RandomFrames:
    """Frames of every kind; most are Tarn messages, of any type, length and payload."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def next(self):
        kind = self.random.random()
        if kind < 0.55:
            return self.data_frame()
        if kind < 0.70:
            return self.chcp_frame()
        if kind < 0.80:
            return self.odd_float()
        if kind < 0.92:
            return self.any_length()
        return self.no_tarn()

    def bytes(self, size):
        return self.random.randbytes(size)

    def bits(self, count):
        return self.random.getrandbits(count)

    def data_frame(self):
        """The payload fits its type, most often."""
        identifier = self.bits(28)
        data_type = self.random.choice([*range(14), *range(16)])
        element = [2] * 8 + [1, 2, 3, 4, 6, 4, 1, 1]
        size = element[data_type] * self.random.randint(1, 3)
        payload = self.bytes(size if size <= 6 else element[data_type])
        return self.framed(identifier, payload, data_type)

    def framed(self, identifier, payload, data_type):
        status = bytes([self.bits(4) << 4 | data_type])
        module = self.bytes(1) if identifier & 1 << 22 else b""
        return packet(EXTENDED | identifier, payload + status + module)

    def chcp_frame(self):
        size = 7 if self.random.random() < 0.7 else self.random.randint(0, 8)
        data = bytearray(self.bytes(size))
        if size == 7 and self.random.random() < 0.7:
            data[5] %= 7
        return packet(EXTENDED | 1 << 28 | self.bits(28), bytes(data))

    def odd_float(self):
        """Infinities, NaN, zeroes, the smallest numbers."""
        exponent = self.random.choice([0, 0xFF, self.bits(8)])
        mantissa = self.random.choice([0, 1, self.bits(23)])
        word = self.bits(1) << 31 | exponent << 23 | mantissa
        return self.framed(self.bits(28), struct.pack("<I", word), 13)

    def any_length(self):
        return packet(EXTENDED | self.bits(28), self.bytes(self.random.randint(0, 8)))

    def no_tarn(self):
        data = self.bytes(self.random.randint(0, 8))
        return self.random.choice(
            [
                packet(self.bits(11), data),
                packet(EXTENDED | REMOTE | self.bits(29), b"", self.random.randint(0, 8)),
                packet(REMOTE | self.bits(11), b"", self.random.randint(0, 8)),
                packet(ERROR | self.bits(9), self.bytes(8)),
                packet(EXTENDED | ERROR | self.bits(9), self.bytes(8)),
                self.flexible(),
            ]
        )

    def flexible(self):
        """A CAN FD frame."""
        size = self.random.choice([8, 12, 16, 64])
        return struct.pack(">IBB2x", EXTENDED | self.bits(29), size, 4) + self.bytes(64)

    def damaged(self):
        """A packet that was cut, has bits turned over, or is noise."""
        content = bytearray(self.next())
        way = self.bits(2)
        if way == 0:
            return bytes(content[: self.random.randint(0, len(content))])
        if way == 1:
            return bytes(content[: self.random.randint(0, len(content))]), len(content)
        if way == 2:
            for _ in range(self.random.randint(1, 6)):
                content[self.random.randrange(len(content))] ^= 1 << self.bits(3)
            return bytes(content)
        return self.bytes(self.random.randint(0, 80))
