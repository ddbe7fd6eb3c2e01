#!/usr/bin/python3
# Writes the small DXF files of tests/data/dxf, one per rule the reader keeps.
# Run from anywhere: python3-ezdxf (Debian) writes them; the tests read the
# committed files and do not need it.
import math
import os

import ezdxf

HERE = os.path.dirname(os.path.abspath(__file__))


def save(doc, name):
    doc.saveas(os.path.join(HERE, name))


# MTEXT longer than one chunk of 250 characters: the chunks (code 3) come
# before the last part (code 1), and all of it is the text.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
words = " ".join("word%03d" % i for i in range(80))  # 639 characters
msp.add_mtext("BEGIN " + words + " END", dxfattribs={"insert": (0, 0), "char_height": 2.5})
save(doc, "mtext_chunks.dxf")

# Extrusion (0, 0, -1): the plane seen from below, x mirrored. An arc centred
# at (10, 0) of the plane from 0 to 90 degrees lands centred at (-10, 0),
# from (-15, 0) to (-10, 5); a polyline at (1, 1)-(4, 1) lands at (-1, 1)-(-4, 1);
# an INSERT at (20, 0) lands at (-20, 0) with its block mirrored.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
mirror = {"extrusion": (0, 0, -1)}
msp.add_arc((10, 0), 5, 0, 90, dxfattribs=mirror)
msp.add_lwpolyline([(1, 1), (4, 1)], dxfattribs=mirror)
block = doc.blocks.new("ARROW")
block.add_line((0, 0), (3, 1))
msp.add_blockref("ARROW", (20, 0), dxfattribs=mirror)
# A reference: an arc of the same place in the plain plane.
msp.add_arc((0, -20), 5, 0, 90)
save(doc, "ocs_mirrored.dxf")

# Model space holds one line; layout "Title" a frame, layout "Second" a
# circle. Only model space is read unless a layout is asked for.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_line((0, 0), (100, 50))
title = doc.layouts.new("Title")
title.add_lwpolyline([(0, 0), (420, 0), (420, 297), (0, 297)], close=True)
second = doc.layouts.new("Second")
second.add_circle((50, 50), 25)
second.add_circle((150, 50), 25)
save(doc, "paper_space.dxf")

# Polyline widths: a constant width of 2 along (0, 0)-(10, 0)-(10, 10); an
# arrow head from 4 wide at (20, 0) to a point at (30, 0); a POLYLINE whose
# default width of 1 applies to its vertices, closed into a square.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_lwpolyline([(0, 0), (10, 0), (10, 10)], dxfattribs={"const_width": 2})
msp.add_lwpolyline([(20, 0, 4, 0), (30, 0, 0, 0)], format="xyse")
msp.add_polyline2d([(40, 0), (50, 0), (50, 10), (40, 10)], close=True,
                   dxfattribs={"default_start_width": 1, "default_end_width": 1})
save(doc, "polyline_widths.dxf")

# SPLINE: a clamped cubic B-spline through (0, 0) and (30, 0) with control
# points (10, 20) and (20, 20), whose middle is at (15, 15); a rational
# quadratic quarter circle of radius 10 about (50, 0) from (60, 0) to (50, 10)
# (weights 1, 1/sqrt(2), 1); a fit-point spline through (0, -20), (10, -10),
# (20, -20). LEADER: three vertices. DIMENSION: a linear one with its block.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_open_spline([(0, 0), (10, 20), (20, 20), (30, 0)], degree=3)
msp.add_rational_spline([(60, 0), (60, 10), (50, 10)], [1, math.sqrt(0.5), 1], degree=2)
msp.add_spline(fit_points=[(0, -20), (10, -10), (20, -20)])
msp.add_leader([(40, -20), (45, -15), (55, -15)])
dim = msp.add_linear_dim(base=(0, 30), p1=(0, 25), p2=(30, 25))
dim.render()
save(doc, "spline_leader_dimension.dxf")

