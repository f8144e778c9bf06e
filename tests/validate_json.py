#!/usr/bin/env python3
"""Validates JSON files against a JSON Schema (draft 2020-12) with Debian's python3-jsonschema.

Usage: validate_json.py SCHEMA[#/$defs/NAME] FILE...   prints one line per error,
"FILE: $.path: message", and exits 1 when any file is invalid or unreadable, 0 when all conform.
With #/$defs/NAME the files are validated against that definition of the schema.
"""
import json
import sys

import jsonschema


def path_of(error):
    where = "$"
    for part in error.absolute_path:
        where += f"[{part}]" if isinstance(part, int) else f".{part}"
    return where


def main():
    if len(sys.argv) < 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    path, _, pointer = sys.argv[1].partition("#")
    with open(path) as f:
        schema = json.load(f)
    if pointer:
        schema = {"$schema": schema["$schema"], "$defs": schema["$defs"], "$ref": "#" + pointer}
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    bad = 0
    for name in sys.argv[2:]:
        try:
            with open(name) as f:
                doc = json.load(f)
        except (OSError, ValueError) as e:
            print(f"{name}: not JSON: {e}")
            bad += 1
            continue
        errors = sorted(validator.iter_errors(doc), key=lambda e: list(map(str, e.absolute_path)))
        for e in errors:
            print(f"{name}: {path_of(e)}: {e.message}")
        bad += bool(errors)
    return 1 if bad else 0


sys.exit(main())
