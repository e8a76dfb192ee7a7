#!/usr/bin/env python3
"""check.py MAVUTIL: finds what is wrong in the Markdown pages: links and anchors that lead nowhere,
paths, commands and presets that do not exist, and operations without a row in docs/errors.md. Run
it at the root of the tree. Ends with 1 when there is a finding."""

import json
import os
import re
import subprocess
import sys

findings = []


def anchors(text):
    """The anchors of a page's headings, as the common readers of Markdown make them."""
    found = set()
    for heading in re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S),
                              re.M):
        slug = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        count = 0
        while slug + (f"-{count}" if count else "") in found:
            count += 1
        found.add(slug + (f"-{count}" if count else ""))
    return found


def verbs_of_run():
    with open("run", encoding="utf-8") as file:
        cases = file.read().split("case $verb in", 1)[1]
    return set(re.findall(r"^([a-z-]+)\)$", cases, re.M)) | {"help"}


def presets():
    with open("CMakePresets.json", encoding="utf-8") as file:
        return {preset["name"] for preset in json.load(file)["configurePresets"]}


def verbs_of_mavutil(program):
    text = subprocess.run([program, "help"], check=False, capture_output=True, text=True).stdout
    return set(re.findall(r"^  ([a-z]+) ", text, re.M)) | {"help"}


def check_links(page, text, pages):
    prose = re.sub(r"^ *```.*?^ *```", "", text, flags=re.M | re.S)
    links = re.findall(r"\]\(([^)\s]+)\)|<img src=\"([^\"]+)\"", prose)
    for link in ("".join(pair) for pair in links):
        if re.match(r"[a-z]+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
        if not os.path.exists(target):
            findings.append(f"{page}: no file {target}")
        elif anchor and anchor not in anchors(pages.get(target, "")):
            findings.append(f"{page}: {target} has no heading #{anchor}")


def check_words(page, text, known):
    for kind, pattern in (("verb of ./run", r"(?<!\S)`?\./run ([a-z-]+)"),
                          ("verb of mavutil", r"(?:^\$ |`|\| *)mavutil ([a-z]+)"),
                          ("preset", r"--preset[ =]([a-z0-9-]+)")):
        for word in sorted(set(re.findall(pattern, text, re.M)) - known[kind]):
            findings.append(f"{page}: no {kind} is called '{word}'")
    tops = "bench|cmake|docs|examples|machine|mavkit|packaging|tests|tools"
    for path in set(re.findall(rf"`((?:{tops})/[\w./-]*)`", text)):
        if not os.path.exists(path) and not os.path.exists(path + ".cpp"):
            findings.append(f"{page}: no file {path}")


def check_operations(results):
    with open("cmake/abi.txt", encoding="utf-8") as file:
        exported = {line.split("(")[0].strip() for line in file if "(" in line and "~" not in line}
    for name in sorted(exported):
        if not re.search(re.escape(name) + r"\b|" + re.escape(name) + r"(?=[(<`])", results):
            findings.append(f"docs/errors.md: no row for {name}")


known_words = {"verb of ./run": verbs_of_run(), "preset": presets(),
               "verb of mavutil": verbs_of_mavutil(sys.argv[1])}
names = [name for name in sorted(os.listdir(".")) if name.endswith(".md")]
names += [f"docs/{name}" for name in sorted(os.listdir("docs")) if name.endswith(".md")]
texts = {}
for name in names:
    with open(name, encoding="utf-8") as page_file:
        texts[name] = page_file.read()
for name, content in texts.items():
    check_links(name, content, texts)
    check_words(name, content, known_words)
check_operations(texts["docs/errors.md"])
print("\n".join(findings) or f"{len(texts)} pages: links, commands and operations are right")
sys.exit(1 if findings else 0)
