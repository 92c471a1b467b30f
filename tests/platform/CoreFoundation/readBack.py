"""Reads the property lists of a folder with Python's own reader.

    readBack.py FOLDER

Prints one line for each file NAME.plist: the name, a tab, and the tree as JSON, or "refused". The
calling test expects this form of JSON.
"""

import datetime
import json
import pathlib
import plistlib
import struct
import sys

# No written tree is as deep as this.
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
    except Exception as error:  # Any error means that the file is refused.
        print(f"{path.name}: {error!r}", file=sys.stderr)
        return "refused"
    return json.dumps(node(tree), sort_keys=True)


for file in sorted(pathlib.Path(sys.argv[1]).glob("*.plist")):
    print(file.stem, line(file), sep="\t")
