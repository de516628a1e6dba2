"""Rules of the house that no compiler checks. Prints what breaks one; exit code 1."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CODE = {".cpp", ".h"}

# Includes run downwards: a file may include its own room and those before it.
ROOMS = ["platform", "settings", "progress", "vm", "header", "kernels", "image", "exchange"]

# Headers in angle brackets above src/platform: those of the language and of the
# libraries that the rooms are built on. Whatever else there is belongs to a system.
LANGUAGE_HEADERS = set(
    "algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv "
    "chrono cinttypes climits clocale cmath codecvt compare complex concepts condition_variable "
    "coroutine csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar "
    "cwctype deque exception execution filesystem format forward_list fstream functional future "
    "initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map "
    "memory memory_resource mutex new numbers numeric optional ostream queue random ranges ratio "
    "regex scoped_allocator semaphore set shared_mutex source_location span sstream stack "
    "stdexcept stop_token streambuf string string_view strstream syncstream system_error thread "
    "tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant "
    "vector version".split()
)
LIBRARY_HEADERS = re.compile(
    r"(HalideRuntime|Halide|SimpleIni|fitsio|png|zlib|immintrin|emmintrin|smmintrin)\.h$|"
    r"(CLI|fmt|gtest|gmock|benchmark|opencv2|vips|korinimage)/"
)
INCLUDE = re.compile(r"\s*(?:#|%:)\s*include(_next)?\b\s*(?:<([^>]*)>|\"([^\"]*)\"|(.*))")
SYSTEM_MACROS = re.compile(
    r"\b(_?_?WIN(32|64|NT)(__)?|__MINGW\w*|_MSC_\w+|__CYGWIN__|__(gnu_)?linux(__)?|linux|__unix(__)?|"
    r"unix|__APPLE__|__MACH__|__FreeBSD__|__ANDROID__|__ELF__|__GLIBC__|_GNU_SOURCE|_POSIX_\w+|"
    r"__has_include\w*)\b"
)
SYSTEM_TYPES = re.compile(
    r"\b(ssize_t|off(64)?_t|pid_t|mode_t|D?WORD|HANDLE|HMODULE|HINSTANCE|LARGE_INTEGER|"
    r"[LW]PARAM|LRESULT|U?INT_PTR|U?LONG(_PTR)?|WCHAR|__stdcall|WINAPI)\b"
)
# Types and sizes that differ between the systems.
WIDTHS = [
    (re.compile(r"(?<!long )\blong\b(?!\s+(long|double))"), "long has 32 or 64 bits"),
    (re.compile(r"\b(strtou?l|wcstou?l|stou?l|atol|labs|ldiv|lround\w?|lrint\w?)\s*\("),
     "gives a long, which has 32 or 64 bits"),
    (re.compile(r"(?<![\w.])(0[xX][\da-fA-F']+|\d[\d']*)([uU]?[lL]|[lL][uU])(?![\w.])"),
     "a long literal has 32 or 64 bits"),
    (re.compile(r"sizeof\s*(\(\s*)?(wchar_t|long|this|(std::)?(size_t|u?intptr_t|ptrdiff_t)|L['\"])"
                r"(?!\w)(?!\s*\*)|sizeof\s*\([^()]*\*\s*(const\s*)?\)"),
     "a size that differs between systems"),
    (re.compile(r"reinterpret_cast<\s*(std::)?(u?int(8|16|32|64)_t|int|unsigned|DWORD)\s*>|"
                r"\bbit_cast<\s*(std::)?u?int(32|64)_t\s*>\s*\(\s*&"),
     "a pointer has 32 or 64 bits"),
    (re.compile(r"\b(_?_?I?LP(32|64)(__)?|__SIZEOF_\w+__|__WCHAR_\w+|WCHAR_M(AX|IN)|SIZE_MAX|"
                r"U?INTPTR_M(AX|IN)|PTRDIFF_M(AX|IN)|U?LONG_M(AX|IN)|__x86_64(__)?|__amd64(__)?|"
                r"__i[3-6]86(__)?|__POINTER_WIDTH__|__INTPTR_WIDTH__)\b|numeric_limits<\s*wchar_t\s*>"),
     "a width that differs between systems"),
    (re.compile(r"reinterpret_cast<\s*(const\s+)?(wchar_t|char16_t|char32_t)\b"),
     "wchar_t has 16 or 32 bits"),
]
# In the contents of literals, which all other rules leave out.
WIDE_BEYOND_16_BITS = re.compile(r"\bL'\\(U000[1-9A-F]|U0010|x[\da-fA-F]{5})")
# What each rule is there for: (line, whether it breaks a rule above src/platform).
SAMPLES = [
    ("#include <windows.h>", True), ("#include <Windows.h>", True), ("# include <intrin.h>", True),
    ("#include <sched.h>", True), ('#include "unistd.h"', True), ("#include SYSTEM_HEADER", True),
    ("#include <vm/poison.h>", True), ("/**/ %:include <poll.h>", True),
    ("#include <cstdint>", False), ("#include <fitsio.h>", False),
    ("#if __has_include(<windows.h>)", True), ("#ifdef __WIN32__", True), ("#ifdef _WIN32", True),
    ("#if defined(__gnu_linux__)", True), ("#if UINTPTR_MAX > 0xFFFFFFFF", True),
    ("#ifdef __LP64__", True), ("#if __SIZEOF_WCHAR_T__ == 2", True), ("#ifdef __x86_64__", True),
    ("long size = 0;", True), ("unsigned long int n;", True), ("long long n = 5LL;", False),
    ("auto bytes = 1UL << 40;", True), ("auto bytes = 0x7fL;", True), ("double d = 1.5;", False),
    ("int y = std::lround(x);", True), ("auto y = std::llround(x);", False),
    ("auto n = sizeof(wchar_t) * text.size();", True), ("n = sizeof(char*);", True),
    ("n = sizeof(std::uintptr_t);", True), ("n = sizeof(T);", False), ("n = sizeof *item;", False),
    ("auto n = reinterpret_cast<std::uint64_t>(address);", True),
    ("auto* u = reinterpret_cast<const char16_t*>(wide);", True),
    (r"wchar_t c = L'\U0001F52D';", True), (r"wchar_t c = L'\u20AC';", False),
    ("DWORD written = 0;", True), ("ssize_t got = 0;", True), ("// a long text", False),
    ('Say("long _WIN32 windows.h");', False), ("using HWND = HWND__*;", False),
]
# How a symbol is exported is said in the system's own words.
EXPORTS = ("include/korinimage/export.h", "include/korinimage/io/export.h")
# What the words of this repository leave out.
WORDS = re.compile(
    r"\bspecification\b|\bthe spec\b|\bPart \d|\b[Ii]ssue #?\d|(?<![\w&#/])#\d+\b|\bhazard list\b|"
    r"\bdesign page\b|left to the implem[e]nter|\b[Ss]ubsystem \d|(?<![\w.$}])/(work|root)/|"
    r"/tmp/(bash|claude)\w*"
)
# The smallest sizes of an address space may be asked for where memory is cut into pieces.
ALLOWED = {("src/vm/region_cache.cpp", "a size that differs between systems")}


def own_files():
    names = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT, check=True, capture_output=True, text=True
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
    if path.parts[:2] == ("src", "platform") or name in EXPORTS:
        return True
    # Of the tests, those that say so and what they share.
    return path.parts[0] in ("tests", "fuzz", "bench") and (
        "posix" in path.name or "win32" in path.name or path.parts[1] == "support"
    )


def foreign_include(line, ours):
    """Why a line includes what no file above src/platform may; none when it may."""
    found = INCLUDE.match(line)
    if not found:
        return None
    _, angle, quoted, other = found.groups()
    if other is not None:
        return "includes what a macro says"
    if quoted is not None:
        known = pathlib.PurePosixPath(quoted).name in ours or quoted == "kernel_headers.h"
        return None if known else f"includes {quoted}, which is none of ours"
    if angle in LANGUAGE_HEADERS or LIBRARY_HEADERS.match(angle):
        return None
    return f"includes {angle}, an operating-system header, outside src/platform"


def above_platform(line, raw, ours):
    """What no line above src/platform may say of the system below."""
    if problem := foreign_include(line, ours):
        yield problem
    if SYSTEM_MACROS.search(line) or SYSTEM_TYPES.search(line):
        yield "asks for the operating system outside src/platform"
    if WIDE_BEYOND_16_BITS.search(raw):
        yield "wchar_t has 16 or 32 bits"


def widths(name, line):
    for pattern, what in WIDTHS:
        if pattern.search(line) and (name, what) not in ALLOWED:
            yield what


def check_code(name, text, ours, report):
    lines = code_only(text)
    raw = text.split("\n")
    folders = name.split("/")
    for number, line in enumerate(lines, 1):
        if not is_system_file(name):
            for problem in above_platform(line, raw[number - 1], ours):
                report(name, number, problem)
            if folders[0] in ("include", "src", "io", "apps"):
                for problem in widths(name, line):
                    report(name, number, problem)
        elif folders[:2] == ["src", "platform"] and len(folders) == 3 and name.endswith(".h"):
            # Seen by all that include it.
            if problem := foreign_include(line, ours):
                report(name, number, problem)
    if folders[0] == "src" and folders[1] in ROOMS:
        room = ROOMS.index(folders[1])
        for number, line in enumerate(raw, 1):
            include = re.match(r'\s*#\s*include "(\w+)/', line)
            if include and include.group(1) in ROOMS[room + 1 :]:
                report(name, number, f"includes {include.group(1)}/, which lies above")
    if folders[0] == "include":
        for number, line in enumerate(raw, 1):
            include = re.match(r'\s*#\s*include "(?!korinimage/)', line)
            if include:
                report(name, number, "a public header includes what is not installed")


def check_samples(report):
    """The rules themselves: each must find what it is there for."""
    for sample, breaks in SAMPLES:
        line = code_only(sample)[0]
        found = [*above_platform(line, sample, set()), *widths("", line)]
        if bool(found) != breaks:
            report("scripts/lint.py", 1, f"{'misses' if breaks else 'wrongly finds'}: {sample}")


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

    check_samples(report)
    files = own_files()
    ours = {pathlib.PurePosixPath(name).name for name in files}
    for name in files:
        data = (ROOT / name).read_bytes()
        if b"\0" in data:
            continue
        text = data.decode("utf-8", errors="replace")
        if pathlib.PurePosixPath(name).suffix in CODE:
            check_code(name, text, ours, report)
        check_words(name, text, report)
    print("\n".join(problems) if problems else "lint: nothing to say")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
