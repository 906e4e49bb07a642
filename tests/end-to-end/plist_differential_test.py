"""Compares property lists with readers and writers that share no code with this system. Values that both know must read
alike."""

import datetime
import math
import os
import plistlib
import random
import re
import shutil
import struct
import subprocess
import tempfile
import unittest

CONVERT = os.environ["PLIST_CONVERT"]
BINARY, XML = plistlib.FMT_BINARY, plistlib.FMT_XML
LETTERS = {BINARY: b"b", XML: b"x"}
VALUES = 3000  # values for each way there and back
BATCH = 200  # values in one array, for programs that read one property list for each process


# --- This system ---

def convert(documents, wanted):
    """Converts each document to the wanted format."""
    pieces = b"".join(LETTERS[wanted] + struct.pack("=I", len(each)) + each for each in documents)
    output = subprocess.run([CONVERT], input=pieces, stdout=subprocess.PIPE, check=True).stdout
    answers = []
    while output:
        letter, length = struct.unpack_from("=cI", output)
        if letter != b"+":
            raise AssertionError(output[5:5 + length].decode())
        answers.append(output[5:5 + length])
        output = output[5 + length:]
    return answers


# --- Other programs ---

def run(*command, from_file=False):
    """A function that runs a program which reads one property list and writes another to its standard output."""
    def program(document):
        with tempfile.NamedTemporaryFile() as file:
            if from_file:
                file.write(document)
                file.flush()
            names = [file.name if each == "FILE" else each for each in command]
            result = subprocess.run(names, input=None if from_file else document, capture_output=True, check=False)
        if result.returncode != 0 or not result.stdout:
            raise AssertionError(f"{command}: {result.stderr.decode(errors='replace')}")
        return result.stdout
    return program


def plistlib_as(wanted):
    return lambda document: plistlib.dumps(plistlib.loads(document), fmt=wanted, sort_keys=False)


# plistutil reads at most one page from its standard input, so it gets a file.
libplist_xml = run("plistutil", "-i", "FILE", "-f", "xml", from_file=True)
libplist_binary = run("plistutil", "-i", "FILE", "-f", "bin", from_file=True)
gnustep_xml = run("plutil", "-convert", "xml1", "-o", "-", "-")
gnustep_binary = run("plutil", "-convert", "binary1", "-o", "-", "-")
gnustep_text = run("plutil", "-convert", "openstep", "-o", "-", "-")


# --- Values ---

class Generator:
    """Makes values of every kind, the same ones in each run."""

    CHARACTERS = "abc XYZ019_$/:.-&<>\"'\\;={}(),\t\näöüßéÅ€日本\u0301\u200b\x7f"
    # XML or some program cannot hold one or the other of these, so most texts do not contain them.
    RARE = "\ufeff\U0001D11E\U0001F600\r\0\1\x1f\ufffe"
    INTEGERS = [0, 1, -1, 127, 128, 255, 256, 65535, 65536, 2**31 - 1, 2**31, 2**32 - 1, 2**32, 2**63 - 1,
                -2**31, -2**63, 2**63, 2**64 - 1]
    REALS = [-0.0, 0.1, 1.0, -1.5, 1e22, 1e300, 5e-324, 2.2250738585072014e-308, math.pi, math.inf, -math.inf]

    def __init__(self, seed):
        self.random = random.Random(seed)

    def text(self):
        count = self.random.choice([0, 1, 3, 8, 14, 15, 16, 40, 300])
        characters = self.CHARACTERS + (self.RARE if self.random.random() < 0.3 else "")
        return "".join(self.random.choices(characters, k=count))

    def integer(self):
        return self.random.choice(self.INTEGERS) if self.random.random() < 0.5 else \
            self.random.randrange(-2**63, 2**64) >> self.random.randrange(64)

    def real(self):
        if self.random.random() < 0.3:
            return self.random.choice(self.REALS)
        real = struct.unpack("=d", self.random.randbytes(8))[0]
        return 0.5 if math.isnan(real) else real

    def date(self):
        date = datetime.datetime(1, 1, 2) + datetime.timedelta(seconds=self.random.randrange(315_000_000_000))
        date = self.random.choice([date, datetime.datetime(2001, 1, 1), datetime.datetime(1969, 12, 31, 23, 59, 59)])
        # Only fractions that a real number of seconds holds exactly.
        return date + datetime.timedelta(milliseconds=self.random.choice([0, 0, 250, 500]))

    def value(self, depth=0):
        kinds = [self.text, self.integer, self.real, self.date, lambda: self.random.random() < 0.5,
                 lambda: self.random.randbytes(self.random.choice([0, 1, 2, 3, 14, 15, 57, 58, 400]))]
        if depth < 4:
            kinds += [lambda: [self.value(depth + 1) for _ in range(self.random.choice([0, 1, 3, 15, 20]) >> depth)],
                      lambda: {self.text(): self.value(depth + 1)
                               for _ in range(self.random.choice([0, 1, 3, 15, 20]) >> depth)}]
        return self.random.choice(kinds)()

    def values(self, count=VALUES):
        return [self.value() for _ in range(count)]


