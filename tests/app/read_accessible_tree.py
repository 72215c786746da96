#!/usr/bin/python3
"""Reads the windows of a process as a screen reader does, through AT-SPI, and prints a line for each
widget in reading order:

    read_accessible_tree.py PROCESS_ID

A line names the role and, as far as the widget has them, name, description, value and states:

    button "UPDATE" (Writes the new firmware to the unit) enabled focused

Containers without a name are left out. Runs with the system's Python, which has the client library.
"""

import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402

# Versions of the library differ in the names that they print, and in that of the button's constant.
BUTTON = getattr(Atspi.Role, "PUSH_BUTTON", None) or Atspi.Role.BUTTON
ROLES = {
    Atspi.Role.FRAME: "window",
    Atspi.Role.LABEL: "label",
    BUTTON: "button",
    Atspi.Role.PROGRESS_BAR: "bar",
}
STATES = {
    Atspi.StateType.ENABLED: "enabled",
    Atspi.StateType.FOCUSED: "focused",
}


def describe(widget):
    role = widget.get_role()
    words = [ROLES.get(role, widget.get_role_name()), f'"{widget.get_name()}"'.replace("\n", " / ")]
    if widget.get_description():
        words.append(f"({widget.get_description()})")
    if role == Atspi.Role.PROGRESS_BAR:
        value = widget.get_value_iface()
        words.append(f"{value.get_current_value():g} of "
                     f"{value.get_minimum_value():g} to {value.get_maximum_value():g}")
    # All labels are enabled, and no client reports that.
    if role == BUTTON:
        states = widget.get_state_set()
        words += [name for state, name in STATES.items() if states.contains(state)]
    return " ".join(words)


def read(widget):
    if widget.get_role() in ROLES or widget.get_name():
        print(describe(widget))
    for index in range(widget.get_child_count()):
        read(widget.get_child_at_index(index))


def find(process_id):
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        application = desktop.get_child_at_index(index)
        if application.get_process_id() == process_id:
            return application
    sys.exit(f"process {process_id} is not in the tree")


application = find(int(sys.argv[1]))
for window_index in range(application.get_child_count()):
    read(application.get_child_at_index(window_index))
