"""Lists one-line changes to C++ sources that tests ought to notice, in an order that a seed gives.

usage: mutations.py SEED FILE...
prints: file <tab> line number <tab> the line as it would be

The sources are laid out by clang-format, so an operator between two values has spaces around it,
and a template's angle brackets have none.
"""

import random
import re
import sys

OPERATORS = {
    " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
    " && ": " || ", " || ": " && ", " + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ",
    " % ": " * ", " += ": " -= ", " -= ": " += ", " & ": " | ", " | ": " & ", " << ": " >> ",
    " >> ": " << ",
}
NUMBER = re.compile(r"(?<![\w.\"'])(\d+)(?![\w.\"'])")
CONDITION = re.compile(r"^(\s*(?:\} else )?if \()(.*)(\)(?: \{)?)$")
STATEMENT = re.compile(r"^\s+(?!return\b|break\b|continue\b|throw\b|using\b|delete\b|goto\b)"
                       r"(?:[\w.:\[\]>*()-]+ (?:[-+*/|&^%]|<<|>>)?= .*|[\w.:>\[\]-]+\(.*\)|"
                       r"(?:\+\+|--)[\w.>\[\]-]+);$")
DECLARATION = re.compile(r"^\s+(?:const |static |auto |constexpr |struct |class |typename )")
FLIPS = {"return true;": "return false;", "return false;": "return true;"}


def is_text(line, start):
    """Whether a place lies inside a literal or a comment."""
    before = line[:start].replace('\\"', "")
    return before.count('"') % 2 == 1 or before.count("'") % 2 == 1 or "//" in before


def changes(line, previous):
    if line.lstrip().startswith(("//", "#", "*", "/*", "static_assert", "Q_ASSERT", "template")):
        return
    for operator, other in OPERATORS.items():
        for found in re.finditer(re.escape(operator), line):
            if not is_text(line, found.start()):
                yield line[:found.start()] + other + line[found.end():]
    for found in NUMBER.finditer(line):
        if not is_text(line, found.start()):
            for number in (int(found.group()) + 1, int(found.group()) - 1):
                if number >= 0:
                    yield line[:found.start()] + str(number) + line[found.end():]
    condition = CONDITION.match(line)
    if condition and condition.group(2).count("(") == condition.group(2).count(")") \
            and ";" not in condition.group(2):
        yield "{}!({}){}".format(*condition.groups())
    begins = previous.rstrip().endswith((";", "{", "}", ":", ")", "else"))
    if STATEMENT.match(line) and not DECLARATION.match(line) and begins:
        yield re.match(r"\s*", line).group() + ";"
    for flip, other in FLIPS.items():
        if flip in line:
            yield line.replace(flip, other)


def main():
    found = []
    for path in sorted(sys.argv[2:]):
        previous = ""
        with open(path, encoding="utf-8") as source:
            for number, line in enumerate(source.read().split("\n"), 1):
                found += [(path, number, change) for change in changes(line, previous)]
                previous = line or previous
    random.Random(int(sys.argv[1])).shuffle(found)
    for path, number, change in found:
        print(path, number, change, sep="\t")


main()
