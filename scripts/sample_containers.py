"""Bytes of MP4 files and of protobuf messages, for the scripts that make samples of motion logs."""

import struct


def box(name, *content):
    data = b"".join(content)
    return struct.pack(">I", 8 + len(data)) + name + data


def full(name, *content):
    return box(name, bytes(4), *content)


MATRIX = struct.pack(">9I", 65536, 0, 0, 0, 65536, 0, 0, 0, 0x40000000)
SCALE = 60000  # ticks in a second


def track(number, entry, packets, position, start):
    """A track of packets (bytes, ticks), which starts at `start` ticks."""
    length = sum(ticks for _, ticks in packets)
    stbl = box(
        b"stbl",
        full(b"stsd", struct.pack(">I", 1), entry),
        full(b"stts", struct.pack(">I", len(packets)),
             *(struct.pack(">II", 1, ticks) for _, ticks in packets)),
        full(b"stsc", struct.pack(">IIII", 1, 1, len(packets), 1)),
        full(b"stsz", struct.pack(">II", 0, len(packets)),
             *(struct.pack(">I", len(data)) for data, _ in packets)),
        full(b"stco", struct.pack(">II", 1, position)))
    dinf = box(b"dinf", full(b"dref", struct.pack(">I", 1), box(b"url ", b"\0\0\0\1")))
    return box(
        b"trak",
        full(b"tkhd", struct.pack(">5I", 0, 0, number, 0, start + length), bytes(16), MATRIX, bytes(8)),
        box(b"edts", full(b"elst", struct.pack(">IIiIIiI", 2, start, -1, 65536, length, 0, 65536))),
        box(b"mdia", full(b"mdhd", struct.pack(">5I", 0, 0, SCALE, length, 0)),
            full(b"hdlr", bytes(4), b"meta", bytes(13)),
            box(b"minf", full(b"nmhd"), dinf, stbl)))


def movie(tracks, start):
    """A file of tracks (sample entry, packets of (bytes, ticks)), which all start at `start` seconds."""
    kind = box(b"ftyp", b"isom", bytes(4), b"isom")
    position, boxes, data = len(kind) + 8, [], b""
    for number, (entry, packets) in enumerate(tracks, 1):
        boxes.append(track(number, entry, packets, position + len(data), round(start * SCALE)))
        data += b"".join(packet for packet, _ in packets)
    length = max(sum(ticks for _, ticks in packets) for _, packets in tracks)
    head = full(b"mvhd", struct.pack(">6I", 0, 0, SCALE, length, 65536, 0x01000000), bytes(8), MATRIX,
                bytes(24), struct.pack(">I", len(tracks) + 1))
    return kind + box(b"mdat", data) + box(b"moov", head, *boxes)


def varint(value):
    return bytes([value]) if value < 128 else bytes([value & 127 | 128]) + varint(value >> 7)


def field(number, value):
    """A field of a message: whole numbers, one of 4 bytes, or a message."""
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    if isinstance(value, float):
        return varint(number << 3 | 5) + struct.pack("<f", value)
    return varint(number << 3 | 2) + varint(len(value)) + value