def exact(value):
    """A form in which different values, such as true and 1, are never equal."""
    if isinstance(value, list):
        return [exact(each) for each in value]
    if isinstance(value, dict):
        return sorted((key, exact(each)) for key, each in value.items())
    return type(value).__name__, repr(value)


def scalars_in(value):
    if isinstance(value, (list, dict)):
        members = value if isinstance(value, list) else [*value.keys(), *value.values()]
        return [scalar for member in members for scalar in scalars_in(member)]
    return [value]


def changed(value, change):
    """The value with `change` applied to every scalar and key."""
    if isinstance(value, list):
        return [changed(each, change) for each in value]
    if isinstance(value, dict):
        return {change(key): changed(each, change) for key, each in value.items()}
    return change(value)


# --- The changes of a value on its way ---

def as_it_is(scalar):
    return scalar


def in_xml(scalar):
    """XML has whole seconds, and cannot hold some characters."""
    if isinstance(scalar, datetime.datetime):
        return scalar.replace(microsecond=0)
    if isinstance(scalar, str):
        return re.sub("[\0-\x08\x0b\x0c\x0e-\x1f\ufffe\uffff]", "\ufffd", scalar)
    return scalar


def in_old_text(scalar):
    """The old text format has strings and data only."""
    scalar = in_xml(scalar)
    if isinstance(scalar, datetime.datetime):
        return scalar.isoformat() + "Z"
    if isinstance(scalar, float):
        return f"{scalar:.16g}"
    return scalar if isinstance(scalar, (bytes, str)) else str(int(scalar))


# For each way: the format that this system writes, the program that rewrites it, and the change that a value has undergone
# when this system reads it again.
WAYS = {
    "plistlib, binary to binary": (BINARY, plistlib_as(BINARY), as_it_is),
    "plistlib, binary to XML": (BINARY, plistlib_as(XML), in_xml),
    "plistlib, XML to binary": (XML, plistlib_as(BINARY), in_xml),
    "plistlib, XML to XML": (XML, plistlib_as(XML), in_xml),
    "libplist, binary to XML": (BINARY, libplist_xml, in_xml),
    "libplist, XML to binary": (XML, libplist_binary, in_xml),
    "GNUstep, binary to XML": (BINARY, gnustep_xml, in_xml),
    "GNUstep, XML to binary": (XML, gnustep_binary, in_xml),
    "GNUstep, XML to old text": (XML, gnustep_text, in_old_text),
}

REFUSED = "refused"


def text_with(characters):
    return lambda scalar: isinstance(scalar, str) and re.search(f"[{characters}]", scalar) is not None


def negative_zero(scalar):
    return isinstance(scalar, float) and scalar == 0 and math.copysign(1, scalar) < 0


def plain_zero(scalar):
    return isinstance(scalar, float) and scalar == 0 and not negative_zero(scalar)


def equal_to_another_sort(scalar):
    return isinstance(scalar, float) and scalar.is_integer() or exact(scalar) in (exact(0), exact(1))


def early_fraction(scalar):
    return isinstance(scalar, datetime.datetime) and scalar.year < 2001 and scalar.microsecond != 0


