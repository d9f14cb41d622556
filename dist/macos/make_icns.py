#!/usr/bin/env python3
"""Renders dist/icons/zq.tarvel.svg into Tarvel.icns for the Mac bundle (needs rsvg-convert).

An .icns file is the tag "icns", the file's length, then one entry per size: a four-letter type,
the entry's length with its 8-byte header, and a PNG. Run it again when the icon changes.
"""
import pathlib
import struct
import subprocess
import sys

# The types that hold PNG data, by the pixel size they hold.
TYPES = [("icp4", 16), ("icp5", 32), ("ic11", 32), ("ic07", 128), ("ic12", 64), ("ic08", 256),
         ("ic13", 256), ("ic09", 512), ("ic14", 512), ("ic10", 1024)]

here = pathlib.Path(__file__).resolve().parent
svg = here.parent / "icons" / "zq.tarvel.svg"
entries = b""
for kind, size in TYPES:
    png = subprocess.run(["rsvg-convert", "--width", str(size), "--height", str(size), str(svg)],
                         check=True, capture_output=True).stdout
    if not png.startswith(b"\x89PNG"):
        sys.exit(f"rsvg-convert gave no PNG for {size} pixels")
    entries += kind.encode("ascii") + struct.pack(">I", 8 + len(png)) + png
(here / "Tarvel.icns").write_bytes(b"icns" + struct.pack(">I", 8 + len(entries)) + entries)
