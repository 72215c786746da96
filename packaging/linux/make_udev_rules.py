#!/usr/bin/env python3
"""Writes the udev rules of a package from a product's config.ini.

    make_udev_rules.py CONFIG.ini OUTPUT.rules

The rules let the person at the computer open units in boot mode, and make ModemManager ignore them, whose
commands would otherwise reach the bootloader first. They name the serial adapter and the STM32 DFU
bootloader, which every bench uses, and the product's own IDs.
"""

import argparse
import re
import sys
from pathlib import Path

SERIAL_ADAPTER = ("10c4", "ea60")
DFU_BOOTLOADER = ("0483", "df11")

HEAD = """\
# Kelvane firmware updater: units in boot mode. This file is read before 73-seat-late.rules, which gives
# the user at the seat access to devices tagged "uaccess".
ACTION=="remove", GOTO="kelvane_firmware_updater_end"
"""
IDS = 'ATTR{{idVendor}}=="{0}", ATTR{{idProduct}}=="{1}"'
PARENT_IDS = 'ATTRS{{idVendor}}=="{0}", ATTRS{{idProduct}}=="{1}"'
NO_MODEM = 'ENV{ID_MM_DEVICE_IGNORE}="1"'
FOR_USER = 'TAG+="uaccess"'
USB_DEVICE = 'SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device"'
TAIL = 'LABEL="kelvane_firmware_updater_end"\n'


def read_value(text, key):
    """Returns the value of the last line with this key, without quotation marks and comments."""
    lines = re.findall(rf"^[ \t]*{key}[ \t]*=(.*)$", text, re.MULTILINE)
    value = lines[-1].strip() if lines else ""
    quoted = re.fullmatch(r'"([^"]*)"[ \t]*(?:;.*)?', value)
    return quoted.group(1) if quoted else value.split(";")[0].strip()


def read_products(text):
    """Returns the IDs in product_list, four digits each. Raises ValueError for a malformed entry."""
    ids = []
    for entry in filter(None, (part.strip(' "') for part in read_value(text, "product_list").split(","))):
        pieces = entry.split(":")
        if len(pieces) < 3 or not all(re.fullmatch(r"(0x)?[0-9A-Fa-f]{1,4}", piece) for piece in pieces[1:3]):
            raise ValueError(f'product_list: "{entry}" is not NAME:VENDOR:PRODUCT in hexadecimal')
        ids.append(tuple(f"{int(piece, 16):04x}" for piece in pieces[1:3]))
    return ids


def make_rules(text):
    products = read_products(text)
    dfu, serial = [DFU_BOOTLOADER], [SERIAL_ADAPTER]
    (dfu if read_value(text, "interface") == "usb" else serial).extend(products)
    rules = HEAD
    for ids in dict.fromkeys(serial):
        rules += f"{USB_DEVICE}, {IDS.format(*ids)}, {NO_MODEM}\n"
        rules += f'SUBSYSTEM=="tty", {PARENT_IDS.format(*ids)}, {NO_MODEM}, {FOR_USER}\n'
    for ids in dict.fromkeys(dfu):
        rules += f"{USB_DEVICE}, {IDS.format(*ids)}, {NO_MODEM}, {FOR_USER}\n"
    return rules + TAIL


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("config", type=Path)
    parser.add_argument("output", type=Path)
    options = parser.parse_args()
    try:
        options.output.write_text(make_rules(options.config.read_text(encoding="utf-8")))
    except ValueError as problem:
        sys.exit(f"{options.config}: {problem}")


if __name__ == "__main__":
    main()
