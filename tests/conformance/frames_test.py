"""Readers that share no code agree on what the golden frames mean."""

import os
import plistlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(SOURCE, "conformance"))

from keldane_conformance import reference  # noqa: E402
from keldane_conformance.frames import HEADER, MARKER  # noqa: E402
from keldane_conformance.meaning import from_json, same  # noqa: E402

FILES = ("requests", "answers", "callbacks", "values")


def frames():
    """Every golden frame with a payload: its name, its payload and its meaning."""
    for file in FILES:
        for entry in reference.golden(file):
            data = bytes.fromhex("".join(entry["bytes"]))
            if len(data) > HEADER:
                yield f"{file}: {entry['name']}", data[HEADER:], from_json(entry["meaning"])


def run(*command, document):
    """What a program makes of a file with these bytes."""
    with tempfile.NamedTemporaryFile(suffix=".plist") as file:
        file.write(document)
        file.flush()
        words = [file.name if word == "FILE" else word for word in command]
        return subprocess.run(words, input=document if "-" in words else None, capture_output=True, check=True).stdout


def gnustep_misreads(value):
    """What GNUstep has no place for: integers beyond the signed range."""
    if isinstance(value, list):
        return any(map(gnustep_misreads, value))
    return isinstance(value, int) and value >= 2**63


def without_emoji(value):
    """GNUstep writes characters beyond 16 bits as if for another format."""
    if isinstance(value, (list, dict)):
        values = value.values() if isinstance(value, dict) else value
        return all(map(without_emoji, values))
    return not (isinstance(value, str) and any(ord(each) > 0xFFFF for each in value))


class GoldenFrames(unittest.TestCase):
    def test_python_reads_what_is_written_down(self):
        for name, payload, meaning in frames():
            with self.subTest(name):
                self.assertTrue(same(plistlib.loads(payload), meaning), plistlib.loads(payload))

    def test_libplist_reads_the_same(self):
        self.assertIsNotNone(shutil.which("plistutil"), "plistutil is what scripts/install-dependencies installs")
        for name, payload, meaning in frames():
            with self.subTest(name):
                xml = run("plistutil", "-i", "FILE", "-f", "xml", document=payload)
                self.assertTrue(same(plistlib.loads(xml), meaning), xml)

    def test_gnustep_reads_the_same(self):
        self.assertIsNotNone(shutil.which("plutil"), "plutil is what scripts/install-dependencies installs")
        read = 0
        for name, payload, meaning in frames():
            if gnustep_misreads(meaning) or not without_emoji(meaning):
                continue
            with self.subTest(name):
                xml = run("plutil", "-convert", "xml1", "-o", "-", "-", document=payload)
                self.assertTrue(same(plistlib.loads(xml), meaning), xml)
                read += 1
        self.assertGreater(read, 50)

    def test_this_system_reads_the_same(self):
        convert = os.environ["PLIST_CONVERT"]
        for name, payload, meaning in frames():
            with self.subTest(name):
                answer = subprocess.run([convert], input=b"x" + struct.pack("=I", len(payload)) + payload,
                                        capture_output=True, check=True).stdout
                self.assertEqual(answer[:1], b"+", answer)
                self.assertTrue(same(plistlib.loads(answer[5:]), meaning), answer)

    def test_every_file_is_read(self):
        folder = os.path.join(reference.folder(), "frames")
        self.assertEqual({name.removesuffix(".json") for name in os.listdir(folder)}, {*FILES, "malformed"})

    def test_the_header_is_as_the_page_says(self):
        for file in FILES:
            for entry in reference.golden(file):
                data = bytes.fromhex("".join(entry["bytes"]))
                kind, length = struct.unpack("<iI", data[36:44])
                self.assertEqual((data[:36], kind, length), (MARKER, entry["type"], len(data) - HEADER))


if __name__ == "__main__":
    unittest.main()
