#!/usr/bin/env python3
"""derive_font.py on fonts as vendors have them. The build shows what it makes of Inter."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from fontTools.fontBuilder import FontBuilder
from fontTools.pens.t2CharStringPen import T2CharStringPen
from fontTools.pens.ttGlyphPen import TTGlyphPen
from fontTools.ttLib import TTFont

SCRIPT = pathlib.Path(__file__).parents[2] / "resources/fonts/derive_font.py"
EM = 1000
GLYPHS = [".notdef", "A"]


def make_font(path, is_true_type, is_variable=False):
    builder = FontBuilder(EM, isTTF=is_true_type)
    builder.setupGlyphOrder(GLYPHS)
    builder.setupCharacterMap({ord("A"): "A"})
    if is_true_type:
        builder.setupGlyf({name: TTGlyphPen(None).glyph() for name in GLYPHS})
    else:
        glyph = T2CharStringPen(500, None).getCharString()
        builder.setupCFF("Source-Medium", {}, {name: glyph for name in GLYPHS}, {})
    builder.setupHorizontalMetrics({name: (500, 0) for name in GLYPHS})
    builder.setupHorizontalHeader(ascent=800, descent=-200)
    builder.setupNameTable({"familyName": "Source", "styleName": "Medium Italic"})
    builder.setupOS2(usWeightClass=500, fsSelection=1)
    builder.updateHead(macStyle=2)
    builder.setupPost()
    if is_variable:
        builder.setupFvar([("wght", 400, 400, 700, "Weight")], [])
    builder.save(path)


class DeriveFont(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.source = pathlib.Path(folder.name) / "source"
        self.output = pathlib.Path(folder.name) / "output.otf"

    def derive(self, *options, style="Bold", dpi="96"):
        command = [sys.executable, SCRIPT, *options, self.source, style, dpi, self.output]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def test_names_style_and_em_are_the_windows_whatever_the_outlines_are(self):
        for is_true_type in (True, False):
            for style, dpi, percent, em in (("Bold", "96", "100", 1500), ("Bold", "72", "100", 1125),
                                            ("Regular", "96", "100", 1250), ("Bold", "96", "50", 3000)):
                with self.subTest(is_true_type=is_true_type, style=style, dpi=dpi, percent=percent):
                    make_font(self.source, is_true_type)
                    result = self.derive("--percent", percent, style=style, dpi=dpi)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                    font = TTFont(self.output)
                    self.assertEqual(font["name"].getDebugName(1), "Kelvane Sans")
                    self.assertEqual(font["name"].getDebugName(2), style)
                    self.assertEqual(font["head"].unitsPerEm, em)
                    is_bold = style == "Bold"
                    self.assertEqual(font["OS/2"].usWeightClass, 700 if is_bold else 400)
                    self.assertEqual(font["OS/2"].fsSelection, 0x20 if is_bold else 0x40)
                    self.assertEqual(font["head"].macStyle, 1 if is_bold else 0)
                    if not is_true_type:
                        self.assertEqual(font["CFF "].cff.fontNames, ["KelvaneSans-" + style])

    def test_what_cannot_be_derived_is_refused_with_the_reason(self):
        make_font(self.source, is_true_type=True, is_variable=True)
        self.assertRegex(self.derive().stderr, "a variable font.*; take the static files")
        self.source.write_text("<html>")
        self.assertRegex(self.derive().stderr, "cannot be read as a font: ")
        self.source.unlink()
        self.assertRegex(self.derive().stderr, "cannot be read as a font: .*No such file")
        self.assertRegex(self.derive("--percent", "20").stderr, "give a number from 50 to 200")
        self.assertRegex(self.derive(dpi="100").stderr, "invalid choice: '?100")
        self.assertFalse(self.output.exists())


if __name__ == "__main__":
    unittest.main()
