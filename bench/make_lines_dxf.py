#!/usr/bin/python3
# Writes a DXF of N LINEs (1,000,000 by default) for measuring dlview's load:
#   bench/make_lines_dxf.py OUT.dxf [N] [random|rows]
# "random" scatters short lines over a 10,000-unit square; "rows" draws them
# in rows, left to right and bottom to top, as a drawing program writes a
# drawing made region by region.
# About 98 bytes a line, as a CAD program writes them (handle, subclasses, layer, colour, z).
import random
import sys

out = sys.argv[1]
n = int(sys.argv[2]) if len(sys.argv) > 2 else 1000000
rows = len(sys.argv) > 3 and sys.argv[3] == "rows"
side = int(n ** 0.5) + 1
rng = random.Random(19)
with open(out, "w") as f:
    f.write("0\nSECTION\n2\nENTITIES\n")
    for i in range(n):
        if rows:
            x = (i % side) * 10000.0 / side
            y = (i // side) * 10000.0 / side
        else:
            x = rng.uniform(0, 10000)
            y = rng.uniform(0, 10000)
        f.write("0\nLINE\n5\n%X\n100\nAcDbEntity\n8\n0\n62\n%d\n100\nAcDbLine\n10\n%.4f\n20\n%.4f\n30\n0.0\n11\n%.4f\n21\n%.4f\n31\n0.0\n"
                % (0x100 + i, 1 + i % 7, x, y, x + rng.uniform(-50, 50), y + rng.uniform(-50, 50)))
    f.write("0\nENDSEC\n0\nEOF\n")
