#!/usr/bin/env python3
"""Checks that the documents are true where a program can tell.

    documents_test.py

- A file that a document names in backticks, in a link or in a command exists; so does the heading that
  a link leads to.
- A name that a document takes from the code exists.
- The room that the vendor's page gives for each text is the size of its widget.
- The figure next to the name of a constant is the constant's value. There are two notations: a table
  with the column "Constant", whose first column is the figure, and the comment
  `5 s<!-- kExtendedEraseTimeout -->` in prose, which a reader does not see. The comment may divide or
  multiply: `204 pages<!-- kExtendedEraseTimeout / 24.5 -->`. A time may also be a member's default, as in
  `2 s<!-- idle -->`.

The checks are functions that return what is wrong; the second half of this file proves on bad examples
that each of them can fail.
"""

import fnmatch
import re
import tempfile
import unittest
from collections import Counter
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SOURCES = (
    "app", "config", "updater", "modules", "mcuboot", "record", "hal", "runtime", "bundle_check",
    "session_view", "make_otp", "for_firmware", "simulator", "packaging", "tests",
)  # fmt: skip
# Others whose figures the documents repeat, though not all of them.
OTHER_HEADERS = ("app/unit_detection.h", "app/serial_driver.h", "config/startup_config.h", "record/limits.h",
                 "updater/model_id.h", "mcuboot/request_maps.h")
HEADERS = ("modules/stm32_updater/limits.h", "mcuboot/limits.h")
TRANSPORT_PAGES = [f"docs/transports/{name}.md" for name in ("uart", "usb", "mcuboot")]

# Files that exist only in a bundle, after a build or on another machine.
ELSEWHERE = re.compile(r"build/|Contents/|[/~$]|[\w-]+\.app/")
FILE_NAME = re.compile(r"[\w.*-]+\.(?:cmake|cpp|h|ini|json|md|png|py|sh|ui|yml)")
PATH = re.compile(r"[\w.*/{},-]+")
# A bundle's own picture; each product has another.
BUNDLE_FILES = {"background.png"}


class Tree:
    """The files of the repository, without what a build leaves."""

    def __init__(self, root):
        self.root = root
        self.paths = {
            path.relative_to(root).as_posix()
            for top in root.iterdir() if not top.name.startswith("build") and top.name != ".git"
            for path in [top, *top.rglob("*")]
        }  # fmt: skip
        self.names = {path.rsplit("/", 1)[-1] for path in self.paths}
        self.folders = {path.split("/", 1)[0] for path in self.paths if "/" in path}

    def has(self, path, folder=""):
        """Whether a file or folder with this path, which may hold * and {a,b}, lies in the tree."""
        path = path.removeprefix("./").rstrip("/")
        return all(
            any(fnmatch.filter(self.paths, (start + name).rstrip("/")) for start in ("", folder))
            for name in expand_braces(path)
        )


def expand_braces(path):
    found = re.search(r"\{([^{}]*)\}", path)
    parts = found.group(1).split(",") if found else []
    return [path.replace(found.group(), part, 1) for part in parts] or [path]


def split_code_blocks(text):
    """The text outside of fenced blocks, and the text inside of them."""
    parts = re.split(r"^ *```.*$", text, flags=re.MULTILINE)
    return "".join(parts[::2]), "".join(parts[1::2])


def find_missing_paths(text, tree, folder):
    """Paths that the document names and that do not exist. `folder`: the document's own, with a slash."""
    prose, blocks = split_code_blocks(text)
    words = " ".join(re.findall(r"`([^`\n]+)`", prose)).split()
    words = [word for word in words if PATH.fullmatch(word) and not ELSEWHERE.match(word)]
    names = [word for word in words if FILE_NAME.fullmatch(word) and word not in BUNDLE_FILES]
    in_blocks = [word for word in PATH.findall(blocks) if "/" in word and word.split("/", 1)[0] in tree.folders]
    return (
        [word for word in words if "/" in word and not tree.has(word, folder)]
        + [word for word in names if not fnmatch.filter(tree.names, word)]
        + [word for word in in_blocks if not tree.has(word)]
    )


