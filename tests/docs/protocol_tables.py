# SPDX-License-Identifier: Apache-2.0

"""Checks that the tables of docs/protocol.md have every command, result and field of the code, and no others.

    protocol_tables.py SOURCE_DIRECTORY
"""

import pathlib
import re
import sys

SOURCE = pathlib.Path(sys.argv[1])
PAGE = (SOURCE / "docs/protocol.md").read_text(encoding="utf-8")
# Messages of KevraCommonMsg.proto that no command carries are left out.
DEFINITIONS = {
    "src/gen_lite/namingService.proto": None,
    "src/gen_lite/KevraCommonMsg.proto": {"DebugOption"},
    "client/messages/QvHost.proto": None,
}
TEXTS = {"string": {"text", "bytes"}}


def code_of(*files):
    return "\n".join((SOURCE / file).read_text(encoding="utf-8") for file in files)


def section(title):
    return re.search(rf"^##+ {title}\n(.*?)(?=^##|\Z)", PAGE, re.MULTILINE | re.DOTALL).group(1)


def codes_of_page(title):
    return {int(code) for code in re.findall(r"^\| (\d+)\b", section(title), re.MULTILINE)}


def fields_of_page(message):
    """Returns the types and the names of the message's fields by their numbers."""
    if message == "HostService" and "HostService has the fields of ServiceInfo." in PAGE:
        message = "ServiceInfo"
    row = re.search(rf"^\| {message} \| (.*) \|$", PAGE, re.MULTILINE)
    if row:
        found = re.findall(r"(\d+) (\w+) \((\w+)\)", row.group(1))
        return {number: (kind, name) for number, name, kind in found}
    found = re.findall(r"^\| (\d+) \| ([\w ]+) \| (\w+)", section(message), re.MULTILINE)
    return {number: (kind, name) for number, kind, name in found}


def messages():
    """Yields each message of the definition files, and its fields as fields_of_page() returns them."""
    for file, wanted in DEFINITIONS.items():
        for message, body in re.findall(r"^message (\w+) {\n(.*?)^}", code_of(file), re.MULTILINE | re.DOTALL):
            if wanted is None or message in wanted:
                found = re.findall(r"^  (\w+) (\w+) (\w+) = (\d+);", body, re.MULTILINE)
                yield message, {
                    number: ("list of " * (label == "repeated") + kind, name) for label, kind, name, number in found}


def is_same(page, code):
    return page is not None and page[1] == code[1] and page[0] in TEXTS.get(code[0], {code[0]})


def main():
    header = code_of("client/include/QvFrame.h", "src/common/include/QvPlugin.h")
    commands = {int(code, 0) for code in re.findall(r"^    QV_(?:HOST_)?COMMAND_\w+ = (\w+)", header, re.MULTILINE)}
    results = {int(code) for code in re.findall(r"^    QV_(?:HOST_)?(?:ERROR_\w+|OK) = (\d+)", header, re.MULTILINE)}
    problems = [f"command {code}" for code in commands ^ codes_of_page("Commands")]
    problems += [f"result {code}" for code in results ^ codes_of_page("Results")]
    count = 0
    for message, fields in messages():
        page = fields_of_page(message)
        problems += [f"field {number} of {message}" for number in set(page) ^ set(fields)]
        problems += [f"field {number} of {message}: the page has {page.get(number)}, the code has {field}"
                     for number, field in fields.items() if not is_same(page.get(number), field)]
        count += len(fields)
    if problems or len(commands) < 10 or len(results) < 16 or count < 50:
        sys.exit("page and code differ:\n" + "\n".join(problems))
    print(f"{len(commands)} commands, {len(results)} results, {count} fields")


main()
