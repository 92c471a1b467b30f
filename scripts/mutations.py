# SPDX-License-Identifier: Apache-2.0

"""Finds the small mistakes that a C++ source could have, for scripts/mutants.

The source is read as clang-format leaves it: operators between two operands have blanks around them, template
arguments do not. Each mutation changes one place:

    leaves out    a statement, a loop, an operand of && and || and |
    negates       a condition, a bool result, true and false
    off by one    an integer, as a literal or a variable
    constant      another flag, mode, result code, kind, level, or text
    operator      another comparison, && for ||, + for -, the other arm of ?:

A mutation has a name, which says where it is without a line number: the function, then the statement with
[-what goes-]{+what comes+}, and a number where a function has several of the same. The list of accepted
mutations (tests/accepted-mutants) goes by the name.
"""

import bisect
import re
from typing import NamedTuple

TOKEN = re.compile(
    r"""(?P<space>\s+ | //[^\n]* | /\*.*?\*/ | ^[ \t]*\#(?:\\\n|[^\n])*)
      | (?P<string>"(?:\\.|[^"\\\n])*")
      | (?P<number>\d(?:[\w.]|'(?=\d))*)
      | (?P<word>ios::end | [A-Za-z_]\w*)
      | (?P<other>'(?:\\.|[^'\\\n])+' | <<=|>>=|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]= | .)""",
    re.VERBOSE | re.MULTILINE | re.DOTALL)

COMPARISONS = {"==": ("!=",), "!=": ("==",), "<": ("<=", ">="), ">": (">=", "<="),
               "<=": ("<", ">"), ">=": (">", "<")}
OPERATORS = {**COMPARISONS, "&&": ("||",), "||": ("&&",), "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",)}
# Constants that could be taken for one another.
CONSTANTS = {
    "true": ("false",), "false": ("true",), "O_WRONLY": ("O_RDWR",),
    "SEEK_SET": ("SEEK_END",), "SEEK_END": ("SEEK_SET",), "ios::end": ("ios::beg",),
    "EAGAIN": ("ENOMEM",), "S_ISREG": ("S_ISDIR",),
    "QV_OK": ("QV_ERROR_ARGUMENT",), "QV_ERROR_ARGUMENT": ("QV_OK", "QV_ERROR_SERIALIZE"),
    "QV_ERROR_NO_MEMORY": ("QV_OK", "QV_ERROR_SERIALIZE"), "QV_ERROR_SERIALIZE": ("QV_OK", "QV_ERROR_NO_MEMORY"),
    "QV_COMMAND_REGISTER_SERVICES": ("QV_COMMAND_UNREGISTER_SERVICES",),
    "QV_COMMAND_UNREGISTER_SERVICES": ("QV_COMMAND_REGISTER_SERVICES",),
    "QV_COMMAND_GET_SERVICES": ("QV_COMMAND_SET_DEBUG_LEVEL",),
    "QV_COMMAND_SET_DEBUG_LEVEL": ("QV_COMMAND_GET_SERVICES",),
    "kLogError": ("kLogWarning",), "kLogWarning": ("kLogError", "kLogInfo"),
    "kLogInfo": ("kLogWarning", "kLogDebug"), "kLogDebug": ("kLogInfo",),
    "kCFAllocatorDefault": ("kCFAllocatorNull",), "kCFAllocatorNull": ("kCFAllocatorDefault",),
    "kCFPropertyListMutableContainers":
        ("kCFPropertyListImmutable", "kCFPropertyListMutableContainersAndLeaves"),
    "kCFPropertyListBinaryFormat_v1_0": ("kCFPropertyListXMLFormat_v1_0",),
    "kCFStringEncodingUTF8": ("kCFStringEncodingASCII",),
    "CFDictionaryGetTypeID": ("CFArrayGetTypeID",), "CFStringGetTypeID": ("CFDataGetTypeID",),
    "CFNumberGetTypeID": ("CFStringGetTypeID",),
}
TEXTS = {'"r"': ('"r+"',), '"w+"': ('"r+"', '"a+"', '"w"')}