def get_anchor(heading):
    return re.sub(r"[^\w -]", "", heading.strip().lower()).replace(" ", "-")


def find_broken_links(text, tree, folder):
    broken = []
    for target in re.findall(r"\]\(([^)\s]+)\)", split_code_blocks(text)[0]):
        path, _, anchor = target.partition("#")
        if re.match(r"[a-z]+:", target):
            continue
        file = (tree.root / folder / path).resolve()
        if not file.exists():
            broken.append(target)
        elif anchor:
            content = split_code_blocks(file.read_text(encoding="utf-8") if path else text)[0]
            if anchor not in map(get_anchor, re.findall(r"^#+ (.*)$", content, re.MULTILINE)):
                broken.append(target)
    return broken


CONSTANT = re.compile(
    r"^inline constexpr ([\w:]+(?: const\*)?) (k\w+)\s*(?:= ?|\{)([^;{}]*(?:\{\w+\}[^;{}]*)?)\}?;", re.MULTILINE
)

MEMBER = re.compile(r"^    (std::chrono::milliseconds) (\w+)\{([\d']+)\};", re.MULTILINE)


def read_constants(header):
    """Name to (value, is a time in milliseconds) of each constant in a header's text."""
    constants = {}
    for kind, name, expression in CONSTANT.findall(header) + MEMBER.findall(header):
        if expression.startswith('"'):
            constants[name] = (expression.strip('"'), False)
            continue
        # What is left of C++ is an expression of Python's: size_t{64} * 1'024 is 64 * 1024.
        plain = re.sub(r"[\w:]+\{(\w+)\}", r"\1", expression.replace("'", ""))
        plain = re.sub(r"\b(0x[0-9A-Fa-f]+|\d+)[uUlLzZ]*\b", r"\1", plain)
        names = {known: value for known, (value, _) in constants.items()}
        value = eval(plain, {"__builtins__": {}}, names)  # the repository's own header
        is_time = kind.endswith(("seconds", "Milliseconds")) or name.endswith("Timeout")
        constants[name] = (value * 1000 if kind.endswith("::seconds") else value, is_time)
    return constants


def count_unread(header):
    """Constants that `read_constants` does not understand."""
    return len(re.findall(r"^inline constexpr (?!.*\()", header, re.MULTILINE)) - len(CONSTANT.findall(header))


def get_forms(value, is_time):
    """How a document may write the value: 5000 as a time is "5000 ms" or "5 s"."""
    if isinstance(value, str):
        return {value}
    units = {"s": 1000, "second": 1000, "seconds": 1000} if is_time else {"KiB": 1 << 10, "MiB": 1 << 20}
    forms = {f"{value // size} {unit}" for unit, size in units.items() if value % size == 0}
    return forms | ({f"{value} ms"} if is_time else {str(value), f"0x{value:08x}"})


def agrees(figure, value, is_time):
    """Whether `figure`, such as "5 s" or "1483 bytes", begins with the value."""
    return any(re.match(rf"{re.escape(form)}(?![\w.])", figure) for form in get_forms(value, is_time))


def find_wrong_rows(text, constants):
    """Rows of a table with the column "Constant" whose figure is not that of their constant."""
    wrong, column = [], None
    for line in text.splitlines():
        if not line.startswith("|"):
            column = None
            continue
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if column is None:
            column = cells.index("Constant") if "Constant" in cells else -1
        elif column > 0 and not set(line) <= set("|-: "):
            name = cells[column].strip("`")
            if name not in constants or not agrees(cells[0], *constants[name]):
                wrong.append(line)
    return wrong


