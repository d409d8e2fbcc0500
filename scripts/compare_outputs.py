#!/usr/bin/env python3
"""Compares what the same projects gave on two platforms.

usage: compare_outputs.py [--crlf] EXPECTED ACTUAL

EXPECTED and ACTUAL are directories of one layout. Every file of either is compared with its twin:
the text must be the same but for line ends, cpu times and the last digits of numbers; with --crlf,
every line that ACTUAL wrote must end in CR LF, without it none. Files that are the same byte for
byte in both are inputs, or outputs without a line. The last line is a summary; the exit status is
0 when nothing is wrong, 1 otherwise.

Two printed numbers are the same when they differ by no more than two units of the last digit or by
1e-8 of their value, or when both are no more than noise: below 1e-9 in scientific notation, what
rounding leaves of a quantity that is 0.
"""

import argparse
import pathlib
import re
import sys

NUMBER = re.compile(rb"(?<![\w.])[-+]?\d+\.\d+(?:e[-+]\d{2,3})?(?![\w.])")
CPU_TIME = re.compile(rb"((?:cpu time[^:]*|solution only):\s*)\d+\.\d+ s", re.IGNORECASE)
LAST_DIGITS = 2.001
RELATIVE = 1e-8
NOISE = 1e-9
SHOWN = 5


class Number:
    def __init__(self, text):
        mantissa, _, exponent = text.partition(b"e")
        self.value = float(text)
        self.is_scientific = bool(exponent)
        self.digit = 10.0 ** (int(exponent or 0) - len(mantissa.partition(b".")[2]))

    def agrees(self, other):
        difference = abs(self.value - other.value)
        if difference <= max(LAST_DIGITS * max(self.digit, other.digit),
                             RELATIVE * max(abs(self.value), abs(other.value))):
            return True
        return (self.is_scientific and other.is_scientific
                and max(abs(self.value), abs(other.value)) < NOISE)


def without_numbers(line):
    # A sign takes the place of a blank in a column.
    return re.sub(rb" *-?#", b"#", NUMBER.sub(b"#", line))


def same_line(a, b):
    """Whether two lines say the same: 'equal', 'digits' or 'wrong'."""
    a, b = (CPU_TIME.sub(rb"\1TIME", line) for line in (a, b))
    if a == b:
        return "equal"
    if len(a) != len(b) or without_numbers(a) != without_numbers(b):
        return "wrong"
    pairs = zip(NUMBER.findall(a), NUMBER.findall(b))
    return "digits" if all(Number(x).agrees(Number(y)) for x, y in pairs) else "wrong"


def text_lines(content, crlf):
    """The lines of a text and whether their ends are what they must be."""
    right = content.count(b"\r") == (content.count(b"\n") if crlf else 0)
    if crlf:
        right = right and content.count(b"\r\n") == content.count(b"\n")
    return content.replace(b"\r\n", b"\n").split(b"\n"), right


class Comparison:
    def __init__(self, crlf):
        self.crlf = crlf
        self.files = self.lines = self.digits = self.unchanged = 0
        self.wrong = []

    def compare_files(self, name, expected, actual):
        if expected == actual and (not self.crlf or b"\n" not in expected
                                   or name.suffix not in OUTPUTS):
            self.unchanged += 1
            return
        self.files += 1
        expected_lines, expected_ends = text_lines(expected, False)
        actual_lines, actual_ends = text_lines(actual, self.crlf)
        if not expected_ends or not actual_ends:
            self.wrong.append(f"{name}: wrong line ends")
        self.lines += len(expected_lines)
        if len(expected_lines) != len(actual_lines):
            self.wrong.append(f"{name}: {len(actual_lines)} lines, expected {len(expected_lines)}")
        for number, (a, b) in enumerate(zip(expected_lines, actual_lines), 1):
            result = same_line(a, b)
            self.digits += result == "digits"
            if result == "wrong":
                self.wrong.append(f"{name}:{number}: {b.decode('latin-1')}\n"
                                  f"{' ' * len(f'{name}:{number}')}  {a.decode('latin-1')} expected")

    def compare_trees(self, expected, actual):
        names = {path.relative_to(root) for root in (expected, actual)
                 for path in root.rglob("*") if path.is_file()}
        for name in sorted(names):
            missing = [root for root in (expected, actual) if not (root / name).is_file()]
            if missing:
                self.wrong.append(f"{name}: not in {missing[0]}")
            else:
                self.compare_files(name, (expected / name).read_bytes(),
                                   (actual / name).read_bytes())


# Extensions of the files that runs write; the streams are kept in files of the last two.
OUTPUTS = {".out", ".ext", ".ocs", ".res", ".apset", ".gcpres", ".chp", ".cam", ".stdout", ".stderr"}


def main():
    parser = argparse.ArgumentParser(
        description="Compares what the same projects gave on two platforms.")
    parser.add_argument("--crlf", action="store_true", help="ACTUAL has Windows line ends")
    parser.add_argument("expected", type=pathlib.Path)
    parser.add_argument("actual", type=pathlib.Path)
    arguments = parser.parse_args()

    comparison = Comparison(arguments.crlf)
    comparison.compare_trees(arguments.expected, arguments.actual)
    for text in comparison.wrong[:SHOWN]:
        print(text)
    if len(comparison.wrong) > SHOWN:
        print(f"... and {len(comparison.wrong) - SHOWN} more")
    if comparison.files == 0:
        print(f"{arguments.actual}: no output to compare")
    print(f"{comparison.files} output files, {comparison.lines} lines: {comparison.digits} differ in "
          f"last digits, {len(comparison.wrong)} wrong; {comparison.unchanged} other files the same")
    return 1 if comparison.wrong or comparison.files == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
