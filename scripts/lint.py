"""Rules of the house that no compiler checks. Prints what breaks one; exit code 1."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CODE = {".cpp", ".h"}

# Includes run downwards: a file may include its own room and those before it.
ROOMS = ["platform", "settings", "progress", "vm", "header", "kernels", "image", "exchange"]

SYSTEM_HEADERS = re.compile(
    r'#\s*include\s*[<"](windows|winsock2?|psapi|shlobj|objbase|tlhelp32|io|direct|process|'
    r"unistd|fcntl|pthread|dlfcn|signal|poll|pwd|grp|dirent|termios|spawn|syslog|"
    r'(sys|linux|arpa|net|netinet)/[^>"]+)(\.h)?[>"]'
)
SYSTEM_MACROS = re.compile(
    r"\b(_WIN32|_WIN64|WIN32|__MINGW\w*|_MSC_VER|__CYGWIN__|__linux__|__linux|linux|__unix__|"
    r"__APPLE__|__FreeBSD__|_POSIX_\w+)\b"
)
# Types and sizes that differ between the systems.
WIDTHS = [
    (re.compile(r"(?<!long )\blong\b(?!\s+(long|double))"), "long has 32 or 64 bits"),
    (re.compile(r"sizeof\s*\(?\s*(wchar_t|long|void\s*\*|(std::)?size_t)\b(?!\s*\*)"),
     "a size that differs between systems"),
    (re.compile(r"reinterpret_cast<\s*(std::)?(u?int(8|16|32|64)_t|int|unsigned|DWORD)\s*>"),
     "a pointer has 32 or 64 bits"),
]
# What the words of this repository leave out.
WORDS = re.compile(
    r"\bspecification\b|\bthe spec\b|\bPart \d|\b[Ii]ssue #?\d|(?<![\w&#/])#\d+\b|\bhazard list\b|"
    r"\bdesign page\b|left to the implem[e]nter|\b[Ss]ubsystem \d|(?<![\w.$}])/(work|root)/|"
    r"/tmp/(bash|claude)\w*"
)
# The smallest sizes of an address space may be asked for where memory is cut into pieces.
ALLOWED = {("src/vm/region_cache.cpp", "a size that differs between systems")}


def tracked_files():
    names = subprocess.run(
        ["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True, text=True
    ).stdout
    return [name for name in names.split("\0") if name and (ROOT / name).is_file()]


def code_only(text):
    """The text without comments and without the contents of literals; lines stay."""
    token = re.compile(
        r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])*\'', re.S
    )

    def blank(match):
        found = match.group(0)
        if found.startswith("/"):
            return "\n" * found.count("\n") or " "
        return '""' + "\n" * found.count("\n")

    # Names of included files stay what they are.
    lines = text.split("\n")
    kept = {i: line for i, line in enumerate(lines) if line.lstrip().startswith("#")}
    lines = ["" if i in kept else line for i, line in enumerate(lines)]
    lines = token.sub(blank, "\n".join(lines)).split("\n")
    for i, line in kept.items():
        lines[i] = re.sub(r"//.*", "", line)
    return lines


def is_system_file(name):
    """Files that may know the operating system."""
    path = pathlib.PurePosixPath(name)
    if path.parts[:2] == ("src", "platform") or path.name == "export.h":
        return True
    # Of the tests, those that say so and what they share.
    return path.parts[0] in ("tests", "fuzz", "bench") and (
        "posix" in path.name or "win32" in path.name or path.parts[1] == "support"
    )


def check_code(name, text, report):
    lines = code_only(text)
    raw = text.split("\n")
    for number, line in enumerate(lines, 1):
        if not is_system_file(name):
            if SYSTEM_HEADERS.search(line):
                report(name, number, "an operating-system header outside src/platform")
            if SYSTEM_MACROS.search(line):
                report(name, number, "asks for the operating system outside src/platform")
        if name.split("/")[0] in ("include", "src", "io", "apps") and not is_system_file(name):
            for pattern, what in WIDTHS:
                if pattern.search(line) and (name, what) not in ALLOWED:
                    report(name, number, what)
    if name.startswith("src/") and name.split("/")[1] in ROOMS:
        room = ROOMS.index(name.split("/")[1])
        for number, line in enumerate(raw, 1):
            include = re.match(r'\s*#\s*include "(\w+)/', line)
            if include and include.group(1) in ROOMS[room + 1 :]:
                report(name, number, f"includes {include.group(1)}/, which lies above")


def check_words(name, text, report):
    if name.startswith("scripts/lint.") or "DEVELOPERS" in name or name.endswith("expected.txt"):
        return
    for number, line in enumerate(text.split("\n"), 1):
        found = WORDS.search(line)
        if found:
            report(name, number, f'"{found.group(0)}" belongs into no file of the repository')


def main():
    problems = []

    def report(name, number, what):
        problems.append(f"{name}:{number}: {what}")

    for name in tracked_files():
        data = (ROOT / name).read_bytes()
        if b"\0" in data:
            continue
        text = data.decode("utf-8", errors="replace")
        if pathlib.PurePosixPath(name).suffix in CODE:
            check_code(name, text, report)
        check_words(name, text, report)
    print("\n".join(problems) if problems else "lint: nothing to say")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
