#!/usr/bin/env python3
"""Writes the image reader's seed corpus: tiny valid TIFF and PNG files of each voxel type.

    python3 fuzz/make_image_corpus.py fuzz/corpus/image
"""
import struct
import sys
import zlib
from pathlib import Path

# (bits per sample, sample format, struct code) of each voxel type
TYPES = {"uint8": (8, 1, "B"), "uint16": (16, 1, "H"), "int32": (32, 2, "i"), "float32": (32, 3, "f")}


def tiff(nx, ny, nz, voxel, order="<"):
    """One uncompressed strip per page, each page's directory after its voxels."""
    bits, fmt, code = TYPES[voxel]
    magic = b"II*\x00" if order == "<" else b"MM\x00*"
    out = bytearray(magic + struct.pack(order + "I", 0))
    previous = 4  # where the offset of the next directory goes
    description = b"voxel_size=0.5 0.5 2\x00"
    for z in range(nz):
        voxels = b"".join(struct.pack(order + code, (x + 3 * y + 7 * z) % 100) for y in range(ny) for x in range(nx))
        data = len(out)
        out += voxels + description
        text = data + len(voxels)
        if len(out) % 2:
            out += b"\x00"
        ifd = len(out)
        struct.pack_into(order + "I", out, previous, ifd)
        entries = [(256, 4, 1, nx), (257, 4, 1, ny), (258, 3, 1, bits), (259, 3, 1, 1), (262, 3, 1, 1),
                   (270, 2, len(description), text), (273, 4, 1, data), (277, 3, 1, 1), (278, 4, 1, ny),
                   (279, 4, 1, len(voxels)), (339, 3, 1, fmt)]
        out += struct.pack(order + "H", len(entries))
        for tag, kind, count, value in entries:
            packed = struct.pack(order + "H", value) + b"\x00\x00" if kind == 3 else struct.pack(order + "I", value)
            out += struct.pack(order + "HHI", tag, kind, count) + packed
        previous = len(out)
        out += struct.pack(order + "I", 0)
    return bytes(out)


# A grey PNG; tests/tool/tool_test.py makes its large image here too.
def png(nx, ny, depth, value=lambda x, y: (x * 40 + y) % 256):
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    code = "B" if depth == 8 else "H"
    rows = b"".join(b"\x00" + b"".join(struct.pack(">" + code, value(x, y)) for x in range(nx)) for y in range(ny))
    header = struct.pack(">IIBBBBB", nx, ny, depth, 0, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def main(folder):
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for voxel in TYPES:
        (folder / f"{voxel}_2d.tif").write_bytes(tiff(5, 3, 1, voxel))
        (folder / f"{voxel}_3d.tif").write_bytes(tiff(3, 2, 3, voxel, ">" if voxel == "uint16" else "<"))
    (folder / "grey8.png").write_bytes(png(5, 3, 8))
    (folder / "grey16.png").write_bytes(png(4, 2, 16))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "fuzz/corpus/image")
