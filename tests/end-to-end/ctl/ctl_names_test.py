"""keldanectl with names that are not UTF-8, with narrow terminals, and with numbers out of range."""

import os
import re
import subprocess
import unittest

from ctl_harness import DONE, USAGE, CtlCase
from harness import Keldaned


class Names(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def names_that_are_no_text(self):
        """A folder with entries; two of their names differ only in a byte that is not UTF-8."""
        self.top = self.folder("d")
        paths = [os.fsencode(self.top) + name for name in (b"/caf\xe9", b"/caf\xe8", b"/folder\xff", b"/text")]
        for path in (*paths[:2], paths[3]):
            with open(path, "wb") as stream:
                stream.write(path)
        os.mkdir(paths[2])
        with open(paths[2] + b"/file", "wb"):
            pass
        self.backed_up(self.top)
        self.eventually(lambda: self.json("ls", self.files)[0]["state"] == "Backed up", "the backup of the folder")
        return paths

    def test_names_that_are_no_text_are_listed_and_told_apart(self):
        paths = self.names_that_are_no_text()
        rows = self.ctl("ls", self.top).splitlines()
        self.assertEqual([row.split()[-1] for row in rows], ["caf\\xe8", "caf\\xe9", "folder\\xff/", "text"])
        self.assertRegex(rows[0], r"^-sb----- +Goes with its folder +\d+ B +- +caf")
        self.assertEqual(len(self.ctl("tree", self.top).splitlines()), 5)
        nodes = self.json("ls", self.top)
        self.assertEqual({bytes.fromhex(node["pathBytes"]) for node in nodes if "pathBytes" in node}, set(paths[:3]))
        self.assertIn("The name of ", self.refusal("add", paths[0]))
        self.assertIn("goes with the folder that it is in", self.refusal("restore", paths[0]))

    def test_a_selection_with_names_that_are_no_text_can_be_used(self):
        paths = self.names_that_are_no_text()
        for options, chosen in ((["--files", self.top], [paths[0], paths[1], paths[3]]),
                                (["--not", os.path.join(self.top, "text"), self.top], paths[:3]),
                                ([paths[0]], paths[:1])):
            shown = subprocess.run(self.command("select", "-0", *options), env=self.environment, capture_output=True,
                                   check=True).stdout
            found = subprocess.run(["xargs", "-0", "ls", "-d", "--zero"], input=shown, capture_output=True, check=True)
            self.assertEqual(set(found.stdout.split(b"\0")) - {b""}, set(chosen))

    def test_rows_are_no_wider_than_the_terminal(self):
        folder = self.folder("folder of many words")
        self.file("folder of many words/" + "name" * 30)
        for command in ("ls", "tree"):
            for columns in (1, 2, 7, 20, 40, 80, 100, 200):
                terminal = self.terminal(command, folder, columns=columns)
                self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
                rows = re.sub(r"\x1b\[[0-9;]*[A-Za-z]|\x1b\(B|\x0f", "", terminal.text).split("\r\n")
                self.assertEqual(len(rows), 2 if command == "ls" else 3)
                self.assertLessEqual(max(map(len, rows)), max(1, columns - 1))


class Numbers(CtlCase):
    def test_numbers_that_are_refused_are_told_their_range_in_plain_digits(self):
        for arguments, least, most in ((["--deadline", "1e10", "status"], 0, 31536000),
                                       (["--deadline", "inf", "status"], 0, 31536000),
                                       (["--deadline", "nan", "status"], 0, 31536000),
                                       (["tree", "--depth", "0"], 1, 1000000), (["tree", "--depth", "1e300"], 1, 1000000),
                                       (["find", "a", "--most", "0"], 1, 4294967295),
                                       (["check", "--sample", "-1"], 1, 4294967295),
                                       (["restore", "/a", "--version", "0"], 1, 4294967295),
                                       (["pause", "525601"], 1, 525600)):
            self.assertIn(f" is not a number from {least} to {most} (", self.refused_usage(*arguments))

    def refused_usage(self, *arguments):
        result = self.run_ctl(*arguments)
        self.assertEqual(result.returncode, USAGE, arguments)
        return result.stderr


if __name__ == "__main__":
    unittest.main()
