#!/usr/bin/env python3
"""Makes the icons of a package from the program's AppIcon.ico.

    extract_icons.py ICON.ico --hicolor DIRECTORY NAME   a directory tree for Linux desktops
    extract_icons.py ICON.ico --icns OUTPUT.icns         every size that macOS has a name for

Both copy the pictures unchanged and use only those that the icon stores as PNG.
"""

import argparse
import struct
import sys
from pathlib import Path

ICO_HEADER = struct.Struct("<HHH")
ICO_ENTRY = struct.Struct("<BBBBHHII")
PNG_SIGNATURE = b"\x89PNG\r\n\x1a\n"

# The container's names for a PNG of each size in pixels. Some sizes have two names: 256 pixels are
# also 128 points on a high-resolution screen.
ICNS_TYPES = {
    16: [b"icp4"],
    32: [b"icp5", b"ic11"],
    64: [b"ic12"],
    128: [b"ic07"],
    256: [b"ic08", b"ic13"],
    512: [b"ic09", b"ic14"],
}


def read_pngs(data):
    """Maps sizes in pixels to PNGs. Raises ValueError if the data is not an icon."""
    if len(data) < ICO_HEADER.size or ICO_HEADER.unpack_from(data)[:2] != (0, 1):
        raise ValueError("not an icon file")
    count = ICO_HEADER.unpack_from(data)[2]
    if len(data) < ICO_HEADER.size + count * ICO_ENTRY.size:
        raise ValueError("the list of pictures is cut off")
    pngs = {}
    for index in range(count):
        entry = ICO_ENTRY.unpack_from(data, ICO_HEADER.size + index * ICO_ENTRY.size)
        size, length, start = entry[0] or 256, entry[6], entry[7]
        if start + length > len(data):
            raise ValueError(f"the picture of {size} pixels is cut off")
        picture = data[start : start + length]
        if picture.startswith(PNG_SIGNATURE):
            pngs[size] = picture
    return pngs


def make_icns(pngs):
    elements = b""
    for size, picture in sorted(pngs.items()):
        for name in ICNS_TYPES.get(size, []):
            elements += name + struct.pack(">I", 8 + len(picture)) + picture
    if not elements:
        raise ValueError("no picture has a size that macOS has a name for")
    return b"icns" + struct.pack(">I", 8 + len(elements)) + elements


def write_hicolor(pngs, directory, name):
    if not pngs:
        raise ValueError("no picture is a PNG")
    for size, picture in pngs.items():
        place = directory / f"{size}x{size}" / "apps"
        place.mkdir(parents=True, exist_ok=True)
        (place / f"{name}.png").write_bytes(picture)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("icon", type=Path)
    wanted = parser.add_mutually_exclusive_group(required=True)
    wanted.add_argument("--hicolor", nargs=2, metavar=("DIRECTORY", "NAME"))
    wanted.add_argument("--icns", metavar="OUTPUT")
    options = parser.parse_args()
    try:
        pngs = read_pngs(options.icon.read_bytes())
        if options.icns:
            Path(options.icns).write_bytes(make_icns(pngs))
        else:
            write_hicolor(pngs, Path(options.hicolor[0]), options.hicolor[1])
    except ValueError as problem:
        sys.exit(f"{options.icon}: {problem}")


if __name__ == "__main__":
    main()
