"""The plug-in with the daemon, on real files."""

import os
import unittest

from harness import Case, Keldaned

NOT_SELECTED, BACKED_UP, WAITING = "Not selected for backup", "Backed up", "Waiting to be backed up"


class WithTheDaemon(Case):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def status(self, path):
        titles = self.titles(path)
        return titles[0].removeprefix("Status: ") if titles and titles[0].startswith("Status: ") else None

    def becomes(self, path, status):
        self.eventually(lambda: self.status(path) == status, f"{status!r} of {path}")

    def test_a_file_is_backed_up_and_left_out_again(self):
        path = self.file("a.txt")
        self.assertEqual(self.status(path), NOT_SELECTED)
        self.menu("choose", "backup", path)
        self.becomes(path, BACKED_UP)
        self.assertEqual(self.titles(path)[2], "Don't Back This Up")
        self.menu("choose", "exclude", path)
        self.becomes(path, NOT_SELECTED)
        self.assertEqual(self.titles(path)[2:4], ["Back This Up", "Back Up This File As Soon As Possible"])

    def test_as_soon_as_possible(self):
        path = self.file("a.txt")
        self.menu("choose", "asap", path)
        self.becomes(path, BACKED_UP)

    def test_a_folder_and_what_is_in_it(self):
        folder, inside, out = self.folder("d"), self.file("d/a"), self.file("d/out")
        self.menu("choose", "backup", folder)
        self.becomes(inside, BACKED_UP)
        self.becomes(out, BACKED_UP)
        self.menu("choose", "exclude", out)
        self.becomes(out, NOT_SELECTED)
        self.assertEqual(self.titles(folder)[2:4], ["Back This Up", "Don't Back This Up"])

    def test_several(self):
        paths = [self.file(name) for name in ("a", "b:c", "d e\nf", "😀")]
        self.menu("choose", "backup", *paths)
        for path in paths:
            self.becomes(path, BACKED_UP)
        self.assertEqual(self.titles(*paths)[0], "Status: <multiple files selected>")

    def test_a_type(self):
        path, other = self.file("a.tmp"), self.file("b.tmp")
        self.menu("choose", "type-backup", path)
        self.becomes(other, BACKED_UP)
        self.menu("choose", "type-exclude", path)
        self.becomes(other, NOT_SELECTED)

    def test_what_the_policy_bars_has_no_menu(self):
        self.assertIsNone(self.show("/etc/passwd"))
        self.assertIsNone(self.show("/proc"))
        self.assertIsNone(self.show(self.file("a"), "/etc/passwd"))

    def test_everything_is_remembered_across_its_death_and_its_end(self):
        path = self.file("a.txt")
        self.menu("choose", "backup", path)
        self.becomes(path, BACKED_UP)
        self.keldaned.kill()
        self.assertIsNotNone(self.titles(path), "the socket of the dead stays: the fixed items are there")
        self.keldaned.start()
        self.assertEqual(self.status(path), BACKED_UP)
        self.assertEqual(self.keldaned.terminate(), 0)
        self.assertIsNone(self.show(path), "a clean end takes the socket along")
        self.keldaned.start()
        self.assertEqual(self.status(path), BACKED_UP)

    def test_a_changed_file_is_noticed(self):
        path = self.file("a.txt")
        self.menu("choose", "backup", path)
        self.becomes(path, BACKED_UP)
        self.file("a.txt", "other content")
        self.assertEqual(self.status(path), "Changed since last backup")
        self.menu("choose", "backup", path)
        self.becomes(path, BACKED_UP)

    def test_a_thousand_files_are_one_menu(self):
        paths = [self.file(f"many/{i}") for i in range(1000)]
        answer = self.script({"do": "examine", "paths": paths}, {"do": "select", "command": "backup", "paths": paths},
                             {"do": "cleanup"})
        self.assertEqual(answer[0]["menu"]["items"][2]["title"], "Back This Up")
        self.becomes(paths[-1], BACKED_UP)


if __name__ == "__main__":
    unittest.main()