def find_wrong_marks(text, constants):
    """Figures in prose that are not what the comment after them says."""
    wrong = []
    for found in re.finditer(r"<!--\s*(\w+)\s*(?:([*/])\s*([\d.]+)\s*)?-->", text):
        name, operation, operand = found.groups()
        if name not in constants:
            wrong.append(found.group())
            continue
        value, is_time = constants[name]
        if operation:
            value, is_time = int(value * float(operand) if operation == "*" else value / float(operand)), False
        before = re.sub(r"\s+", " ", text[max(0, found.start() - 40) : found.start()]).strip(" *`(")
        words = [word.lstrip("*`(") for word in before.split(" ")]
        if not any(agrees(" ".join(words[-count:]), value, is_time) for count in (1, 2)):
            wrong.append(f"{before} {found.group()}")
    return wrong


def read_sizes(form):
    """The sizes, like "201 x 21", of the widgets of a form that show a text."""
    widget = r'<widget class="Q(?:Label|PushButton|ProgressBar)" name="(\w+)">.*?<width>(\d+)</width>\s*<height>(\d+)<'
    found = re.findall(widget, form, re.DOTALL)
    return [f"{width} x {height}" for name, width, height in found if name != "progressBarFrame"]


def find_wrong_rooms(text, sizes):
    """What a table with the column "Room in pixels" and the sizes of the widgets do not have in common."""
    rows = re.search(r"^\|.*\| Room in pixels \|.*\n((?:\|.*\n)+)", text, re.MULTILINE)
    rooms = re.findall(r"\| (\d+ x \d+) \|", rows.group(1)) if rows else []
    return sorted((Counter(rooms) - Counter(sizes)) + (Counter(sizes) - Counter(rooms)))


def find_unknown_names(text, words):
    """Names in the code's spelling (kPass, UpdateStarted, Uart::onTransmit) that no source has."""
    names = re.findall(r"`((?:\w+::)*\w*[a-z]\w*[A-Z]\w*)`", split_code_blocks(text)[0])
    return [name for name in "::".join(names).split("::") if name and name not in words]


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


class Documents(unittest.TestCase):
    def check(self, find):
        """`find` returns what is wrong in a document with this text, in a folder with this path."""
        for path in (
            *(ROOT / name for name in ("README.md", "CONTRIBUTING.md", "benchmarks/README.md", "simulator/README.md")),
            *(ROOT / "docs").rglob("*.md"),
        ):
            folder = path.parent.relative_to(ROOT).as_posix()
            with self.subTest(document=path):
                self.assertEqual(find(read(path), "" if folder == "." else folder + "/"), [])

    def test_every_file_that_a_document_names_exists(self):
        tree = Tree(ROOT)
        self.check(lambda text, folder: find_missing_paths(text, tree, folder))

    def test_every_link_leads_to_a_file_and_a_heading(self):
        tree = Tree(ROOT)
        self.check(lambda text, folder: find_broken_links(text, tree, folder))

    def test_figures_in_tables_and_prose_are_those_of_the_headers(self):
        constants = read_constants("".join(map(read, HEADERS + OTHER_HEADERS)))
        self.check(lambda text, _: find_wrong_rows(text, constants) + find_wrong_marks(text, constants))

    def test_names_that_a_document_takes_from_the_code_exist(self):
        sources = (
            read(path) for folder in SOURCES for path in (ROOT / folder).rglob("*") if path.suffix in (".h", ".cpp", ".in")
        )
        words = set(re.findall(r"\w+", " ".join(sources)))
        self.check(lambda text, _: find_unknown_names(text, words))

    def test_every_constant_of_the_headers_is_read_and_on_the_page_of_a_transport(self):
        for header, pages in zip(HEADERS, (TRANSPORT_PAGES[:2], TRANSPORT_PAGES[2:])):
            named = re.findall(r"^\|[^|]*\| `(k\w+)` \|", "\n".join(map(read, pages)), re.MULTILINE)
            with self.subTest(header=header):
                self.assertEqual(count_unread(read(header)), 0)
                self.assertEqual(set(read_constants(read(header))) - set(named), set())

    def test_the_rooms_of_texts_are_the_sizes_in_the_window(self):
        sizes = read_sizes(read("app/main_window.ui"))
        self.assertGreaterEqual(len(sizes), 9)
        self.assertEqual(find_wrong_rooms(read("docs/for-vendors/preparing-a-product.md"), sizes), [])

    def test_the_transport_pages_have_the_same_sections(self):
        sections = [re.findall(r"^## (.*)$", read(page), re.MULTILINE) for page in TRANSPORT_PAGES]
        self.assertEqual(len(sections[0]), 5)
        self.assertEqual(sections[1:], sections[:-1])


