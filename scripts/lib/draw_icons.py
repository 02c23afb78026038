#!/usr/bin/env python3
"""Draws the Passway extension's icons (extension/icons/passway-N.png, N = 16, 32, 48, 128): a blue shield with
a white keyhole, anti-aliased, on a transparent ground. Its lower right stays plain blue, where the browsers
put the badge (`?`, `!` in white on red). Needs nothing beyond Python.

usage: draw_icons.py [OUT_DIR]   (default: extension/icons of this tree)"""
import math
import os
import struct
import sys
import zlib

BLUE, WHITE = (31, 78, 140), (255, 255, 255)
SAMPLES = 5  # per side of a pixel


def shield(x, y):
    """Whether the point (unit square, y down) is inside the shield."""
    if y < 0.06 or y > 0.96:
        return False
    top = 0.06 + 0.05 * (1 - ((x - 0.5) / 0.40) ** 2)  # a slight arch
    if y < top:
        return False
    half = 0.40 if y <= 0.52 else 0.40 * math.sqrt(max(0.0, (0.96 - y) / 0.44))
    return abs(x - 0.5) <= half


def keyhole(x, y):
    if (x - 0.5) ** 2 + (y - 0.40) ** 2 <= 0.12 ** 2:
        return True
    if 0.43 <= y <= 0.72:
        return abs(x - 0.5) <= 0.045 + 0.04 * (y - 0.43) / 0.29
    return False


def pixel(size, px, py):
    """RGBA of one pixel: the share of its samples in the shield and in the keyhole."""
    inside = hole = 0
    for sy in range(SAMPLES):
        for sx in range(SAMPLES):
            x, y = (px + (sx + 0.5) / SAMPLES) / size, (py + (sy + 0.5) / SAMPLES) / size
            if shield(x, y):
                inside += 1
                hole += keyhole(x, y)
    if not inside:
        return (0, 0, 0, 0)
    share = hole / inside
    rgb = tuple(round(b + (w - b) * share) for b, w in zip(BLUE, WHITE))
    return rgb + (round(255 * inside / SAMPLES ** 2),)


def png(size):
    rows = b''.join(b'\0' + bytes(c for px in range(size) for c in pixel(size, px, py)) for py in range(size))
    chunk = lambda kind, data: struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))
    return (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', size, size, 8, 6, 0, 0, 0)) +
            chunk(b'IDAT', zlib.compress(rows, 9)) + chunk(b'IEND', b''))


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), '..', '..', 'extension', 'icons')
    os.makedirs(out, exist_ok=True)
    for size in (16, 32, 48, 128):
        with open(os.path.join(out, 'passway-%d.png' % size), 'wb') as f:
            f.write(png(size))


if __name__ == '__main__':
    main()
