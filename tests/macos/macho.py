# SPDX-License-Identifier: Apache-2.0

"""Reads 64-bit Mach-O files of macOS: what a file is for, what it exports and needs, and its bytes by address."""
import collections
import struct

MAGIC = 0xFEEDFACF
MACHINES = {0x01000007: "x86_64", 0x0100000C: "arm64"}
TYPES = {2: "program", 6: "library"}
PLATFORM_MACOS = 1

LC_SYMTAB, LC_DYSYMTAB, LC_ID_DYLIB, LC_SEGMENT_64 = 0x2, 0xB, 0xD, 0x19
LC_CODE_SIGNATURE, LC_DYLD_INFO, LC_RPATH = 0x1D, 0x80000022, 0x8000001C
LC_DYLD_EXPORTS_TRIE, LC_BUILD_VERSION = 0x80000033, 0x32
# Load, load weakly, re-export.
LC_DYLIBS = {0xC, 0x80000018, 0x8000001F}

N_STAB, N_TYPE, N_EXT, N_UNDF = 0xE0, 0x0E, 0x01, 0x0
S_SYMBOL_STUBS, SECTION_TYPE = 0x8, 0xFF

Section = collections.namedtuple("Section", "segment name address size offset kind reserved1 reserved2")
Symbol = collections.namedtuple("Symbol", "name kind description value")


class Image:
    """A file, read whole. Raises ValueError if the file is no 64-bit Mach-O file."""

    def __init__(self, path):
        self.data = path.read_bytes()
        magic, machine, _, kind, count, _, _, _ = struct.unpack_from("<8I", self.data)
        if magic != MAGIC:
            raise ValueError(f"{path} is no 64-bit Mach-O file")
        self.machine = MACHINES.get(machine, hex(machine))
        self.type = TYPES.get(kind, hex(kind))
        self.install_name = None
        self.platform = self.least_system = None
        self.is_signed = False
        self.libraries, self.run_paths, self.sections, self.symbols = [], [], [], []
        self._trie, self._indirect = (0, 0), (0, 0)
        offset = 32
        for _ in range(count):
            command, size = struct.unpack_from("<2I", self.data, offset)
            self._read_command(command, offset)
            offset += size

    def _read_command(self, command, at):
        def words(count, start=8):
            return struct.unpack_from(f"<{count}I", self.data, at + start)

        def text():
            return self._text(at + words(1)[0])

        if command == LC_SEGMENT_64:
            self._read_sections(at)
        elif command == LC_ID_DYLIB:
            self.install_name = text()
        elif command in LC_DYLIBS:
            self.libraries.append(text())
        elif command == LC_RPATH:
            self.run_paths.append(text())
        elif command == LC_SYMTAB:
            self._read_symbols(*words(4))
        elif command == LC_DYSYMTAB:
            self._indirect = words(2, 56)
        elif command == LC_DYLD_INFO:
            self._trie = words(2, 40)
        elif command == LC_DYLD_EXPORTS_TRIE:
            self._trie = words(2)
        elif command == LC_BUILD_VERSION:
            self.platform, version = words(2)
            self.least_system = (version >> 16, version >> 8 & 0xFF)
        elif command == LC_CODE_SIGNATURE:
            self.is_signed = True

    def _text(self, at):
        return self.data[at : self.data.index(b"\0", at)].decode()

    def _read_sections(self, at):
        (count,) = struct.unpack_from("<I", self.data, at + 64)
        for index in range(count):
            fields = struct.unpack_from("<16s16sQQ8I", self.data, at + 72 + index * 80)
            name, segment = (field.rstrip(b"\0").decode() for field in fields[:2])
            self.sections.append(Section(segment, name, fields[2], fields[3], fields[4],
                                         fields[8] & SECTION_TYPE, fields[9], fields[10]))

    def _read_symbols(self, offset, count, texts, _):
        for index in range(count):
            name, kind, _, description, value = struct.unpack_from("<IBBHQ", self.data, offset + index * 16)
            self.symbols.append(Symbol(self._text(texts + name), kind, description, value))

    def section(self, segment, name):
        """Returns the section. Raises StopIteration if there is none."""
        return next(s for s in self.sections if (s.segment, s.name) == (segment, name))

    def bytes_of(self, section):
        return self.data[section.offset : section.offset + section.size]

    def undefined(self):
        """Returns pairs: a symbol that the file needs, and the library that has to define it."""
        pairs = []
        for symbol in self.symbols:
            if not symbol.kind & N_STAB and symbol.kind & N_TYPE == N_UNDF:
                ordinal = symbol.description >> 8
                known = 0 < ordinal <= len(self.libraries)
                pairs.append((symbol.name, self.libraries[ordinal - 1] if known else f"ordinal {ordinal}"))
        return pairs

    def exports(self):
        """Returns the names in the trie of exports, which is what dlsym() finds."""
        start, size = self._trie
        trie = self.data[start : start + size]
        names, pending = set(), [(0, "")] if trie else []
        while pending:
            at, prefix = pending.pop()
            terminal, at = _number(trie, at)
            if terminal:
                names.add(prefix)
            at += terminal
            children = trie[at]
            at += 1
            for _ in range(children):
                end = trie.index(b"\0", at)
                edge = trie[at:end].decode()
                child, at = _number(trie, end + 1)
                pending.append((child, prefix + edge))
        return names

    def stub_of(self, name):
        """Returns the address that a call of another library's function jumps to, or None."""
        first, _ = self._indirect
        for section in self.sections:
            if section.kind != S_SYMBOL_STUBS:
                continue
            for index in range(section.size // section.reserved2):
                at = first + (section.reserved1 + index) * 4
                (symbol,) = struct.unpack_from("<I", self.data, at)
                if symbol < len(self.symbols) and self.symbols[symbol].name == name:
                    return section.address + index * section.reserved2
        return None


def _number(data, at):
    """Reads a ULEB128 number. Returns the number and the position after it."""
    value = shift = 0
    while True:
        byte = data[at]
        at += 1
        value |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            return value, at
