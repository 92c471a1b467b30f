#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0

"""Tests what the files of a build for macOS say. scripts/macos runs it.

    macos_test.py BUILD_FOLDER x86_64|arm64 system|bundled ROOT

ROOT is the directory of the stubs with which the files were linked. The system's loader and the product's hosts
rely on these facts. The files are read, and nothing is run.
"""
import fnmatch
import pathlib
import plistlib
import re
import struct
import sys
import unittest

import macho

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD, ARCH, FOUNDATION, ROOT = pathlib.Path(sys.argv[1]), *sys.argv[2:4], pathlib.Path(sys.argv[4])

SYSTEM = "/usr/lib/libSystem.B.dylib"
FRAMEWORK = "/System/Library/Frameworks/CoreFoundation.framework/Versions/A/CoreFoundation"
BUNDLED = "@rpath/libQvCoreFoundation.dylib"
COREFOUNDATION = FRAMEWORK if FOUNDATION == "system" else BUNDLED
LOG, UTIL, CLIENT = "@rpath/libQvLog.dylib", "@rpath/libQvUtil.dylib", "@rpath/libQvClient.1.dylib"
SQLITE, ICONV = "/usr/lib/libsqlite3.dylib", "/usr/lib/libiconv.2.dylib"

PLUGIN, CLIENT_FILE = "lib/libnamingService.dylib", "lib/libQvClient.1.dylib"
# Each file with the libraries that it uses.
LIBRARIES = {
    PLUGIN: {COREFOUNDATION, SYSTEM, UTIL, LOG},
    "lib/libQvLog.dylib": {SYSTEM},
    "lib/libQvUtil.dylib": {COREFOUNDATION, SYSTEM, LOG},
    CLIENT_FILE: {SYSTEM},
    "bin/qvhost": {COREFOUNDATION, SYSTEM, SQLITE, CLIENT},
}
if FOUNDATION == "bundled":
    LIBRARIES["lib/libQvCoreFoundation.dylib"] = {SYSTEM, ICONV}

PLUGIN_FUNCTIONS = {
    "QvPluginFinalize", "QvPluginFree", "QvPluginGetHandlers", "QvPluginGetId", "QvPluginInitialize",
    "QvPluginSetNotificationCallback",
}
COMMANDS = [
    (0x0200, "register services"), (0x0201, "unregister services"), (0x0202, "get services"),
    (0x0102, "set debug level"),
]
ROW_SIZE = 48


def image(file):
    return macho.Image((BUILD / file).resolve())


def definitions(library):
    """Returns what the library exports, as far as that is known here."""
    if library.startswith("@rpath/"):
        return image("lib/" + library.removeprefix("@rpath/")).exports()
    stub = ROOT / {
        SYSTEM: "lib/libSystem.tbd",
        FRAMEWORK: "Frameworks/CoreFoundation.framework/CoreFoundation.tbd",
        SQLITE: "lib/libsqlite3.tbd",
        ICONV: "lib/libiconv.tbd",
    }[library]
    return set(re.findall(r"[\w$]+", stub.read_text()))


class Files(unittest.TestCase):
    def each(self, check):
        """Calls the check with each file's name and contents."""
        for file in LIBRARIES:
            with self.subTest(file=file):
                check(file, image(file))

    def test_are_for_the_processor_and_the_system(self):
        def check(file, read):
            self.assertEqual(read.machine, ARCH)
            self.assertEqual(read.type, "library" if file.startswith("lib/") else "program")
            self.assertEqual(read.platform, macho.PLATFORM_MACOS)
            self.assertEqual(read.least_system, (11, 0))

        self.each(check)

    def test_use_these_libraries_and_no_others(self):
        self.each(lambda file, read: self.assertEqual(sorted(read.libraries), sorted(LIBRARIES[file])))

    def test_find_the_libraries_beside_themselves(self):
        def check(file, read):
            if file.startswith("lib/"):
                self.assertEqual(read.install_name, "@rpath/" + file.removeprefix("lib/"))
            self.assertTrue(read.run_paths)
            for path in read.run_paths:
                self.assertTrue(path.startswith("@loader_path"), path)

        self.each(check)

    def test_need_only_what_these_libraries_define(self):
        def check(_, read):
            known = {library: definitions(library) for library in read.libraries}
            self.assertTrue(read.undefined())
            for name, library in read.undefined():
                self.assertIn(library, known, name)
                self.assertIn(name, known[library], library)

        self.each(check)

    # The system starts nothing for arm64 that has no signature.
    @unittest.skipUnless(ARCH == "arm64", "only arm64 needs a signature")
    def test_are_signed(self):
        self.each(lambda _, read: self.assertTrue(read.is_signed))


