#!/usr/bin/env python3
"""Draws the demonstration's two pictures: the window's background and the program's icon.

    draw_pictures.py BACKGROUND.png ICON.ico

Run it by hand when the drawing changes; its results are kept beside it. A shape is a function that
gives each point's signed distance to an outline. The distance gives a soft edge or a fading glow.
"""

import argparse
import math
import struct
import zlib

WIDTH, HEIGHT = 665, 517  # the window's size
SCALE = 2  # pixels of the picture per pixel of the window, for high-resolution screens

NIGHT = (11, 16, 25)
DUSK = (24, 38, 54)
LIGHT = (255, 214, 140)
SHELL_DARK = (20, 28, 39)
SHELL_LIGHT = (58, 76, 95)
CABLE = (36, 49, 64)
SHADOW = (4, 7, 12)

# Where the unit is in the window: right of the texts, above the bar.
UNIT_X, UNIT_Y = 448, 215
UNIT_HALF = 84
CABLE_BEND_Y, CABLE_BEND_RADIUS = 330, 30


def mix(first, second, share):
    share = min(max(share, 0.0), 1.0)
    return tuple(a + (b - a) * share for a, b in zip(first, second))


def coverage(distance, pixel):
    """How much of a pixel lies inside an outline `distance` away (negative: inside)."""
    return min(max(0.5 - distance / pixel, 0.0), 1.0)


def smooth(low, high, value):
    share = min(max((value - low) / (high - low), 0.0), 1.0)
    return share * share * (3 - 2 * share)


def rounded_box(x, y, centre_x, centre_y, half_width, half_height, radius):
    beside = abs(x - centre_x) - half_width + radius
    above = abs(y - centre_y) - half_height + radius
    outside = math.hypot(max(beside, 0.0), max(above, 0.0))
    return outside + min(max(beside, above), 0.0) - radius


def draw_ring_of_light(colour, distance, reach, strength, pixel, width):
    """A thin bright line along an outline and the glow around it."""
    glow = math.exp(-abs(distance) / reach) * strength
    colour = mix(colour, LIGHT, glow)
    return mix(colour, LIGHT, coverage(abs(distance) - width / 2, pixel))


def night_sky(x, y):
    """Lightest behind the unit, darkest where the texts and the bar lie."""
    from_unit = math.hypot((x - UNIT_X) / 330, (y - UNIT_Y) / 270)
    return mix(DUSK, NIGHT, smooth(0.0, 1.25, from_unit))


def draw_circles(colour, x, y, pixel):
    """Faint circles that spread from the unit like its light; they end before the texts begin."""
    radius = math.hypot(x - UNIT_X, y - UNIT_Y)
    clear_of_texts = smooth(255, 330, x) * smooth(395, 330, y)
    for number in range(1, 7):
        line = coverage(abs(radius - 118 - 34 * number) - 0.4, pixel)
        colour = mix(colour, SHELL_LIGHT, 0.6 * line * clear_of_texts * (1 - number / 7))
    return colour


def distance_to_cable(x, y):
    """From the cable's middle line: down from the unit, a quarter circle, then to the right."""
    if y < CABLE_BEND_Y:
        return abs(x - UNIT_X)
    bend_end = UNIT_X + CABLE_BEND_RADIUS
    if x < bend_end:
        return abs(math.hypot(x - bend_end, y - CABLE_BEND_Y) - CABLE_BEND_RADIUS)
    return abs(y - CABLE_BEND_Y - CABLE_BEND_RADIUS)


def draw_cable(colour, x, y, pixel):
    if y < UNIT_Y:
        return colour
    distance = distance_to_cable(x, y)
    colour = mix(colour, CABLE, coverage(distance - 3.5, pixel))
    colour = mix(colour, SHELL_LIGHT, 0.5 * coverage(distance - 0.6, pixel))
    plug = rounded_box(x, y, UNIT_X, UNIT_Y + UNIT_HALF + 13, 10, 16, 4)
    return mix(colour, SHELL_LIGHT, coverage(plug, pixel))


