"""Reads the property lists of a folder with Python's own reader.

    readBack.py FOLDER

For each file NAME.plist one line is printed: the name, a tab, and its tree in the JSON form that
the test which calls this prints too, or "refused".
"""

import datetime
import json
import pathlib
import plistlib
import struct
import sys

# Deeper than any tree that is written.
sys.setrecursionlimit(10000)

EPOCH = datetime.datetime(2001, 1, 1)


def node(value):
    if isinstance(value, bool):
        return {"boolean": value}
    if isinstance(value, int):
        return {"integer": str(value)}
    if isinstance(value, float):
        return {"real": "nan" if value != value else struct.pack(">d", value).hex()}
    if isinstance(value, str):
        return {"string": value}
    if isinstance(value, bytes):
        return {"data": value.hex()}
    if isinstance(value, datetime.datetime):
        return {"date": round((value - EPOCH).total_seconds())}
    if isinstance(value, list):
        return {"array": [node(element) for element in value]}
    return {"dict": {key: node(element) for key, element in value.items()}}


def line(path):
    try:
        tree = plistlib.loads(path.read_bytes(), fmt=plistlib.FMT_XML)
    except Exception as error:  # whatever it is, it is no tree
        print(f"{path.name}: {error!r}", file=sys.stderr)
        return "refused"
    return json.dumps(node(tree), sort_keys=True)


for file in sorted(pathlib.Path(sys.argv[1]).glob("*.plist")):
    print(file.stem, line(file), sep="\t")
