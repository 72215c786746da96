#!/usr/bin/env python3
"""Makes one style of the window's font, "Kelvane Sans", from an OpenType font with a free licence.

    derive_font.py [--percent PERCENT] SOURCE STYLE DPI OUTPUT.otf

The glyphs are those of the source. Two things change: the names, because the window asks for the
family by name, and the size of the em, which makes the letters larger or smaller.

The window's places are in pixels and its fonts in points. How many pixels a point has depends on the
system: one on macOS (72 dpi), one and a third on the others (96 dpi). The same font is therefore a quarter
smaller on a Mac, and one whose texts fill their labels there is cut off elsewhere. So a font is made for
the resolution of the system that the bundle is for, and has the same pixels there as the other one has
on the other systems.
"""

import argparse
import sys

from fontTools.ttLib import TTFont, TTLibError

FAMILY = "Kelvane Sans"

# What the pixels of the em are divided by, at 96 dpi; so every glyph is smaller at a given point size.
# Bold is the style of the 20 pt labels, which are lower than the lines of an ordinary font of that size: a
# font of 26.7 pixels becomes one of 17.8. Its capital letters come to 13 of the labels' 16 or 21 pixels,
# which leaves room for descenders. Regular has more room; its longest text is the bar's error.
EM_SCALE = {"Regular": 1.25, "Bold": 1.5}
EM_SCALE_DPI = 96

FAMILY_NAME, STYLE_NAME, UNIQUE_NAME, FULL_NAME, POSTSCRIPT_NAME = 1, 2, 3, 4, 6
TYPOGRAPHIC_FAMILY_NAME, TYPOGRAPHIC_STYLE_NAME, WWS_FAMILY_NAME, WWS_STYLE_NAME = 16, 17, 21, 22

# Bits of the table "OS/2" (italic, bold, regular) and of the table "head".
SELECTION_BOLD, SELECTION_REGULAR = 1 << 5, 1 << 6
SELECTION_STYLES = 1 << 0 | SELECTION_BOLD | SELECTION_REGULAR
MAC_STYLE_BOLD = 1 << 0


def rename(font, style):
    postscript_name = f"{FAMILY.replace(' ', '')}-{style}"
    names = {
        FAMILY_NAME: FAMILY,
        STYLE_NAME: style,
        UNIQUE_NAME: f"{postscript_name}:derived",
        FULL_NAME: f"{FAMILY} {style}",
        POSTSCRIPT_NAME: postscript_name,
        TYPOGRAPHIC_FAMILY_NAME: FAMILY,
        TYPOGRAPHIC_STYLE_NAME: style,
    }
    table = font["name"]
    for name_id in (*names, WWS_FAMILY_NAME, WWS_STYLE_NAME):
        table.removeNames(nameID=name_id)
    for name_id, text in names.items():
        table.setName(text, name_id, platformID=3, platEncID=1, langID=0x409)

    # A system may go by the weight instead of the names.
    is_bold = style == "Bold"
    font["OS/2"].usWeightClass = 700 if is_bold else 400
    font["OS/2"].fsSelection = font["OS/2"].fsSelection & ~SELECTION_STYLES | (
        SELECTION_BOLD if is_bold else SELECTION_REGULAR)
    font["head"].macStyle = MAC_STYLE_BOLD if is_bold else 0

    if "CFF " in font:
        compact_font = font["CFF "].cff
        compact_font.fontNames = [postscript_name]
        top = compact_font.topDictIndex[0]
        top.FamilyName = FAMILY
        top.FullName = names[FULL_NAME]
        top.Weight = style


def scale_em(font, scale):
    units = round(font["head"].unitsPerEm * scale)
    font["head"].unitsPerEm = units
    if "CFF " in font:
        font["CFF "].cff.topDictIndex[0].FontMatrix = [1 / units, 0, 0, 1 / units, 0, 0]


def open_font(path):
    try:
        # Without a new time stamp the same source always gives the same bytes.
        font = TTFont(path, recalcTimestamp=False)
    except (OSError, TTLibError) as error:
        sys.exit(f"derive_font.py: {path} cannot be read as a font: {error}")
    if "fvar" in font:
        sys.exit(f"derive_font.py: {path} has many styles in one file (a variable font); take the static "
                 "files of the styles Regular and Bold")
    return font


def percent(text):
    value = int(text)
    if not 50 <= value <= 200:
        raise argparse.ArgumentTypeError("give a number from 50 to 200")
    return value


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--percent", type=percent, default=100,
                        help="of the letters' usual size, from 50 to 200")
    parser.add_argument("source", metavar="SOURCE", help="a font file (.otf or .ttf) with one style")
    parser.add_argument("style", metavar="STYLE", choices=EM_SCALE, help="Regular or Bold")
    parser.add_argument("dpi", metavar="DPI", type=int, choices=(72, 96),
                        help="72 for macOS, 96 for the other systems")
    parser.add_argument("output", metavar="OUTPUT.otf")
    arguments = parser.parse_args()

    font = open_font(arguments.source)
    rename(font, arguments.style)
    scale_em(font, EM_SCALE[arguments.style] * arguments.dpi / EM_SCALE_DPI * 100 / arguments.percent)
    font.save(arguments.output)


if __name__ == "__main__":
    main()
