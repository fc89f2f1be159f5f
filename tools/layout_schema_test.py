#!/usr/bin/env python3
"""docs/layout.schema.json against the layouts of the repository and against kovtool's loader.

Every layout file in examples/, tools/testdata/ and docs/ that the loader accepts must be valid
under the schema, and every layout the schema refuses (those files and a set of mistakes below)
must be refused by `kovtool verify` with exit status 2: the schema may let a mistake pass that
only the loader sees, but never refuse a layout that loads.

Usage: layout_schema_test.py KOVTOOL SOURCE_DIR
"""
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema


def one_block(fields, extra=""):
    return ('{"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 16, '
            '"maxDataSize": 16' + extra + ', "fields": [' + fields + ']}]}]}')


NUM = '{"name": "N", "type": "number", "bits": 8, "byteOffset": 0}'

# Mistakes the schema catches, each with what it breaks.
MISTAKES = {
    "no partitions": '{"partitions": []}',
    "unknown member": '{"partition": [], "partitions": [{"number": 1, "blocks": []}]}',
    "bits above 32": one_block('{"name": "N", "type": "number", "bits": 40}'),
    "a type that does not exist": one_block('{"name": "N", "type": "float"}'),
    "a member of another type": one_block('{"name": "N", "type": "number", "bits": 8, "chars": 2}'),
    "msbStart above 7": one_block('{"name": "N", "type": "number", "bits": 8, "byteOffset": 0, '
                                  '"msbStart": 9}'),
    "a 16-bit string": one_block('{"name": "S", "type": "string", "chars": 2, "charBits": 16}'),
    "a block name that leaves its folder":
        '{"partitions": [{"number": 1, "blocks": [{"name": "../x", "kovType": 16, '
        '"maxDataSize": 1}]}]}',
    "a list without entries": one_block('{"name": "L", "type": "list", "format": "fixed", '
                                        '"maxEntries": 1, "entryBits": 8, "entry": []}'),
    "an enum that is a list": one_block('{"name": "N", "type": "number", "bits": 8, '
                                        '"byteOffset": 0, "enum": ["A"]}'),
    "a scale that is a fraction": one_block('{"name": "N", "type": "number", "bits": 8, '
                                            '"byteOffset": 0, "scale": 0.5}'),
    "a union without options": one_block('{"name": "U", "type": "union", "format": "fixed", '
                                         '"bits": 8, "select": {"default": 1}, "options": []}'),
    "a kovType of 0": '{"partitions": [{"number": 1, "blocks": [{"name": "B", "kovType": 0, '
                      '"maxDataSize": 1}]}]}',
    "an access that does not exist": one_block(NUM, ', "access": "writeOnly"'),
}


def loads(kovtool, path):
    run = subprocess.run([kovtool, "verify", str(path)], capture_output=True, text=True)
    if run.returncode not in (0, 2):
        raise AssertionError(f"{path}: verify exited {run.returncode}: {run.stderr}")
    return run.returncode == 0


def main():
    kovtool, source = sys.argv[1], pathlib.Path(sys.argv[2])
    schema = json.loads((source / "docs" / "layout.schema.json").read_text())
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    failures = []

    files = []
    for folder in ("examples", "tools/testdata", "docs"):
        for path in sorted((source / folder).rglob("*.json")):
            doc = json.loads(path.read_text())
            if isinstance(doc, dict) and "partitions" in doc:
                files.append((str(path.relative_to(source)), path, doc))
    with tempfile.TemporaryDirectory() as tmp:
        for what, text in MISTAKES.items():
            path = pathlib.Path(tmp) / (what.replace(" ", "-") + ".json")
            path.write_text(text)
            doc = json.loads(text)
            if validator.is_valid(doc):
                failures.append(f"{what}: the schema lets it pass")
            files.append((what, path, doc))
        for name, path, doc in files:
            valid = validator.is_valid(doc)
            loaded = loads(kovtool, path)
            if loaded and not valid:
                error = next(validator.iter_errors(doc))
                failures.append(f"{name}: loads, but the schema refuses it: {error.message}")
    for name in ("examples/radio/layout.json", "tools/testdata/format-example.layout.json"):
        if not any(n == name for n, _, _ in files):
            failures.append(f"{name}: not found")
    print(f"{len(files)} layouts checked")
    for failure in failures:
        print("FAIL:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
