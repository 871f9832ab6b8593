#!/usr/bin/env python3
"""Writes a binary STL of a wavy sphere with 4 * RINGS * (RINGS - 1) triangles (500 rings: 998,000).

usage: wavy_sphere.py RINGS OUT.stl
"""
import math
import struct
import sys

rings, target = int(sys.argv[1]), sys.argv[2]


def point(i, k):
    polar, around = math.pi * i / rings, math.pi * (k % (2 * rings)) / rings
    if i in (0, rings):
        return (0.0, 0.0, 100.0 if i == 0 else -100.0)
    r = 100 + 1.5 * math.sin(12 * polar) * math.sin(10 * around)
    return (r * math.sin(polar) * math.cos(around), r * math.sin(polar) * math.sin(around), r * math.cos(polar))


record = struct.Struct("<12fH")
with open(target, "wb") as out:
    out.write(b"\0" * 80 + struct.pack("<I", 4 * rings * (rings - 1)))
    above = [point(0, k) for k in range(2 * rings + 1)]
    for i in range(rings):
        below = [point(i + 1, k) for k in range(2 * rings + 1)]
        for k in range(2 * rings):
            if i + 1 < rings:
                out.write(record.pack(0, 0, 0, *above[k], *below[k], *below[k + 1], 0))
            if i > 0:
                out.write(record.pack(0, 0, 0, *above[k], *below[k + 1], *above[k + 1], 0))
        above = below