UNCHANGED = ("using", "static_assert", "class")

INTEGER = re.compile(
    r"\b(?:int|std::u?int\d+_t|std::size_t|CFIndex|long) (\w+)(?= =|[;,)])"
    r"|\bauto (\w+) = static_cast<(?:std::\w+_t|int)>")


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int


class Mutation(NamedTuple):
    start: int
    end: int
    new: str
    kind: str
    line: int
    name: str

    def apply(self, source):
        return source[:self.start] + self.new + source[self.end:]


class Source:
    """A source file, taken apart as far as its mutations need it."""

    def __init__(self, text):
        self.text = text
        self.tokens = [Token(m.lastgroup, m.group(), m.start(), m.end())
                       for m in TOKEN.finditer(text) if m.lastgroup != "space"]
        self.starts = [token.start for token in self.tokens]
        self.match = self._match_brackets()
        self.integers = {a or b for a, b in INTEGER.findall(text)}
        self.functions = []    # (first, last, name, whether it returns bool), in tokens
        self.statements = []   # (first, last), in tokens: what a mutation is shown with
        self.found = []        # (start, end, new, kind), in characters
        self._read_declarations(0, len(self.tokens))
        self._read_tokens()

    def mutations(self):
        """All of them, in the order of their places, each with its name."""
        seen = {}
        result = []
        for start, end, new, kind in sorted(set(self.found)):
            name = self._name(start, end, new)
            seen[name] = seen.get(name, 0) + 1
            if seen[name] > 1:
                name += f" #{seen[name]}"
            result.append(Mutation(start, end, new, kind, self.text.count("\n", 0, start) + 1, name))
        return result

    # What the text consists of.

    def _text(self, first, last):
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def _match_brackets(self):
        match, open_ones = {}, []
        for index, token in enumerate(self.tokens):
            if token.text in "([{" and token.kind == "other":
                open_ones.append(index)
            elif token.text in ")]}" and token.kind == "other":
                match[index] = open_ones.pop()
                match[match[index]] = index
        return match

    def _is(self, index, *texts):
        return 0 <= index < len(self.tokens) and self.tokens[index].text in texts

    def _read_declarations(self, index, last):
        """Looks for functions in a file, a namespace or a class."""
        first = index
        while index < last:
            text = self.tokens[index].text
            if text in "([":
                index = self.match[index]
            elif text == "{":
                is_scope = self._read_braces(first, index)
                index = self.match[index]
                first = index + 1 if is_scope else first
            elif text == ";" or text == ":" and self._is(index - 1, "public", "private", "protected"):
                if text == ";":
                    self.statements.append((first, index))
                    self._read_lambdas(first, index)
                first = index + 1
            index += 1

    def _read_braces(self, first, brace):
        """Whether they hold declarations or statements, and not values."""
        head = [self.tokens[i].text for i in self._top_level(self._behind_template(first), brace)]
        end = self.match[brace]
        if head[:1] in (["class"], ["struct"], ["namespace"]):
            self._read_declarations(brace + 1, end)
        elif "(" in head and "=" not in head[:head.index("(")]:
            name = first + next(i for i, t in enumerate(self.tokens[first:brace]) if t.text == "(") - 1
            self.functions.append((first, end, self.tokens[name].text, "bool" in head[:head.index("(")]))
            self._read_block(brace + 1, end)
        else:
            return False
        return True

    def _behind_template(self, index):
        while self._is(index, "template"):
            index, depth = index + 2, 1
            while depth:
                depth += {"<": 1, ">": -1, ">>": -2}.get(self.tokens[index].text, 0)
                index += 1
        return index

    def _top_level(self, first, last):
        """The indexes between these, without what stands in brackets."""
        index = first
        while index < last:
            yield index
            index = self.match[index] if self._is(index, "(", "[", "{") else index
            index += 1

    def _read_block(self, index, last):
        while index < last:
            index = self._read_statement(index)

    def _read_statement(self, index):
        """Returns the index behind it."""
        text = self.tokens[index].text
        if text == "{":
            self._read_block(index + 1, self.match[index])
            return self.match[index] + 1
        if text in ("if", "for", "while"):
            return self._read_compound(index)
        end = index
        while not self._is(end, ";"):
            end = self.match[end] + 1 if self._is(end, "(", "[", "{") else end + 1
        self.statements.append((index, end))
        self._read_lambdas(index, end)
        if text not in UNCHANGED:
            self._add(index, end, ";", "leaves out")
        if text == "return" and end > index + 1 and self._function(index)[3]:
            self._negate(index + 1, end - 1)
        return end + 1

    def _read_compound(self, index):
        keyword = self.tokens[index].text
        head = index + 1 if self._is(index + 1, "(") else index + 2
        end = self.match[head]
        parts = self._split(head + 1, end, ";")
        if keyword == "for":
            if len(parts) == 3:
                self._negate(*parts[1])
                self._add(*parts[2], "", "leaves out")
        elif not any(self._is(i, "=") for i in self._top_level(*parts[-1])):
            self._negate(*parts[-1])
        self.statements.append((index, end))
        behind = self._read_statement(end + 1)
        body = self._split(end + 2, behind - 2, ";")
        is_lonely = keyword == "if" and len(body) == 1 and not self._is(behind, "else")
        if is_lonely:
            # It is better told by the condition.
            self.statements.remove((end + 2, behind - 2))
        while self._is(behind, "else"):
            behind = self._read_statement(behind + 1)
        self.statements.append((index, behind - 1))
        if not is_lonely:
            self._add(index, behind - 1, "", "leaves out")
        return behind

    def _split(self, first, end, separator):
        """The parts, as (first, last); the end does not belong to the last one."""
        parts = []
        for index in self._top_level(first, end):
            if self._is(index, separator):
                parts.append((first, index - 1))
                first = index + 1
        if first < end:
            parts.append((first, end - 1))
        return parts

    def _read_lambdas(self, first, last):
        for index in range(first, last):
            if not self._is(index, "[") or self.tokens[index - 1].kind == "word" or self._is(index - 1, "]", ")"):
                continue
            body = self.match[index] + 1
            while not self._is(body, "{", ";"):
                body = self.match[body] + 1 if self._is(body, "(") else body + 1
            if self._is(body, "{"):
                self._read_block(body + 1, self.match[body])

    # The mutations.

    def _add(self, first, last, new, kind):
        """Of tokens, both included."""
        self.found.append((self.tokens[first].start, self.tokens[last].end, new, kind))

    def _negate(self, first, last):
        """A condition; one of a single comparison, or with a "!", is negated by another mutation."""
        places = list(self._top_level(first, last + 1))
        is_simple = not any(self._is(i, "&&", "||") for i in places)
        if is_simple and (self._is(first, "!", "true", "false")
                          or any(self._is_binary(i, *COMPARISONS) for i in places)):
            return
        self._add(first, last, f"!({self._text(first, last)})", "negates")

    def _is_binary(self, index, *operators):
        token = self.tokens[index]
        return (self._is(index, *operators) and self.text[token.start - 1].isspace()
                and self.text[token.end].isspace())

    def _read_tokens(self):
        unchanged_to = 0
        for index, token in enumerate(self.tokens):
            text = token.text
            if text in UNCHANGED:
                unchanged_to = next(i for i in self._top_level(index, len(self.tokens)) if self._is(i, ";", "{"))
            if index < unchanged_to:
                continue
            if token.kind == "string":
                self._change_text(index)
            elif token.kind == "number":
                self._change_number(index)
            elif token.kind == "word":
                for new in CONSTANTS.get(text, ()):
                    self._add(index, index, new, "constant")
                if text in self.integers and self._is_used(index):
                    for step in ("+ 1", "- 1"):
                        self._add(index, index, f"({text} {step})", "off by one")
            elif text == "!":
                self._add(index, index, "", "negates")
            elif text in ("++", "--"):
                self._add(index, index, {"++": "--", "--": "++"}[text], "operator")
            elif text == "?":
                self._swap_arms(index)
            elif self._is_binary(index, text):
                for new in OPERATORS.get(text, ()):
                    self._add(index, index, new, "operator")
                if text in ("&&", "||", "|"):
                    self._leave_out_operands(index)

    def _change_text(self, index):
        text = self.tokens[index].text
        if text in TEXTS:
            others = TEXTS[text]
        else:
            swapped = re.sub(r"(?<![%\\])[A-Za-z]", lambda m: m.group().swapcase(), text, count=1)
            others = ('""', swapped if swapped != text else text[:-1] + 'x"')
        for new in set(others) - {text}:
            self._add(index, index, new, "constant")

    def _change_number(self, index):
        text = self.tokens[index].text
        if re.fullmatch(r"0x[0-9a-fA-F]+", text):
            number, form = int(text, 16), hex
        elif re.fullmatch(r"0[0-7]+", text):
            number, form = int(text, 8), lambda value: f"0{value:o}"
        elif re.fullmatch(r"\d+", text):
            number, form = int(text), str
        else:
            return
        for new in (number + 1, number - 1):
            self._add(index, index, form(new), "off by one")

    def _is_used(self, index):
        """Whether a variable is read here, other than in a comparison, which has mutations of its own."""
        return not (self._is(index - 1, ".", "->", "::", "&", "++", "--", "int", "int32_t", "uint32_t", "size_t",
                             "CFIndex", "auto", "long", "const", *COMPARISONS)
                    or self._is(index + 1, "=", "(", "::", *COMPARISONS)
                    or self.tokens[index - 1].text.endswith("&"))

    def _operand(self, index, step):
        """The index of the operand's other end."""
        ends = {"&&", "||", "|", "?", ":", ",", ";", "=", "return", "(", ")", "{", "}", "[", "]"}
        brackets = "([{" if step > 0 else ")]}"
        while True:
            if self._is(index, *brackets):
                index = self.match[index]
            elif self.tokens[index].text in ends:
                return index - step
            index += step

    def _leave_out_operands(self, index):
        first, last = self._operand(index - 1, -1), self._operand(index + 1, 1)
        if self._is(index + 1, "..."):
            return
        self._add(index, last, "", "leaves out")
        if not self._is(first - 1, self.tokens[index].text):
            self._add(first, index, "", "leaves out")

    def _swap_arms(self, index):
        colon = next(i for i in self._top_level(index, len(self.tokens)) if self._is(i, ":"))
        last = self._operand(colon + 1, 1)
        arms = self._text(index + 1, colon - 1), self._text(colon + 1, last)
        self._add(index + 1, last, f"{arms[1]} : {arms[0]}", "operator")

    # Names.

    def _function(self, index):
        inside = [f for f in self.functions if f[0] <= index <= f[1]]
        return min(inside, key=lambda f: f[1] - f[0], default=(0, 0, "", False))

    def _name(self, start, end, new):
        first = bisect.bisect_right(self.starts, start) - 1
        last = bisect.bisect_left(self.starts, end) - 1
        inside = [s for s in self.statements if s[0] <= first and last <= s[1]]
        around = min(inside, key=lambda s: s[1] - s[0], default=(first, last))
        before = self.text[self.tokens[around[0]].start:start]
        behind = self.text[end:self.tokens[around[1]].end]
        changed = f"[-{_shorten(self.text[start:end])}-]" + (f"{{+{_shorten(new)}+}}" if new.strip(";") else "")
        function = self._function(first)[2]
        text = _squeeze(before)[-70:] + changed + _squeeze(behind)[:50]
        return f"{function}: {text}" if function else text


def _squeeze(text):
    """In one line, without comments."""
    return re.sub(r"\s+", " ", re.sub(r"//[^\n]*", "", text))


def _shorten(text):
    text = _squeeze(text)
    return text if len(text) <= 90 else text[:55] + " ... " + text[-30:]
