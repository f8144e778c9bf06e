#!/usr/bin/env python3
"""Lists the functions of C++ sources longer than a limit (lines from the line that opens the
body to the line that closes it). Reads clang-formatted code: a function body opens with a '{'
that ends a line whose text looks like a signature, and closes at the matching brace. Lambdas
and class bodies are part of the function or class they stand in; class member functions
defined inline count on their own.

Also checks that the tool's includes run one way, cli -> sources -> model <- sinks: a unit under
a folder of the tool (model/, sources/, sinks/, cli/) includes only what that folder may see.

Usage: function-lengths.py [--limit N] PATH...   (exit 1 when any function is longer, or any
include runs backwards)
"""
import argparse, os, re, sys

SIGNATURE = re.compile(r"\)\s*(const)?\s*(noexcept)?\s*(override)?\s*(->\s*[\w:<>,\s]+)?\s*\{\s*$")
NOT_FUNCTION = re.compile(r"^\s*(if|for|while|switch|catch|do|else)\b|=\s*\[|\]\s*\(|^\s*\[")


def strip(line):
    """The line without string and character literals and // comments."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])'", "''", line)
    return line.split("//")[0]


def functions(path):
    lines = [strip(l) for l in open(path, encoding="utf-8", errors="replace")]
    out, depth, start = [], 0, []
    for n, line in enumerate(lines, 1):
        opens_function = SIGNATURE.search(line) and not NOT_FUNCTION.search(line)
        for ch in line:
            if ch == "{":
                depth += 1
                if opens_function and not any(s[1] for s in start):
                    start.append((depth, n, line.strip()))
                    opens_function = False
                    continue
                start.append((depth, None, None))
            elif ch == "}":
                d, first, text = start.pop() if start else (0, None, None)
                if first is not None:
                    out.append((n - first + 1, first, text))
                depth -= 1
    return out


# What each folder of the tool may include, besides itself.
MAY_INCLUDE = {"model": {"model"}, "sources": {"sources", "model"}, "sinks": {"sinks", "model"},
               "cli": {"cli", "sources", "sinks", "model"}}
INCLUDE = re.compile(r'^\s*#\s*include\s+"(\w+)/')


def backward_includes(path):
    """(line, folder included) of each include of a folder the file's own folder may not see."""
    parts = os.path.normpath(path).split(os.sep)
    layer = next((p for p in reversed(parts[:-1]) if p in MAY_INCLUDE), None)
    if layer is None:
        return []
    out = []
    for n, line in enumerate(open(path, encoding="utf-8", errors="replace"), 1):
        m = INCLUDE.match(line)
        if m and m.group(1) in MAY_INCLUDE and m.group(1) not in MAY_INCLUDE[layer]:
            out.append((n, f"{layer}/ includes {m.group(1)}/"))
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--limit", type=int, default=80)
    ap.add_argument("paths", nargs="+")
    args = ap.parse_args()
    long, backward = [], []
    for root in args.paths:
        files = [root] if os.path.isfile(root) else [
            os.path.join(d, f) for d, _, fs in os.walk(root) for f in fs
            if f.endswith((".cpp", ".h", ".in"))]
        for f in sorted(files):
            backward += [(f, n, what) for n, what in backward_includes(f)]
            for length, line, text in functions(f):
                if length > args.limit:
                    long.append((length, f, line, text))
    for length, f, line, text in sorted(long, reverse=True):
        print(f"{f}:{line}: {length} lines: {text[:70]}")
    print(f"function-lengths: {len(long)} functions over {args.limit} lines")
    for f, n, what in backward:
        print(f"{f}:{n}: {what}")
    print(f"function-lengths: {len(backward)} includes run backwards")
    return 1 if long or backward else 0


sys.exit(main())
