#!/usr/bin/env python3
"""Makes a firmware image for demonstrations: it looks like one, but is never executed.

    make_image.py OUTPUT.bin BYTES

It begins like every Cortex-M image with the initial stack pointer and the reset and exception
vectors. The rest is a fixed pseudo-random sequence: no two blocks are alike, so a block written to
the wrong place is noticed. The last word is free, as erased flash is: over UART the updater replaces
it. The same arguments always give the same bytes.
"""

import argparse
import struct

FLASH_START = 0x08000000
STACK_TOP = 0x20014000  # end of an STM32G4's first SRAM
VECTORS = 118  # stack pointer, 15 system exceptions, 102 interrupts
THUMB = 1  # every code address of a Cortex-M is odd
FREE_WORD = b"\xff" * 4


def vector_table():
    code_start = FLASH_START + VECTORS * 4
    handlers = [code_start + 16 * number | THUMB for number in range(1, VECTORS)]
    return struct.pack(f"<{VECTORS}I", STACK_TOP, *handlers)


def pseudo_random_bytes(count):
    # Marsaglia's xorshift32: Python's own generators may change with its version.
    state = 0x4B454C56
    content = bytearray()
    while len(content) < count:
        state ^= state << 13 & 0xFFFFFFFF
        state ^= state >> 17
        state ^= state << 5 & 0xFFFFFFFF
        content += struct.pack("<I", state)
    return bytes(content[:count])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("output")
    parser.add_argument("bytes", type=int)
    arguments = parser.parse_args()

    table = vector_table()
    with open(arguments.output, "wb") as image:
        image.write(table)
        image.write(pseudo_random_bytes(arguments.bytes - len(table) - len(FREE_WORD)))
        image.write(FREE_WORD)


if __name__ == "__main__":
    main()