def draw_unit(colour, x, y, pixel):
    """The unit from the front: a dark shell with round corners and a ring of light in it."""
    shell = rounded_box(x, y, UNIT_X, UNIT_Y, UNIT_HALF, UNIT_HALF, 30)
    inside = coverage(shell, pixel)
    across = (x - UNIT_X + y - UNIT_Y) / (2 * UNIT_HALF) + 0.5
    shadow = 0.55 * math.exp(-max(shell, 0.0) / 26)
    rim = coverage(abs(shell + 1) - 0.6, pixel)
    ring = math.hypot(x - UNIT_X, y - UNIT_Y) - 44

    colour = mix(colour, SHADOW, shadow)
    colour = mix(colour, mix(SHELL_LIGHT, SHELL_DARK, across * 0.8 + 0.2), inside)
    colour = mix(colour, SHELL_LIGHT, rim * (1 - across))
    lit = draw_ring_of_light(colour, ring, 9, 0.55, pixel, 4)
    colour = mix(colour, lit, inside)
    return mix(colour, SHELL_DARK, 0.6 * coverage(ring + 7, pixel))


def background_pixel(x, y):
    pixel = 1 / SCALE
    colour = night_sky(x, y)
    colour = draw_circles(colour, x, y, pixel)
    colour = draw_cable(colour, x, y, pixel)
    return draw_unit(colour, x, y, pixel)


def icon_pixel(x, y, pixel):
    """The ring of light alone on a square of the background's colours; x, y from 0 to 1."""
    square = rounded_box(x, y, 0.5, 0.5, 0.47, 0.47, 0.2)
    colour = mix(SHELL_LIGHT, NIGHT, (x + y) / 2 + 0.2)
    ring = math.hypot(x - 0.5, y - 0.5) - 0.26
    colour = draw_ring_of_light(colour, ring, 0.06, 0.6, pixel, 0.055)
    return (*colour, 255 * coverage(square, pixel))


def png_chunk(kind, content):
    check = zlib.crc32(kind + content)
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", check)


def up_filtered(row, above):
    return bytes((value - over) & 0xFF for value, over in zip(row, above))


def encode_png(width, height, rows, with_alpha):
    """Each row as its difference from the row above, which suits slow gradients."""
    content = bytearray()
    above = bytes(len(rows[0]))
    for row in rows:
        content += b"\x02" + up_filtered(row, above)
        above = row
    header = struct.pack(">IIBBBBB", width, height, 8, 6 if with_alpha else 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", header)
            + png_chunk(b"IDAT", zlib.compress(bytes(content), 9)) + png_chunk(b"IEND", b""))


def to_row(colours):
    return bytes(round(value) for colour in colours for value in colour)


def background():
    width, height = WIDTH * SCALE, HEIGHT * SCALE
    rows = [to_row(background_pixel((column + 0.5) / SCALE, (line + 0.5) / SCALE)
                   for column in range(width)) for line in range(height)]
    return encode_png(width, height, rows, with_alpha=False)


def icon_picture(size):
    rows = [to_row(icon_pixel((column + 0.5) / size, (line + 0.5) / size, 1 / size)
                   for column in range(size)) for line in range(size)]
    return encode_png(size, size, rows, with_alpha=True)


def icon():
    sizes = (16, 32, 48, 256)
    pictures = [icon_picture(size) for size in sizes]
    content = struct.pack("<HHH", 0, 1, len(sizes))
    offset = len(content) + 16 * len(sizes)
    for size, picture in zip(sizes, pictures):
        # A side of 256 is written as 0.
        content += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32,
                               len(picture), offset)
        offset += len(picture)
    return content + b"".join(pictures)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("background")
    parser.add_argument("icon")
    arguments = parser.parse_args()

    with open(arguments.background, "wb") as picture:
        picture.write(background())
    with open(arguments.icon, "wb") as picture:
        picture.write(icon())


if __name__ == "__main__":
    main()
