#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Blob analysis of an image file: prints a table of the parts found and writes a colour overlay.

    blob_table.py IMAGE [--band LOW:HIGH|auto|auto-dark|auto-light] [--min-area N] [--overlay OUT.png]
                        [--json OUT.json]

Reads 8-bit PNG (grey or colour, not interlaced), PGM or PPM with nothing but the standard library and numpy;
colour becomes grey with the BT.601 weights. Without an image it analyses a generated scene.
"""
import argparse
import json
import struct
import sys
import zlib

import numpy as np

import ombrel


def read_png(data: bytes) -> np.ndarray:
    pos, chunks = 8, {}
    header = None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        chunks[kind] = chunks.get(kind, b"") + body
        pos += 12 + length
    width, height, depth, colour, _, _, interlace = header
    channels = {0: 1, 2: 3, 4: 2, 6: 4}.get(colour)
    if depth != 8 or channels is None or interlace:
        raise ValueError("only 8-bit grey or colour PNG files without interlacing are read here")
    raw = np.frombuffer(zlib.decompress(chunks[b"IDAT"]), np.uint8).reshape(height, 1 + width * channels)
    out = np.zeros((height, width * channels), np.int32)
    prev = np.zeros(width * channels, np.int32)
    for y in range(height):
        kind, line = raw[y, 0], raw[y, 1:].astype(np.int32)
        if kind == 0:
            row = line
        elif kind == 2:
            row = (line + prev) & 255
        else:  # Sub, Average and Paeth depend on the pixel to the left: row by row in Python
            row = np.zeros_like(line)
            for i in range(len(line)):
                a = row[i - channels] if i >= channels else 0
                b, c = prev[i], (prev[i - channels] if i >= channels else 0)
                if kind == 1:
                    pred = a
                elif kind == 3:
                    pred = (a + b) // 2
                else:
                    p = a + b - c
                    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                    pred = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                row[i] = (line[i] + pred) & 255
        out[y], prev = row, row
    pixels = out.reshape(height, width, channels)
    return pixels[..., :3] if channels >= 3 else pixels[..., :1]


def read_pnm(data: bytes) -> np.ndarray:
    fields, pos = [], 2
    while len(fields) < 3:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b"#":
            pos = data.index(b"\n", pos)
            continue
        end = pos
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(int(data[pos:end]))
        pos = end
    width, height, maxval = fields
    channels = 3 if data[:2] == b"P6" else 1
    if maxval > 255:
        raise ValueError("only 8-bit PGM/PPM files are read here")
    return np.frombuffer(data, np.uint8, width * height * channels, pos + 1).reshape(height, width, channels)


def read_grey(path: str) -> np.ndarray:
    with open(path, "rb") as f:
        data = f.read()
    if data[:8] == b"\x89PNG\r\n\x1a\n":
        pixels = read_png(data)
    elif data[:2] in (b"P5", b"P6"):
        pixels = read_pnm(data)
    else:
        raise ValueError(f"{path}: not a PNG, PGM or PPM file")
    if pixels.shape[2] == 1:
        return np.ascontiguousarray(pixels[..., 0], dtype=np.uint8)
    r, g, b = (pixels[..., i].astype(np.int32) for i in range(3))
    return ((299 * r + 587 * g + 114 * b + 500) // 1000).astype(np.uint8)


def write_png(path: str, rgb: np.ndarray) -> None:
    height, width, _ = rgb.shape
    raw = np.zeros((height, 1 + width * 3), np.uint8)
    raw[:, 1:] = rgb.reshape(height, width * 3)

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                chunk(b"IDAT", zlib.compress(raw.tobytes())) + chunk(b"IEND", b""))


def overlay(grey: np.ndarray, result: ombrel.BlobResult) -> np.ndarray:
    """The image in grey, each object tinted green and each hole orange, boxes in blue, centroids in red."""
    rgb = np.repeat(grey[..., None], 3, axis=2).astype(np.float32) * 0.6
    for region in result:
        l, t, r, b = (int(region.features[k]) for k in ("bbox_left", "bbox_top", "bbox_right", "bbox_bottom"))
        colour = (0, 200, 0) if region.kind == "object" else (255, 150, 0)
        box = rgb[t:b, l:r]
        box += (np.array(colour, np.float32) - box) * 0.35
        rgb[t, l:r] = rgb[b - 1, l:r] = (60, 120, 255)
        rgb[t:b, l] = rgb[t:b, r - 1] = (60, 120, 255)
        cx, cy = (int(round(c)) for c in region.centroid)
        rgb[max(cy - 2, 0):cy + 3, cx] = rgb[cy, max(cx - 2, 0):cx + 3] = (255, 0, 0)
    return np.clip(rgb, 0, 255).astype(np.uint8)


def generated_scene() -> np.ndarray:
    img = np.full((240, 320), 210, np.uint8)
    yy, xx = np.mgrid[0:240, 0:320]
    img[30:90, 40:140] = 30
    img[50:70, 70:100] = 210                                  # a hole in the plate
    img[(xx - 230) ** 2 + (yy - 150) ** 2 <= 45 ** 2] = 50    # a disc
    img[180:200, 20:300:40] = 60                              # a row of pads
    return img


def main(argv=None) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("image", nargs="?", help="PNG, PGM or PPM file (default: a generated scene)")
    parser.add_argument("--band", default="0:100",
                        help="grey values of the parts, LOW:HIGH (default 0:100), or auto, auto-dark, auto-light: "
                             "a band from Otsu's threshold")
    parser.add_argument("--min-area", type=int, default=20, help="smallest part in pixels (default 20)")
    parser.add_argument("--overlay", default="blobs-overlay.png", help="overlay PNG to write")
    parser.add_argument("--json", help="also write every region as JSON")
    args = parser.parse_args(argv)

    grey = read_grey(args.image) if args.image else generated_scene()
    band = args.band if args.band in ombrel.AUTO_BANDS else tuple(int(v) for v in args.band.split(":"))
    result = ombrel.blob(grey, band=band, min_area=args.min_area)
    chosen = result.band_choice
    otsu = f", Otsu threshold {chosen.threshold}" if chosen.threshold is not None else ""

    def number(value, width, digits):  # None (unknown after sampling) prints as "-"
        return f"{'-':>{width}}" if value is None else f"{value:>{width}.{digits}f}"

    print(f"{len(result.objects)} objects, {len(result) - len(result.objects)} holes "
          f"(band {chosen.band[0]}..{chosen.band[1]}{otsu}, min area {args.min_area} px; centroid = mean pixel "
          f"index, orientation in degrees from +x towards +y)")
    print(f"{'label':>5} {'kind':<6} {'parent':>6} {'area':>8} {'holes':>5} {'centroid x':>10} {'y':>8} "
          f"{'major':>7} {'minor':>7} {'orient.':>7} {'perimeter':>9} {'circ.':>6}")
    for r in result:
        print(f"{r.label:>5} {r.kind:<6} {r.parent.label if r.parent else 0:>6} {r.area:>8} "
              f"{len(r.holes):>5} {r.centroid[0]:>10.2f} {r.centroid[1]:>8.2f} {number(r.major_axis, 7, 2)} "
              f"{number(r.minor_axis, 7, 2)} {number(r.orientation, 7, 1)} {number(r.perimeter, 9, 1)} "
              f"{number(r.circularity, 6, 3)}")
    write_png(args.overlay, overlay(grey, result))
    print(f"overlay written to {args.overlay}")
    if args.json:
        with open(args.json, "w") as f:
            json.dump(result.to_dict(), f, indent=2)
    return 0


if __name__ == "__main__":
    sys.exit(main())