class BadExamples(unittest.TestCase):
    """Each check finds what it is there for, and nothing else."""

    HEADER = """
inline constexpr unsigned kBaudRate = 460800;
inline constexpr int32_t kChunkSize = 1'483;
inline constexpr Milliseconds kAnswerTimeout{1000};
inline constexpr std::chrono::milliseconds kPass{3};
inline constexpr int kChunkTimeout = 3000;  // a comment
inline constexpr uint32_t kFlashStart = 0x08000000;
inline constexpr char const* kDfuDevice = "0483:df11";
inline constexpr size_t kRoom = size_t{64} * 1024 + kChunkSize;
inline constexpr std::chrono::seconds kPatience{2};
inline constexpr size_t kTail = size_t{1} << 16;
"""
    CONSTANTS = {
        "kBaudRate": (460800, False), "kChunkSize": (1483, False), "kAnswerTimeout": (1000, True),
        "kPass": (3, True), "kChunkTimeout": (3000, True), "kFlashStart": (0x08000000, False),
        "kDfuDevice": ("0483:df11", False), "kRoom": (65536 + 1483, False), "kPatience": (2000, True),
        "kTail": (65536, False),
    }  # fmt: skip

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        root = Path(directory.name)
        for name in ("app/main.cpp", "app/main.h", "docs/page.md", "docs/other.md", "run", "build/left.cpp"):
            (root / name).parent.mkdir(exist_ok=True)
            (root / name).write_text("# A heading, and more\n")
        self.tree = Tree(root)

    def test_rooms_agree_with_the_widgets_or_are_found(self):
        form = """<widget class="QLabel" name="one"> <rect> <width>58</width> <height>16</height>
            <widget class="QLabel" name="progressBarFrame"> <width>1</width> <height>2</height>
            <widget class="QPushButton" name="two"> <width>99</width>
            <height>40</height>"""
        sizes = read_sizes(form)
        self.assertEqual(sizes, ["58 x 16", "99 x 40"])
        table = "| Text | Room in pixels |\n|---|---|\n| a | {} |\n| b | 99 x 40 |\n"
        self.assertEqual(find_wrong_rooms(table.format("58 x 16"), sizes), [])
        self.assertEqual(find_wrong_rooms(table.format("58 x 17"), sizes), ["58 x 16", "58 x 17"])
        self.assertEqual(find_wrong_rooms("", sizes), sizes)

    def test_paths_are_accepted_if_they_exist_and_found_if_not_in_every_notation(self):
        for text in (
            "`app/main.cpp`", "`app/`", "`main.cpp`", "`app/main.{h,cpp}`", "`app/*.h`", "`./run --help`", "`other.md`",
            "`run`", "`a, b`", "`/usr/bin/x`", "`build/release/x`", "`Name of it.app/x`", "`Contents/MacOS/x`",
            "```\ncat app/main.cpp other/thing\n```",
        ):
            self.assertEqual(find_missing_paths(text, self.tree, "docs/"), [], text)
        for text, found in (
            ("`app/mane.cpp`", "app/mane.cpp"), ("`ap/main.cpp`", "ap/main.cpp"), ("`mane.cpp`", "mane.cpp"),
            ("`app/main.{h,c}`", "app/main.{h,c}"), ("`app/*.c`", "app/*.c"), ("`left.cpp`", "left.cpp"),
            ("see `app/run --help`", "app/run"), ("```\ncat app/mane.cpp\n```", "app/mane.cpp"),
        ):
            self.assertEqual(find_missing_paths(text, self.tree, "docs/"), [found], text)

    def test_links_must_lead_to_a_file_and_a_heading(self):
        for text, broken in (
            ("[a](other.md)", []), ("[a](../run)", []), ("[a](https://example.com/x)", []),
            ("[a](other.md#a-heading-and-more)", []), ("# B c\n[a](#b-c)", []),
            ("[a](another.md)", ["another.md"]), ("[a](run)", ["run"]),
            ("[a](other.md#b)", ["other.md#b"]), ("# B c\n[a](#c)", ["#c"]),
        ):
            self.assertEqual(find_broken_links(text, self.tree, "docs/"), broken, text)

    def test_constants_are_read_from_a_header(self):
        self.assertEqual(read_constants(self.HEADER), self.CONSTANTS)
        self.assertEqual(count_unread(self.HEADER), 0)
        self.assertEqual(count_unread(self.HEADER + "inline constexpr std::array kMany{{1}, {2}};\n"), 1)

    def test_times_are_read_from_the_defaults_of_members(self):
        header = "struct Times {\n    std::chrono::milliseconds idle{2'000};  // a comment\n    int count{3};\n};\n"
        self.assertEqual(read_constants(header), {"idle": (2000, True)})

    def test_rows_agree_with_their_constant_or_are_found(self):
        for figure, name, is_right in (
            ("460800 baud", "kBaudRate", True), ("46080 baud", "kBaudRate", False), ("1483", "kChunkSize", True),
            ("14830 bytes", "kChunkSize", False), ("483", "kChunkSize", False), ("1 s", "kAnswerTimeout", True),
            ("1000 ms", "kAnswerTimeout", True), ("1 ms", "kAnswerTimeout", False), ("1.5 s", "kAnswerTimeout", False),
            ("1000", "kAnswerTimeout", False), ("3 ms", "kPass", True), ("30 ms", "kPass", False),
            ("0x08000000", "kFlashStart", True), ("0483:df11", "kDfuDevice", True), ("0483:df12", "kDfuDevice", False),
            ("64 KiB", "kTail", True), ("64 MiB", "kTail", False), ("3 s", "kForgotten", False), ("", "kPass", False),
            ("3 s", "", False),
        ):
            row = f"| {figure} | `{name}` | what for |"
            table = f"| Figure | Constant | What for |\n|---|---|---|\n{row}\n"
            self.assertEqual(find_wrong_rows(table, self.CONSTANTS), [] if is_right else [row], row)

    def test_marks_agree_with_their_constant_or_are_found(self):
        for text, is_right in (
            ("waits 1 s<!-- kAnswerTimeout --> for it", True), ("waits\n1 second<!-- kAnswerTimeout -->.", True),
            ("waits 2 s<!-- kAnswerTimeout --> for it", False), ("waits 11 s<!-- kAnswerTimeout --> for it", False),
            ("1 s or so<!-- kAnswerTimeout -->", False), ("40 pages<!-- kAnswerTimeout / 24.5 -->", True),
            ("41 pages<!-- kAnswerTimeout / 24.5 -->", False), ("1 s<!-- kForgotten -->", False),
            ("always `0483:df11`<!-- kDfuDevice -->", True),
        ):
            self.assertEqual(find_wrong_marks(text, self.CONSTANTS) == [], is_right, text)

    def test_a_name_that_no_source_has_is_found(self):
        words = {"kPass", "Uart", "onTransmit"}
        self.assertEqual(find_unknown_names("`kPass`, `Uart::onTransmit`, `uart`, `A`", words), [])
        self.assertEqual(find_unknown_names("`kPast`, `Uart::onSend`", words), ["kPast", "onSend"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