# Values that are not read alike: the ways, the affected scalars, an example, its result, and the reason. If another program
# changed its behaviour, the test of this table would fail.
DIFFERENCES = [
    (["plistlib, binary to XML"], text_with("\0-\x08\x0b\x0c\x0e-\x1f"), "a\x01", REFUSED,
     "Both are right: plistlib refuses to write what XML cannot hold, this system writes U+FFFD."),
    (["plistlib, binary to XML", "plistlib, XML to XML"], text_with("\r"), "a\rb", "a\nb",
     "This system: plistlib writes a line feed for a carriage return, which &#13; would keep."),
    (["plistlib, binary to XML"], text_with("\ufffe"), "\ufffe", "\ufffe",
     "This system: plistlib writes a character that XML cannot hold. The reader here takes what it is given."),
    ([way for way in WAYS if way.startswith("plistlib")], plain_zero, [0.0, -0.0], [0.0, 0.0],
     "This system: plistlib writes equal reals once, and zeros of both signs are equal."),
    (["libplist, binary to XML"], text_with("\0"), "a\0b", "a",
     "This system: libplist ends a text at a NUL, which is a character of the format."),
    (["libplist, binary to XML"], text_with("\1-\x08\x0b\x0c\x0e-\x1f\ufffe"), "a\x01", "a\x01",
     "This system: libplist writes a character that XML cannot hold, and its document is none. The reader here takes "
     "what it is given."),
    (["libplist, binary to XML"], lambda scalar: isinstance(scalar, datetime.datetime) and scalar.year < 1000,
     datetime.datetime(999, 1, 1), REFUSED,
     "This system: libplist writes a year without the zeros in front that the form asks for."),
    (["libplist, binary to XML"], early_fraction, datetime.datetime(2000, 12, 31, 23, 59, 59, 500000),
     datetime.datetime(2001, 1, 1),
     "This system: libplist rounds up before 2001 and down after it, since it cuts a negative number of seconds."),
    (["libplist, binary to XML"], negative_zero, -0.0, 0.0, "This system: libplist loses the sign of zero."),
    (["GNUstep, XML to binary"], equal_to_another_sort, [[True], [1], [1.0]], [[True]] * 3,
     "This system: GNUstep writes equal containers once, and takes numbers of different sorts for equal there."),
    (["GNUstep, binary to XML"], lambda scalar: isinstance(scalar, int) and scalar >= 2**63, 2**63, REFUSED,
     "This system: the format has integers of 16 bytes for what is beyond the signed range."),
    (["GNUstep, XML to binary", "GNUstep, XML to old text"],
     lambda scalar: isinstance(scalar, int) and scalar >= 2**63, 2**64 - 1, 2**63 - 1,
     "This system: GNUstep reads an integer beyond the signed range as the largest in it."),
    (["GNUstep, binary to XML"], lambda scalar: isinstance(scalar, float) and float(f"{scalar:.16g}") != scalar,
     0.1 + 0.2, 0.3, "This system: GNUstep writes 16 digits, and some reals need 17."),
    (["GNUstep, binary to XML"], text_with("\1-\x08\x0b\x0c\x0e-\x1f\ufffe\U00010000-\U0010ffff"), "\U0001D11E",
     "\\UD834\\UDD1E", "This system: GNUstep writes what it takes for unfit as the old text format would."),
    (["GNUstep, binary to XML"], text_with("\0"), "a\0b", "a\0b",
     "This system: GNUstep writes a NUL, which XML cannot hold. The reader here takes what it is given."),
    ([way for way in WAYS if way.startswith("GNUstep")], text_with("\ufeff"), "\ufeff<", "<",
     "This system: GNUstep takes a U+FEFF in a text for a byte order mark."),
    (["GNUstep, XML to binary"], lambda scalar: isinstance(scalar, float) and math.isnan(scalar), [math.nan, 1],
     REFUSED, "This system: GNUstep counts a NaN that it does not write. The generated values have none."),
]

PLAIN = {str: "plain", int: 7, float: 0.5, datetime.datetime: datetime.datetime(2001, 1, 1)}


def there_and_back(way, values):
    """The values after they were written here, rewritten by the other program, and read here again."""
    form, program, _ = WAYS[way]
    documents = [plistlib.dumps(values[i:i + BATCH], fmt=BINARY, sort_keys=False) for i in range(0, len(values), BATCH)]
    returned = convert([program(document) for document in convert(documents, form)], BINARY)
    return [value for document in returned for value in plistlib.loads(document)]


class PropertyListDifferentialTest(unittest.TestCase):
    maxDiff = 2000

    def test_the_other_programs_are_there(self):
        for program in ("plistutil", "plutil"):
            self.assertIsNotNone(shutil.which(program), f"{program} is what scripts/install-dependencies installs")

    def test_every_program_reads_and_writes_alike(self):
        for seed, (way, (_, _, expected)) in enumerate(WAYS.items()):
            differ = [applies for ways, applies, *_ in DIFFERENCES if way in ways]

            def known(scalar):
                return PLAIN[type(scalar)] if any(applies(scalar) for applies in differ) else scalar

            values = [changed(value, known) for value in Generator(seed).values()]
            with self.subTest(way):
                returned = there_and_back(way, values)
                self.assertEqual(len(returned), len(values))
                for value, back in zip(values, returned):
                    self.assertEqual(exact(back), exact(changed(value, expected)))

    def test_the_known_differences_are_as_described(self):
        for ways, applies, example, becomes, why in DIFFERENCES:
            for way in ways:
                with self.subTest(way, why=why):
                    values = example if isinstance(example, list) else [example]
                    self.assertTrue(any(applies(scalar) for scalar in scalars_in(values)), "it is no example")
                    wanted = becomes if isinstance(becomes, list) or becomes == REFUSED else [becomes]
                    if WAYS[way][2] is in_old_text and wanted != REFUSED:
                        wanted = changed(wanted, in_old_text)
                    try:
                        returned = there_and_back(way, values)
                    except (AssertionError, ValueError):
                        returned = REFUSED
                    self.assertEqual(exact(returned), exact(wanted))


if __name__ == "__main__":
    unittest.main()
