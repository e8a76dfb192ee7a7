#!/usr/bin/env python3
"""The size of the target's shared library, facility by facility, from the linker's map; and what
two tiny programs take of the static one. Ends with 1 when a limit is passed or a program takes too
much."""

import os
import re
import subprocess
import sys

BUILD, CXX = sys.argv[1:3]
PREFIX = CXX[: -len("g++")]
LIMIT_CODE, LIMIT_DATA = 48 * 1024, 4 * 1024
# The sections by what they are to the device: code, constants, tables for exceptions, names for the
# loader, data that is written.
KINDS = {"code": r"\.text|\.init|\.fini|\.MIPS\.stubs", "constants": r"\.rodata|\.data\.rel\.ro",
         "unwinding": r"\.eh_frame|\.gcc_except_table",
         "data": r"\.data|\.sdata|\.got|\.(init|fini)_array",
         "bss": r"\.s?bss"}


def run(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def kind_of(section):
    for kind in ("constants", "code", "unwinding", "data", "bss"):
        if re.match(rf"(?:{KINDS[kind]})(?:$|[._])", section):
            return kind
    return None


def by_file(path):
    """{source: {kind: bytes}} from the linker's map."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    text = text[text.index("Linker script and memory map"):]
    sizes = {}
    for section, size, origin in re.findall(
            r"^ (\.\S+)\s+0x[0-9a-f]+\s+(0x[0-9a-f]+) (\S+)$", text, re.M):
        kind = kind_of(section)
        source = re.search(r"/mavkit/((?:\w+/)?\w+)\.cpp\.o$", origin)
        if kind and int(size, 16):
            row = sizes.setdefault(source.group(1) if source else "startup, linker", {})
            row[kind] = row.get(kind, 0) + int(size, 16)
    return sizes


def sections(path):
    lines = run(PREFIX + "size", "-A", path).splitlines()
    return {line.split()[0]: int(line.split()[1]) for line in lines if line.startswith(".")}


def library():
    stripped = os.path.join(BUILD, "libmavkit-stripped.so")
    run(PREFIX + "strip", "-o", stripped, os.path.join(BUILD, "libmavkit.so"))
    kinds = ["code", "constants", "unwinding", "data", "bss"]
    print(f"{'facility':<22}" + "".join(f"{kind:>11}" for kind in kinds))
    for source, row in sorted(by_file(os.path.join(BUILD, "libmavkit.map")).items()):
        print(f"{source:<22}" + "".join(f"{row.get(kind, 0):>11,}" for kind in kinds))
    total = dict.fromkeys(kinds, 0)
    for name, size in sections(stripped).items():
        if kind_of(name):
            total[kind_of(name)] += size
    print(f"{'stripped library':<22}" + "".join(f"{total[kind]:>11,}" for kind in kinds))
    text, data, bss = map(int, run(PREFIX + "size", stripped).splitlines()[1].split()[:3])
    code = total["code"] + total["constants"]
    print(f"\ncode and constants {code:,} bytes (at most {LIMIT_CODE:,}); "
          f"data and bss {data + bss:,} (at most {LIMIT_DATA:,})")
    print(f"with the tables of names and for exceptions, as `size` counts text: {text:,}; "
          f"the file: {os.path.getsize(stripped):,}")
    return code <= LIMIT_CODE and data + bss <= LIMIT_DATA


def program(name, allowed):
    """Links a program with the static library; true when it holds only functions of `allowed`."""
    out = os.path.join(BUILD, name)
    archive = os.path.join(BUILD, "libmavkit.a")
    linker_map = out + ".map"
    run(CXX, "-std=c++17", "-Os", "-ffunction-sections", "-fdata-sections", "-I.", "-o", out,
        f"bench/size/{name}.cpp", archive, "-Wl,--gc-sections", f"-Wl,-Map={linker_map}")
    with open(linker_map, encoding="utf-8") as file:
        text = file.read()
    text = text[text.index("Linker script and memory map"):]
    taken = re.findall(r"^ \.(?:text|rodata|bss|data|sbss|sdata)\S*\s+0x[0-9a-f]+\s+(0x[0-9a-f]+) "
                       r"\S+libmavkit\.a\((\w+)\.cpp\.o\)$", text, re.M)
    sizes = {}
    for size, source in taken:
        if int(size, 16):
            sizes[source] = sizes.get(source, 0) + int(size, 16)
    print(f"{name} takes: " + ", ".join(f"{source} {size:,}" for source, size in sizes.items()))
    return bool(sizes) and set(sizes) <= allowed


good = library()
print()
good = program("OnlyCrc", {"Bits"}) and good
good = program("OnlyTrace", {"MavTrace", "MavFile", "BcdTime", "TraceSetting"}) and good
sys.exit(0 if good else 1)
