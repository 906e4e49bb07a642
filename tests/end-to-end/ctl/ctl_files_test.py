"""keldanectl's rules, listings and selections of real files."""

import os
import re
import subprocess
import unittest

from ctl_harness import DONE, NOT_TAKEN, CtlCase
from harness import Keldaned


class Files(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    # --- Rules ---

    def test_add_remove_and_asap(self):
        path = self.file("a b\n")
        self.assertTrue(self.ctl("add", path).startswith(self.files.rstrip(".") + "a b\\n: "))
        self.ctl("watch", "--until-done")
        self.assertTrue(self.ctl("add", path).endswith(": Backed up\n"))
        self.assertTrue(self.ctl("remove", path).endswith(": Not selected for backup\n"))
        self.ctl("automatic", "off")
        other = self.file("other")
        self.ctl("asap", other)
        self.eventually(lambda: self.json("ls", other)[0]["state"] == "Backed up", "the preferred file")

    def test_paths_are_taken_from_the_working_directory(self):
        self.file("d/x")
        self.assertTrue(self.ctl("add", "./d/../d/", cwd=self.files).startswith(f"{os.path.dirname(self.file('x'))}/d: "))
        self.assertIn("x\n", self.ctl("ls", cwd=self.folder("d")))

    def test_what_is_not_there_fails_and_the_rest_is_done(self):
        path = self.file("a")
        result = self.run_ctl("add", os.path.join(self.files, "none"), path)
        self.assertEqual(result.returncode, NOT_TAKEN)
        self.assertIn("knows nothing of", result.stderr)
        self.assertTrue(result.stdout.startswith(path))
        self.assertIn("Excluded by policy", self.refusal("add", "/etc/passwd"))

    # --- Listings ---

    def make_tree(self):
        self.file("d/a.txt", "x" * 2000)
        self.file("d/b.txt")
        self.file("d/e/c.txt")
        self.folder("d/empty")
        self.top = self.folder("d")
        self.backed_up(self.top)

    def test_ls(self):
        self.make_tree()
        rows = self.ctl("ls", self.top).splitlines()
        self.assertEqual([row.split()[-1] for row in rows], ["a.txt", "b.txt", "e/", "empty/"])
        self.assertRegex(rows[0], r"^-sb-----  Backed up +2\.0 KiB  \d{4}-\d\d-\d\d \d\d:\d\d  a\.txt$")
        self.assertRegex(rows[2], r"^ds------  Backed up +-  - +e/$")
        self.assertRegex(self.ctl("ls", "--flags", self.top).splitlines()[0],
                         r"  a\.txt  0x00000030 : Backup_Priority \(0\) Backup_Backup Backup_BackedUp $")
        nodes = self.json("ls", self.top)
        self.assertEqual([node["path"] for node in nodes],
                         [os.path.join(self.top, name) for name in ("a.txt", "b.txt", "e", "empty")])
        self.assertEqual(nodes[0]["size"], 2000)

    def test_ls_of_everything_below(self):
        self.make_tree()
        text = self.ctl("ls", "-R", self.top)
        self.assertEqual(re.findall(r"(?m)^(/.*):$", text), [self.top, self.top + "/e", self.top + "/empty"])
        self.assertEqual(len(self.json("ls", "-R", self.top)), 5)

    def test_ls_of_a_file(self):
        path = self.file("f")
        self.assertTrue(self.ctl("ls", path).rstrip("\n").endswith(path))
        self.assertEqual([node["path"] for node in self.json("ls", path)], [path])

    def test_tree(self):
        self.make_tree()
        rows = self.ctl("tree", self.top).splitlines()
        self.assertEqual([re.search("[├└│].*", row)[0] for row in rows[1:]], ["├── a.txt", "├── b.txt", "├── e/", "│   └── c.txt", "└── empty/"])
        plain = dict(self.environment, LC_ALL="C")
        result = subprocess.run(self.command("tree", self.top), env=plain, capture_output=True, check=True, text=True)
        self.assertIn("|   `-- c.txt", result.stdout)
        self.assertEqual(len(self.ctl("tree", "--depth", "1", self.top).splitlines()), 5)
        tree = self.json("tree", self.top)
        self.assertEqual([child["fileName"] for child in tree["children"]], ["a.txt", "b.txt", "e", "empty"])
        self.assertEqual([child["fileName"] for child in tree["children"][2]["children"]], ["c.txt"])
        self.assertEqual(tree["children"][3]["children"], [])
        self.assertNotIn("children", self.json("tree", "--depth", "1", self.top)["children"][2])

    def test_a_folder_of_many_entries(self):
        folder = self.folder("many")
        for i in range(20000):
            with open(os.path.join(folder, f"{i:05}"), "w", encoding="ascii"):
                pass
        nodes = self.json("ls", folder)
        self.assertEqual([node["fileName"] for node in nodes], [f"{i:05}" for i in range(20000)])

    # --- Selections ---

    def paths(self, *names):
        return [os.path.join(self.top, name) for name in names]

    def test_select(self):
        self.make_tree()
        choose = lambda *options: self.ctl("select", *options).splitlines()
        self.assertEqual(choose(self.top), [self.top])
        self.assertEqual(choose(self.top, "--not", self.top + "/b.txt"), self.paths("a.txt", "e", "empty"))
        self.assertEqual(choose(self.top, "--not", self.top + "/e/c.txt"), self.paths("a.txt", "b.txt", "empty"))
        self.assertEqual(choose("--files", self.top), self.paths("a.txt", "b.txt", "e/c.txt"))
        self.assertEqual(choose("--deepest", self.top), self.paths("a.txt", "b.txt", "e", "empty"))
        self.assertEqual(choose("--topmost", *self.paths("a.txt", "e/c.txt")), self.paths("a.txt", "e"))
        self.assertEqual(self.ctl("select", "-0", self.top), self.top + "\0")
        self.assertEqual([node["path"] for node in self.json("select", self.top)], [self.top])

    def test_what_was_never_backed_up_cannot_be_selected(self):
        self.make_tree()
        path = self.file("new")
        self.assertIn("never backed up", self.refusal("select", path))
        self.assertIn("knows nothing of", self.refusal("select", path + "er"))
        self.assertIn("not among what could be selected", self.run_ctl("select", self.top, "--not", "/usr").stderr)

    # --- Colours ---

    def test_colours_are_for_terminals_that_want_them(self):
        self.backed_up(self.file("f"))
        green = "\x1b[32mBacked up"
        self.assertNotIn("\x1b", self.ctl("ls", self.files))
        self.assertNotIn("\x1b", self.ctl("status"))
        for environment, colored in (({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False),
                                     ({"TERM": "vt100"}, False), ({"TERM": "no-such-terminal"}, False)):
            terminal = self.terminal("ls", self.files, **environment)
            self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
            self.assertIs(green in terminal.text, colored, environment)
            self.assertIn("Backed up", terminal.text)

    def test_a_narrow_terminal_has_no_room_for_dates(self):
        self.backed_up(self.file("f"))
        for columns, dated in ((89, False), (90, True)):
            terminal = self.terminal("ls", self.files, columns=columns)
            terminal.wait()
            self.assertIs(re.search(r"\d{4}-\d\d-\d\d", terminal.text) is not None, dated)


if __name__ == "__main__":
    unittest.main()
