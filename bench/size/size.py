#!/usr/bin/env python3
"""The size of the library on the target: of the shared one by facility, from the linker's map; what
two tiny programs take of the static one; and a static mavutil. Ends with 1 when a limit is passed
or a program takes too much.

size.py BUILD CXX: the folder of the build, and the target's compiler
"""

import glob
import os
import re
import subprocess
import sys

BUILD, CXX = sys.argv[1:3]
PREFIX = CXX[: -len("g++")]
ARCHIVE = os.path.join(BUILD, "libmavkit.a")
KIB = 1024
# What is counted, and its limit.
LIMITS = {"code and constants": 46 * KIB, "data and bss": 4 * KIB, "stripped file": 64 * KIB,
          "static mavutil": 220 * KIB}
# The sections by their purpose on the device: code, constants, tables for exceptions, names for the
# loader, data that is written.
KINDS = {"code": r"\.text|\.init|\.fini|\.MIPS\.stubs", "constants": r"\.rodata|\.data\.rel\.ro",
         "unwinding": r"\.eh_frame|\.gcc_except_table",
         "data": r"\.data|\.sdata|\.got|\.(init|fini)_array", "bss": r"\.s?bss"}


def run(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def stripped_size(path):
    stripped = path + ".stripped"
    run(PREFIX + "strip", "-o", stripped, path)
    return os.path.getsize(stripped)


def kind_of(section):
    for kind in ("constants", "code", "unwinding", "data", "bss"):
        if re.match(rf"(?:{KINDS[kind]})(?:$|[._])", section):
            return kind
    return None


def link_with_own_unwinder():
    """The shared library as on a terminal whose unwinder is a library of its own."""
    unwinder = os.path.join(BUILD, "libgcc_s.so.1")
    # Only the project's own toolchains have this one.
    own = run(CXX, "-print-file-name=libfind_object.a").strip()
    own = ["-lfind_object"] if os.path.exists(own) else []
    run(CXX, "-shared", "-o", unwinder, "-nodefaultlibs", "-Wl,--whole-archive", "-lgcc_eh", *own,
        "-Wl,--no-whole-archive", "-lgcc", "-lc", "-Wl,-soname,libgcc_s.so.1")
    library = os.path.join(BUILD, "libmavkit-own-unwinder.so")
    run(CXX, "-shared", "-o", library, "-nodefaultlibs", "-Wl,--whole-archive", ARCHIVE,
        "-Wl,--no-whole-archive", "-lstdc++", "-lm", unwinder, "-lc", "-lgcc",
        f"-Wl,--version-script={BUILD}/mavkit.map", "-Wl,--gc-sections",
        f"-Wl,-Map={library}.map")
    return library


def by_file(path):
    """{source: {kind: bytes}} from the linker's map."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    text = text[text.index("Linker script and memory map"):]
    sizes = {}
    for section, size, origin in re.findall(
            r"^ (\.\S+)\s+0x[0-9a-f]+\s+(0x[0-9a-f]+) (\S+)$", text, re.M):
        kind = kind_of(section)
        source = re.search(r"libmavkit\.a\((\w+)\.cpp\.o\)$", origin)
        if kind and int(size, 16):
            row = sizes.setdefault(source.group(1) if source else "startup, linker", {})
            row[kind] = row.get(kind, 0) + int(size, 16)
    return sizes


def sections(path):
    lines = run(PREFIX + "size", "-A", path).splitlines()
    return {line.split()[0]: int(line.split()[1]) for line in lines if line.startswith(".")}


def library():
    """Prints the table of the shared library; {what: bytes} of what has a limit."""
    path = link_with_own_unwinder()
    kinds = ["code", "constants", "unwinding", "data", "bss"]
    print(f"{'facility':<22}" + "".join(f"{kind:>11}" for kind in kinds))
    for source, row in sorted(by_file(path + ".map").items()):
        print(f"{source:<22}" + "".join(f"{row.get(kind, 0):>11,}" for kind in kinds))
    total = dict.fromkeys(kinds, 0)
    for name, size in sections(path).items():
        if kind_of(name):
            total[kind_of(name)] += size
    print(f"{'stripped library':<22}" + "".join(f"{total[kind]:>11,}" for kind in kinds))
    linked_in = stripped_size(os.path.join(BUILD, "libmavkit.so"))
    print(f"\nThe file with this toolchain's unwinder linked in: {linked_in:,}\n")
    return {"code and constants": total["code"] + total["constants"],
            "data and bss": total["data"] + total["bss"], "stripped file": stripped_size(path)}


def program(name, allowed):
    """Links a program with the static library; true when it holds only functions of `allowed`."""
    out = os.path.join(BUILD, name)
    linker_map = out + ".map"
    run(CXX, "-std=c++17", "-Os", "-ffunction-sections", "-fdata-sections", "-I.", "-o", out,
        f"bench/size/{name}.cpp", ARCHIVE, "-Wl,--gc-sections", f"-Wl,-Map={linker_map}")
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


def static_mavutil():
    out = os.path.join(BUILD, "mavutil-static")
    objects = glob.glob(os.path.join(BUILD, "tools/**/*.o"), recursive=True)
    run(CXX, "-static", "-o", out, *objects, ARCHIVE, "-Wl,--gc-sections")
    return stripped_size(out)


counted = library()
counted["static mavutil"] = static_mavutil()
good = True
for what, size in counted.items():
    print(f"{what}: {size:,} bytes, {size / KIB:.1f} KiB (at most {LIMITS[what] / KIB:g} KiB)")
    good = good and size <= LIMITS[what]
print()
good = program("OnlyCrc", {"Bits"}) and good
good = program("OnlyTrace", {"MavTrace", "MavFile", "BcdTime", "TraceSetting"}) and good
sys.exit(0 if good else 1)
