#!/usr/bin/env python3
"""Makes one style of the window's font, "Kelvane Sans", from an OpenType font with a free licence.

    derive_font.py SOURCE.otf STYLE OUTPUT.otf

The glyphs are those of the source. Two things change: the names, because the window asks for the
family by name, and the size of the em, because the window's labels are lower than the lines of an
ordinary 20 pt font: the label "Version" is 16 pixels high, the font's line 27 at 96 dpi.
"""

import argparse

from fontTools.ttLib import TTFont

FAMILY = "Kelvane Sans"

# How much larger the em becomes, and so how much smaller every glyph looks at a given point size.
# Bold is the style of the 20 pt labels: its capital letters come to 13 of their 16 or 21 pixels,
# which leaves room for descenders. Regular has more room; its longest text is the bar's error.
EM_SCALE = {"Regular": 1.25, "Bold": 1.5}

FAMILY_NAME, STYLE_NAME, UNIQUE_NAME, FULL_NAME, POSTSCRIPT_NAME = 1, 2, 3, 4, 6
TYPOGRAPHIC_FAMILY_NAME, TYPOGRAPHIC_STYLE_NAME, WWS_FAMILY_NAME, WWS_STYLE_NAME = 16, 17, 21, 22


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

    compact_font = font["CFF "].cff
    compact_font.fontNames = [postscript_name]
    top = compact_font.topDictIndex[0]
    top.FamilyName = FAMILY
    top.FullName = names[FULL_NAME]
    top.Weight = style


def enlarge_em(font, scale):
    units = round(font["head"].unitsPerEm * scale)
    font["head"].unitsPerEm = units
    font["CFF "].cff.topDictIndex[0].FontMatrix = [1 / units, 0, 0, 1 / units, 0, 0]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("source")
    parser.add_argument("style", choices=EM_SCALE)
    parser.add_argument("output")
    arguments = parser.parse_args()

    # Without a new time stamp the same source always gives the same bytes.
    font = TTFont(arguments.source, recalcTimestamp=False)
    rename(font, arguments.style)
    enlarge_em(font, EM_SCALE[arguments.style])
    font.save(arguments.output)


if __name__ == "__main__":
    main()
