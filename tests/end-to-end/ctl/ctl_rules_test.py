"""keldanectl's answers about rules that can be made, and about those that cannot."""

import os
import socket
import unittest

from ctl_harness import USAGE, CtlCase
from harness import Keldaned


class Rules(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def own_rules(self):
        """The paths with rules of their own, and whether the rule includes them."""
        plus, minus = 0x80 | 0x08000000, 0x40 | 0x20000
        return {node["path"]: bool(node["backupFlags"] & plus) for node in self.json("ls", "-R", self.files)
                if node["backupFlags"] & (plus | minus)}

    def test_what_was_said_of_a_path_is_taken_back(self):
        top, path = self.folder("d"), self.file("d/f")
        self.ctl("pause", "5")
        self.ctl("add", top)
        self.ctl("remove", path)
        self.assertEqual(self.own_rules(), {top: True, path: False})
        self.assertRegex(self.ctl("inherit", path), rf"^{path}: Waiting to be [a-z ]+\n$")
        self.assertEqual(self.own_rules(), {top: True})
        self.ctl("remove", path)
        os.unlink(path)
        self.assertEqual(self.ctl("inherit", path), f"{path}: Nothing is there, and no rule is about it\n")
        self.file("d/f")
        self.ctl("inherit", top)
        self.assertEqual(self.own_rules(), {})

    def test_a_barred_path_is_refused_and_keeps_no_rule(self):
        for command in ("add", "remove", "asap"):
            self.assertIn("did not take", self.refusal(command, "/etc/passwd"))
        self.assertIn("the policy keeps it out", self.refusal("remove", "/etc/passwd"))

    def test_a_path_that_is_not_there_is_refused_and_keeps_no_rule(self):
        top, path = self.folder("d"), os.path.join(self.files, "d", "none")
        self.ctl("add", top)
        for command in ("add", "remove", "asap"):
            self.assertEqual(self.refusal(command, path), "keldanectl: The daemon knows nothing of "
                             f"{os.path.normpath(path)}: nothing is there. No rule was made.\n")
            with open(path, "w", encoding="ascii") as stream:
                stream.write(command)
            self.assertEqual(self.own_rules(), {top: True})
            os.unlink(path)
        for command in ("add", "ls", "select", "versions"):
            self.assertEqual(self.refusal(command, ""), "keldanectl: A path cannot be empty.\n")

    def test_asap_says_what_it_does_not_do(self):
        top, path = self.folder("d"), self.file("d/f")
        self.assertIn("is a folder. Only a file can be put before", self.refusal("asap", top))
        self.assertEqual(self.own_rules(), {})
        self.ctl("automatic", "off")
        self.ctl("pause", "5")
        self.ctl("add", top)
        self.ctl("asap", path)
        self.assertEqual(self.own_rules(), {top: True})
        self.assertEqual(self.json("ls", path)[0]["backupFlags"] & 15, 1)
        os.mkfifo(os.path.join(top, "pipe"))
        self.assertIn("was not put before the others: Pipe, goes with its folder",
                      self.refusal("asap", os.path.join(top, "pipe")))

    def test_what_is_no_file_is_told_as_what_it_is(self):
        top = self.folder("d")
        os.mkfifo(os.path.join(top, "pipe"))
        os.symlink("nowhere", os.path.join(top, "link"))
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(os.path.join(top, "socket"))
        self.backed_up(top)
        states = {node["fileName"]: (node["state"], node["simpleFlags"] & 0x70000) for node in self.json("ls", top)}
        self.assertEqual(states, {"pipe": ("Pipe, goes with its folder", 0), "socket": ("Socket, never backed up", 0),
                                  "link": ("Backed up", 0)})

    # --- Types ---

    def test_a_types_rule_is_taken_back_and_case_counts(self):
        self.ctl("type", "tmp", "backup")
        self.assertEqual(self.ctl("type", "TMP", "show"), ".TMP: none\n")
        self.assertEqual(self.ctl("type", "tmp", "none"), ".tmp: none\n")
        self.assertEqual(self.ctl("type", ".", "exclude"), ".: exclude\n")
        self.assertIn("Capital and small letters are told apart", self.ctl("type", "--help"))

    def test_a_type_that_no_file_can_have_is_refused_with_the_reason(self):
        for extension, reason in (("tar.gz", "last dot of a name: gz."), ("*.jpg", "is a pattern"), ("a?", "is a pattern"),
                                  ("a/b", "is a path"), ("jpg.", "has a dot in it"), ("", "The type is missing"),
                                  ("x" * 254, "254 bytes; the longest has 253"), ("\udcff", "is not UTF-8")):
            for rule in ("backup", "exclude", "none", "show"):
                self.assertIn(reason, self.refusal("type", extension, rule, status=USAGE))
        path = self.file("a." + "x" * 253)
        self.ctl("type", "x" * 253, "backup")
        self.eventually(lambda: self.json("ls", path)[0]["state"] == "Backed up", "the longest type")


if __name__ == "__main__":
    unittest.main()
