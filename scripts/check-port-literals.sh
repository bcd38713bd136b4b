#!/usr/bin/env bash
# Port names are spelled once: in the bundle vocabulary (host/data/port_bundles.json) and in the
# constants generated from it (vex/ports.h, `vex::ports::<bundle>::<port>`). This check reads every
# source file of the module, the SDK, the host, the command line and the benchmarks (tests may spell
# port names) and fails, listing each place, when a string literal is exactly a port name of a
# bundle. Comments do not count.
#
# A literal that spells the same word for something else (a JSON key "type" of the scene file, a
# texture role of the glTF packing) is exempted in scripts/port-literals.allow, one
# "<path> <word>  # why" a line.
#
# Usage: scripts/check-port-literals.sh [repository root]   (exit 0: none found, 1: listed)
set -euo pipefail
root="${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}"
exec python3 - "$root" <<'PY'
import json
import os
import sys

root = sys.argv[1]
vocabulary = json.load(open(os.path.join(root, "host/data/port_bundles.json"), encoding="utf-8"))
ports = {}
for bundle, body in vocabulary.items():
    for port in body["ports"]:
        ports.setdefault(port["name"], bundle)

allowed = set()
allow_file = os.path.join(root, "scripts/port-literals.allow")
if os.path.exists(allow_file):
    for number, line in enumerate(open(allow_file, encoding="utf-8"), 1):
        line = line.split("#", 1)[0].strip()
        if not line:
            continue
        fields = line.split()
        if len(fields) != 2:
            sys.exit(f"{allow_file}:{number}: expected \"<path> <word>\", got \"{line}\"")
        allowed.add((fields[0], fields[1]))

def literals(text):
    """(line, content) of every ordinary string literal of C++ source text, comments skipped."""
    i, n, line = 0, len(text), 1
    while i < n:
        c = text[i]
        if c == "\n":
            line += 1
            i += 1
        elif text.startswith("//", i):
            i = text.find("\n", i)
            i = n if i < 0 else i
        elif text.startswith("/*", i):
            end = text.find("*/", i + 2)
            end = n if end < 0 else end + 2
            line += text.count("\n", i, end)
            i = end
        elif c == "R" and text.startswith('R"', i) and (i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")):
            open_paren = text.find("(", i + 2)
            delimiter = text[i + 2:open_paren]
            close = text.find(")" + delimiter + '"', open_paren)
            close = n if close < 0 else close + len(delimiter) + 2
            line += text.count("\n", i, close)
            i = close
        elif c == "'" and not (i > 0 and (text[i - 1].isalnum())):  # a digit separator is not a quote
            j = i + 1
            while j < n and text[j] != "'":
                j += 2 if text[j] == "\\" else 1
            i = j + 1
        elif c == '"':
            j, content = i + 1, []
            while j < n and text[j] != '"':
                if text[j] == "\\" and j + 1 < n:
                    content.append(text[j:j + 2] if text[j + 1] != '"' else '"')
                    j += 2
                else:
                    content.append(text[j])
                    j += 1
            yield line, "".join(content)
            i = j + 1
        else:
            i += 1

found = []
for top in ("source", "sdk", "host", "cli", "bench"):
    for directory, subdirs, files in os.walk(os.path.join(root, top)):
        subdirs.sort()
        for name in sorted(files):
            if not name.endswith((".cpp", ".h", ".hpp", ".cc", ".in")):
                continue
            path = os.path.join(directory, name)
            relative = os.path.relpath(path, root)
            text = open(path, encoding="utf-8", errors="replace").read()
            for line, content in literals(text):
                if content in ports and (relative, content) not in allowed:
                    found.append(f"{relative}:{line}: \"{content}\" (a port of {ports[content]})")

if found:
    print(f"{len(found)} port name(s) spelled as string literals; use the constants of vex/ports.h:")
    print("\n".join(found))
    sys.exit(1)
print("no port name is spelled as a string literal")
PY