# Text layout: an MTEXT paragraph of 2.5 high in a box 40 wide, which wraps;
# a TEXT aligned between (0, -40) and (30, -40), its height scaled to fit.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_mtext("The quick brown fox jumps over the lazy dog and keeps running along the "
              "fence until the field ends at the river",
              dxfattribs={"insert": (0, 0), "char_height": 2.5, "width": 40})
text = msp.add_text("ALIGNED", dxfattribs={"height": 2})
text.set_placement((0, -40), (30, -40), align=ezdxf.enums.TextEntityAlignment.ALIGNED)
save(doc, "text_layout.dxf")

# Patterned HATCH: ANSI31 (lines at 45 degrees) at scale 2 in the square
# (0, 0)-(40, 40) with a square island (10, 10)-(30, 30); a dashed pattern
# (ANSI33: lines and dashes) in (50, 0)-(90, 40).
doc = ezdxf.new("R2010")
msp = doc.modelspace()
h = msp.add_hatch()
h.set_pattern_fill("ANSI31", scale=2)
h.paths.add_polyline_path([(0, 0), (40, 0), (40, 40), (0, 40)], is_closed=True, flags=1)
h.paths.add_polyline_path([(10, 10), (30, 10), (30, 30), (10, 30)], is_closed=True, flags=16)
h = msp.add_hatch()
h.set_pattern_fill("ANSI33", scale=2)
h.paths.add_polyline_path([(50, 0), (90, 0), (90, 40), (50, 40)], is_closed=True, flags=1)
save(doc, "hatch_pattern.dxf")

# Line types: $LTSCALE 2; a LINE (0, 0)-(100, 0) DASHED (dash 0.5, gap 0.25
# in the table, so 1 and 0.5 here); one at y 10 BYLAYER on layer "HIDDEN"
# whose line type is DASHDOT (dashes and dots); one at y 20 DASHED with its own scale 4; a
# CIRCLE of radius 10 at (50, 40) with CENTER; a continuous LINE at y 60.
doc = ezdxf.new("R2010", setup=["linetypes"])
doc.header["$LTSCALE"] = 2
doc.layers.add("HIDDEN", linetype="DASHDOT")
msp = doc.modelspace()
msp.add_line((0, 0), (100, 0), dxfattribs={"linetype": "DASHED"})
msp.add_line((0, 10), (100, 10), dxfattribs={"layer": "HIDDEN"})
msp.add_line((0, 20), (100, 20), dxfattribs={"linetype": "DASHED", "ltscale": 4})
msp.add_circle((50, 40), 10, dxfattribs={"linetype": "CENTER"})
msp.add_line((0, 60), (100, 60))
save(doc, "line_types.dxf")

# IMAGE: one of a 2 x 1 PNG written here (pixel.png, beside the drawing),
# 20 x 10 units at (0, 0); one of a file that is not there, 10 x 10 at (30, 0).
def write_png(path, width, height):
    import struct
    import zlib

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    rows = b"".join(b"\0" + b"\xff\x00\x00" * width for _ in range(height))
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(rows)))
        f.write(chunk(b"IEND", b""))


write_png(os.path.join(HERE, "pixel.png"), 2, 1)
doc = ezdxf.new("R2010")
msp = doc.modelspace()
present = doc.add_image_def(filename="pixel.png", size_in_pixel=(2, 1))
msp.add_image(present, insert=(0, 0), size_in_units=(20, 10))
missing = doc.add_image_def(filename="C:\\drawings\\missing.png", size_in_pixel=(100, 100))
msp.add_image(missing, insert=(30, 0), size_in_units=(10, 10))
save(doc, "images.dxf")

# TEXT width factor, oblique angle and "fit": "WIDE" 2 high at (0, 0) with
# width factor 2; "SLANT" 2 high at (0, -10) leaning 30 degrees; "FIT" 2 high
# fitted between (0, -20) and (40, -20); a plain "PLAIN" at (0, 10) stays a
# Text.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_text("PLAIN", dxfattribs={"height": 2, "insert": (0, 10)})
msp.add_text("WIDE", dxfattribs={"height": 2, "insert": (0, 0), "width": 2})
msp.add_text("SLANT", dxfattribs={"height": 2, "insert": (0, -10), "oblique": 30})
text = msp.add_text("FIT", dxfattribs={"height": 2})
text.set_placement((0, -20), (40, -20), align=ezdxf.enums.TextEntityAlignment.FIT)
save(doc, "text_width_oblique.dxf")

