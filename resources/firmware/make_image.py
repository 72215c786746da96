#!/usr/bin/env python3
"""Makes a firmware image for demonstrations: it looks like one, but is never executed.

    make_image.py OUTPUT.bin BYTES [--mcuboot VERSION]

It begins like every Cortex-M image with the initial stack pointer and the reset and exception
vectors. The rest is a fixed pseudo-random sequence: no two blocks are alike, so a block written to
the wrong place is noticed. The last word is free, as erased flash is: over UART the updater replaces
it. The same arguments always give the same bytes.

With --mcuboot the image is as one signed for MCUboot: BYTES are those of the whole file, with the header
in front of the firmware and the SHA-256 of both behind it.
"""

import argparse
import hashlib
import struct

FLASH_START = 0x08000000
STACK_TOP = 0x20014000  # end of an STM32G4's first SRAM
VECTORS = 118  # stack pointer, 15 system exceptions, 102 interrupts
THUMB = 1  # every code address of a Cortex-M is odd
FREE_WORD = b"\xff" * 4

# MCUboot's header and its area of TLVs (types, lengths, values).
MCUBOOT_SLOT = FLASH_START + 0x10000  # behind the bootloader
HEADER_SIZE = 0x200  # room for the header; a vector table of this length begins at a multiple of it
HEADER_MAGIC, TLV_MAGIC, TLV_SHA256 = 0x96F3B83D, 0x6907, 0x10


def vector_table(start):
    code_start = start + VECTORS * 4
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


def firmware(start, count):
    table = vector_table(start)
    return table + pseudo_random_bytes(count - len(table) - len(FREE_WORD)) + FREE_WORD


def mcuboot_image(version, count):
    def tlv_area(digest):
        entry = struct.pack("<HH", TLV_SHA256, len(digest)) + digest
        return struct.pack("<HH", TLV_MAGIC, 4 + len(entry)) + entry

    size = count - HEADER_SIZE - len(tlv_area(hashlib.sha256().digest()))
    major, minor, revision = version
    header = struct.pack("<IIHHIIBBHII", HEADER_MAGIC, 0, HEADER_SIZE, 0, size, 0, major, minor, revision, 0, 0)
    image = header.ljust(HEADER_SIZE, b"\0") + firmware(MCUBOOT_SLOT + HEADER_SIZE, size)
    return image + tlv_area(hashlib.sha256(image).digest())


def version_numbers(text):
    major, minor, revision = (int(number) for number in text.split("."))
    return major, minor, revision


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("output")
    parser.add_argument("bytes", type=int)
    parser.add_argument("--mcuboot", metavar="VERSION", type=version_numbers)
    arguments = parser.parse_args()

    with open(arguments.output, "wb") as image:
        if arguments.mcuboot:
            image.write(mcuboot_image(arguments.mcuboot, arguments.bytes))
        else:
            image.write(firmware(FLASH_START, arguments.bytes))


if __name__ == "__main__":
    main()
