"""A small reader of OpenEXR files, written from the published layout of the format (scan lines; uncompressed and ZIP), so that
what is checked with it was not read by the library that wrote it."""

import struct
import zlib

TYPES = {0: "I", 1: "e", 2: "f"}  # uint, half, float
SIZES = {0: 4, 1: 2, 2: 4}


class Picture:
    """header: attribute name -> (type, bytes); channels: name -> list of values, row by row from the top."""

    def __init__(self, data):
        assert struct.unpack_from("<I", data)[0] == 20000630, "no OpenEXR file"
        self.flags = struct.unpack_from("<I", data, 4)[0] >> 8
        at = 8
        self.header = {}
        while data[at]:
            name, at = self._text(data, at)
            kind, at = self._text(data, at)
            size = struct.unpack_from("<i", data, at)[0]
            self.header[name] = (kind, data[at + 4 : at + 4 + size])
            at += 4 + size
        self._read_pixels(data, at + 1)

    @staticmethod
    def _text(data, at):
        end = data.index(b"\0", at)
        return data[at:end].decode("utf-8", "surrogateescape"), end + 1

    def value(self, name):
        """Texts, numbers and tuples of them, by the attribute's type."""
        kind, data = self.header[name]
        if kind == "string":
            return data.decode("utf-8")
        forms = {"float": "f", "int": "i", "v2f": "ff", "m44f": "16f", "box2i": "4i", "rational": "iI", "compression": "B"}
        values = struct.unpack("<" + forms[kind], data)
        return values[0] if len(values) == 1 else values

    def _channels(self):
        data, at, out = self.header["channels"][1], 0, []
        while data[at]:
            name, at = self._text(data, at)
            out.append((name, struct.unpack_from("<i", data, at)[0]))
            at += 16
        return out

    def _read_pixels(self, data, at):
        x0, y0, x1, y1 = self.value("dataWindow")
        self.width, self.height = x1 - x0 + 1, y1 - y0 + 1
        self.types = dict(self._channels())
        self.channels = {name: [] for name in self.types}
        compression = self.value("compression")
        lines = {0: 1, 2: 1, 3: 16}[compression]
        count = (self.height + lines - 1) // lines
        for offset in struct.unpack_from(f"<{count}Q", data, at):
            y, size = struct.unpack_from("<ii", data, offset)
            block = data[offset + 8 : offset + 8 + size]
            rows = min(lines, y1 - y + 1)
            whole = rows * self.width * sum(SIZES[t] for t in self.types.values())
            self._read_rows(self._unpacked(block, whole) if compression and size < whole else block, rows)

    @staticmethod
    def _unpacked(block, whole):
        # Bytes are differences to the one before, and stand in two halves: the even ones, then the odd ones.
        data = bytearray(zlib.decompress(block))
        assert len(data) == whole
        for i in range(1, whole):
            data[i] = (data[i - 1] + data[i] - 128) & 255
        out = bytearray(whole)
        half = (whole + 1) // 2
        out[0::2], out[1::2] = data[:half], data[half:]
        return bytes(out)

    def _read_rows(self, block, rows):
        at = 0
        for _ in range(rows):
            for name, kind in self.types.items():
                size = SIZES[kind] * self.width
                self.channels[name] += struct.unpack_from(f"<{self.width}{TYPES[kind]}", block, at)
                at += size
        assert at == len(block)


def read(file):
    with open(file, "rb") as opened:
        return Picture(opened.read())


def bits(value):
    """Of a float32."""
    return struct.unpack("<I", struct.pack("<f", value))[0]