# Lineweights, shown ($LWDISPLAY 1): a LINE at y 0 of the default weight; at
# y 10 of 1 mm; at y 20 BYLAYER on layer "HEAVY" of 0.5 mm; at y 30 of the
# default again; an INSERT at (0, 40) of 2.11 mm of a block whose line is
# BYBLOCK and whose circle has 0.3 mm of its own.
doc = ezdxf.new("R2010")
doc.header["$LWDISPLAY"] = 1
doc.layers.add("HEAVY", lineweight=50)
block = doc.blocks.new("W")
block.add_line((0, 0), (100, 0), dxfattribs={"lineweight": -2})
block.add_circle((50, 5), 3, dxfattribs={"lineweight": 30})
msp = doc.modelspace()
msp.add_line((0, 0), (100, 0))
msp.add_line((0, 10), (100, 10), dxfattribs={"lineweight": 100})
msp.add_line((0, 20), (100, 20), dxfattribs={"layer": "HEAVY"})
msp.add_line((0, 30), (100, 30))
msp.add_blockref("W", (0, 40), dxfattribs={"lineweight": 211})
save(doc, "lineweights.dxf")

# DIMENSIONs without their blocks (not rendered), built from their points: a
# radius of 10 about (0, 0) at 45 degrees; a diameter of 20 about (30, 0) at
# 30 degrees; an angle of 45 degrees between two lines meeting at (50, 0),
# its arc through (65, 5); one of 90 degrees by three points about (90, 0),
# its arc through (100, 15); ordinates of (130, 10) from (120, 0) along x
# (leader up to (130, 20)) and along y (leader right to (140, 10)).
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_radius_dim(center=(0, 0), radius=10, angle=45)
msp.add_diameter_dim(center=(30, 0), radius=10, angle=30)
msp.add_angular_dim_2l(base=(65, 5), line1=((50, 0), (80, 0)), line2=((50, 0), (70, 20)))
msp.add_angular_dim_3p(base=(100, 15), center=(90, 0), p1=(110, 0), p2=(90, 20))
msp.add_ordinate_x_dim(feature_location=(130, 10), offset=(0, 10), origin=(120, 0))
msp.add_ordinate_y_dim(feature_location=(130, 10), offset=(10, 0), origin=(120, 0))
save(doc, "dimensions_from_points.dxf")

# Line types on wide polylines: a LWPOLYLINE (0, 0)-(100, 0) 2 wide in
# "LONG" (dash 5, gap 2.5): 14 filled dashes, the last cut at 100; one
# (0, 10)-(100, 10) narrowing from 4 to 0 in "DOTS" (a dot every 10): 10
# squares, as wide as the line where they fall.
doc = ezdxf.new("R2010")
doc.linetypes.add("LONG", pattern=[7.5, 5, -2.5], description="long dashes")
doc.linetypes.add("DOTS", pattern=[10, 0, -10], description="dots")
msp = doc.modelspace()
msp.add_lwpolyline([(0, 0), (100, 0)], dxfattribs={"const_width": 2, "linetype": "LONG"})
msp.add_lwpolyline([(0, 10, 4, 0), (100, 10, 0, 0)], format="xyse", dxfattribs={"linetype": "DOTS"})
save(doc, "wide_line_types.dxf")

# The STYLE table's width factor and oblique angle as a TEXT's defaults: style
# "NARROW" is 0.5 wide and leans 15 degrees. "DEFAULTS" 2 high at (0, 0) in
# that style takes both; "OWN" 2 high at (0, -10) in that style gives its own
# width factor 2 (code 41) and takes the style's slant; "PLAIN" at (0, 10) in
# STANDARD stays a Text.
doc = ezdxf.new("R2010")
narrow = doc.styles.new("NARROW", dxfattribs={"font": "txt", "width": 0.5, "oblique": 15})
msp = doc.modelspace()
msp.add_text("PLAIN", dxfattribs={"height": 2, "insert": (0, 10)})
msp.add_text("DEFAULTS", dxfattribs={"height": 2, "insert": (0, 0), "style": "NARROW"})
msp.add_text("OWN", dxfattribs={"height": 2, "insert": (0, -10), "style": "NARROW", "width": 2})
save(doc, "text_style_defaults.dxf")

