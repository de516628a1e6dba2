"""Compares what a shared library exports with what its public headers declare.

exports.py OBJDUMP LIBRARY HEADER-FOLDER NAME...
    NAME: a class or function that must be among them
"""

import pathlib
import re
import subprocess
import sys


def declared_names(folder):
    """Classes and functions marked for export, and what lies in exported classes."""
    names = set()
    for header in pathlib.Path(folder).glob("*.h"):
        text = re.sub(r"//[^\n]*", "", header.read_text(encoding="utf-8"))
        names.update(re.findall(r"\b(?:class|struct)\s+KORINIMAGE_(?:IO_)?API\s+(\w+)", text))
        names.update(re.findall(r"\bKORINIMAGE_(?:IO_)?API\s+(?!class|struct)[^;{(]*?(\w+)\s*\(", text))
    return names


def exported_symbols(objdump, library):
    if library.endswith(".dll"):
        listing = subprocess.run(
            [objdump, "-p", library], check=True, capture_output=True, text=True
        ).stdout
        table = listing[listing.index("[Ordinal/Name Pointer] Table") :]
        symbols = re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?\S*?\s*(\S+)$", table, re.M)
    else:
        listing = subprocess.run(
            [objdump, "-T", library], check=True, capture_output=True, text=True
        ).stdout
        symbols = [
            line.split()[-1]
            for line in listing.splitlines()
            if re.match(r"[0-9a-f]{8,16} [gwu]", line) and "*UND*" not in line
        ]
    demangled = subprocess.run(
        ["c++filt"], input="\n".join(symbols), check=True, capture_output=True, text=True
    ).stdout
    return demangled.splitlines()


def owner(symbol):
    """The outermost class or the function that a demangled symbol belongs to."""
    symbol = re.sub(
        r"^(typeinfo name for |typeinfo for |vtable for |VTT for |guard variable for |"
        r"(non-)?virtual thunk to |covariant return thunk to )",
        "",
        symbol,
    )
    name = re.sub(r"\(.*", "", symbol).split("<")[0]
    parts = name.split(" ")[-1].split("::")
    if parts[0] == "korin":
        parts = parts[1:]
    return parts[0]


def main():
    objdump, library, folder, *wanted = sys.argv[1:]
    names = declared_names(folder)
    symbols = exported_symbols(objdump, library)
    foreign = [symbol for symbol in symbols if owner(symbol) not in names]
    for symbol in foreign:
        print("exported, but no part of the public headers:", symbol)
    exported = {owner(symbol) for symbol in symbols}
    # Classes without members of their own code have nothing to export on ELF.
    missing = [name for name in wanted if name not in exported]
    for name in missing:
        print("not exported:", name)
    print(f"{len(symbols)} symbols of {len(exported)} classes and functions")
    return 1 if foreign or missing or not symbols else 0


sys.exit(main())