class Plugin(unittest.TestCase):
    def setUp(self):
        self.plugin = image(PLUGIN)

    def test_exports_the_six_functions_alone(self):
        self.assertEqual(self.plugin.exports(), {"_" + name for name in PLUGIN_FUNCTIONS})

    def test_table_has_rows_of_48_bytes(self):
        first = struct.pack("<I36s", COMMANDS[0][0], COMMANDS[0][1].encode())
        tables = [(section, at) for section in self.plugin.sections
                  if (at := self.plugin.bytes_of(section).find(first)) >= 0]
        self.assertEqual(len(tables), 1)
        section, at = tables[0]
        self.assertEqual((section.address + at) % 8, 0)
        text = self.plugin.section("__TEXT", "__text")
        for code, name in COMMANDS:
            row = struct.unpack_from("<I36sQ", self.plugin.bytes_of(section), at)
            self.assertEqual(row[0], code)
            self.assertEqual(row[1], name.encode().ljust(36, b"\0"))
            self.assertIn(row[2], range(text.address, text.address + text.size))
            at += ROW_SIZE

    def test_saves_with_the_flags_of_macos(self):
        # O_WRONLY | O_CREAT | O_TRUNC are 0x601 on macOS and 0x241 on Linux.
        flags = flags_of_open(self.plugin)
        self.assertIn(0x601, flags)
        self.assertNotIn(0x241, flags)


class OtherLibraries(unittest.TestCase):
    def test_export_what_their_lists_say(self):
        for name in ("QvLog", "QvUtil"):
            listed = (TOP / "platform" / name / "exports.txt").read_text().split()
            self.assertEqual(image(f"lib/lib{name}.dylib").exports(), {"_" + symbol for symbol in listed})

    def test_client_library_exports_what_its_patterns_say(self):
        patterns = (TOP / "client/exports.txt").read_text().split()
        exports = {name.removeprefix("_") for name in image(CLIENT_FILE).exports()}
        self.assertTrue(exports)
        for pattern in patterns:
            exports -= set(fnmatch.filter(exports, pattern))
        self.assertEqual(exports, set())


class Installation(unittest.TestCase):
    prefix = BUILD / "installed/usr/local"

    def test_files_find_each_other(self):
        for file, libraries in LIBRARIES.items():
            name = pathlib.Path(file).name
            if file.startswith("bin/"):
                place = self.prefix / "bin"
            else:
                place = self.prefix / ("lib" if CLIENT.endswith(name) else "lib/Vornak/LorxCore")
            with self.subTest(file=file):
                paths = macho.Image(place / name).run_paths
                places = [pathlib.Path(path.replace("@loader_path", str(place))) for path in paths]
                for library in libraries:
                    if library.startswith("@rpath/"):
                        self.assertTrue(any((other / library.removeprefix("@rpath/")).exists() for other in places))

    def test_launchd_starts_the_installed_program(self):
        file = self.prefix / "Library/LaunchDaemons/com.vornak.lorx.naming-service.plist"
        job = plistlib.loads(file.read_bytes())
        self.assertEqual(job["Label"], file.stem)
        program, *arguments = job["ProgramArguments"]
        self.assertTrue((BUILD / "installed" / program.lstrip("/")).is_file())
        self.assertEqual(arguments, ["serve"])
        self.assertEqual(job["Umask"], 0o077)
        self.assertTrue(job["RunAtLoad"])
        self.assertEqual(job["KeepAlive"], {"SuccessfulExit": False})


def flags_of_open(read):
    """Returns the constants that the code loads into the register of the flags shortly before it calls open()."""
    stub = read.stub_of("_open")
    text = read.section("__TEXT", "__text")
    code = read.bytes_of(text)
    flags = set()
    if ARCH == "x86_64":
        for call in re.finditer(rb"\xe8", code):
            end = call.end() + 4
            if end > len(code):
                break
            (distance,) = struct.unpack_from("<i", code, call.end())
            if text.address + end + distance == stub:
                # movl $flags, %esi
                before = code[max(0, call.start() - 16) : call.start()]
                flags |= {struct.unpack("<I", found)[0] for found in re.findall(rb"\xbe(....)", before, re.DOTALL)}
        return flags
    words = struct.unpack(f"<{len(code) // 4}I", code[: len(code) // 4 * 4])
    for index, word in enumerate(words):
        distance = (word & 0x03FFFFFF) - ((word & 0x02000000) << 1)
        if word >> 26 == 0b100101 and text.address + (index + distance) * 4 == stub:
            # mov w1, #flags
            flags |= {before >> 5 & 0xFFFF for before in words[max(0, index - 6) : index]
                      if before & 0xFFE0001F == 0x52800001}
    return flags


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]], verbosity=2)