# Fit-point splines as CAD interpolates them (a cubic through the points over
# chord-length parameters): "natural" through (0, 0), (10, 8), (25, 2),
# (35, 12), (50, 5) with no tangents given (no curvature at its ends);
# "tangents" through (0, -20), (15, -12), (30, -22), (45, -15), leaving along
# (1, 1) and arriving along (1, -1) (codes 12 and 13).
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_spline(fit_points=[(0, 0), (10, 8), (25, 2), (35, 12), (50, 5)])
tangents = msp.add_spline(fit_points=[(0, -20), (15, -12), (30, -22), (45, -15)])
tangents.dxf.start_tangent = (1, 1, 0)
tangents.dxf.end_tangent = (1, -1, 0)
save(doc, "spline_fit_points.dxf")

# A closed fit-point spline is periodic: through (0, 0), (20, 0), (20, 10),
# (0, 10) and back, as smooth at (0, 0) as anywhere.
doc = ezdxf.new("R2010")
msp = doc.modelspace()
closed = msp.add_spline(fit_points=[(0, 0), (20, 0), (20, 10), (0, 10)])
closed.closed = True
save(doc, "spline_fit_closed.dxf")

# MTEXT inline codes, one MTEXT 2.5 high at (0, 0), attached top left, three
# paragraphs: "A" plain, "B" red by index (\C1), "C" blue by true colour
# (\c16711680: blue in the high byte), "D" 5 high (\H5), "E" half the height
# (\H0.5x), each in braces that end it; then "F" in bold italic Arial, "GG"
# twice as wide (\W2), "H" leaning 20 degrees (\Q20), "II" tracked twice as
# far apart (\T2); then "Under" underlined, "Over" overlined, and the stacks
# 1/2 (over a bar), 3^4 (no bar) and 5#6 (across a slash).
doc = ezdxf.new("R2010")
msp = doc.modelspace()
msp.add_mtext(
    r"A{\C1;B}{\c16711680;C}{\H5;D}{\H0.5x;E}\P"
    r"{\fArial|b1|i1|c0|p34;F}{\W2;GG}{\Q20;H}{\T2;II}\P"
    r"{\LUnder} {\OOver} \S1/2;\S3^4;\S5#6;",
    dxfattribs={"insert": (0, 0), "char_height": 2.5})
save(doc, "mtext_inline_codes.dxf")

# Lineweights finer than a pixel ($LWDISPLAY 1): red LINEs of 0.13 mm at y 0
# and 0.20 mm at y 10, a black one of 0.05 mm at y 20, black ones of 0.25 mm
# at y 30 and 0.00 mm (CAD's hairline) at y 40; a red circle of 0.13 mm about
# (50, 60); a red TEXT of 0.13 mm at (0, 70), which the weight does not touch.
doc = ezdxf.new("R2010")
doc.header["$LWDISPLAY"] = 1
msp = doc.modelspace()
msp.add_line((0, 0), (100, 0), dxfattribs={"lineweight": 13, "color": 1})
msp.add_line((0, 10), (100, 10), dxfattribs={"lineweight": 20, "color": 1})
msp.add_line((0, 20), (100, 20), dxfattribs={"lineweight": 5})
msp.add_line((0, 30), (100, 30), dxfattribs={"lineweight": 25})
msp.add_line((0, 40), (100, 40), dxfattribs={"lineweight": 0})
msp.add_circle((50, 60), 5, dxfattribs={"lineweight": 13, "color": 1})
msp.add_text("FINE", dxfattribs={"insert": (0, 70), "height": 5, "lineweight": 13, "color": 1})
save(doc, "lineweights_fine.dxf")
