"""The menu's entries for each possible answer of the daemon."""

import os
import unittest

from harness import ATTRIBUTE_PARENT, ATTRIBUTE_SECTION, NO_COMMANDS, Case
from recording_daemon import (CHECKED, ENABLED, GRAYED, PRIORITY_CHECKED, PRIORITY_ENABLED, PRIORITY_OFFER,
                              PRIORITY_VISIBLE, node)

BACK_UP, EXCLUDE, ASAP = "Back This Up", "Don't Back This Up", "Back Up This File As Soon As Possible"
SEVERAL = "Status: <multiple files selected>"


class Menu(Case):
    def by_path(self, flags):
        """A daemon with flags by file name; a name without flags is unknown to it."""
        return self.daemon({"dictionaryForPath:withDirSizes:":
                            lambda path, _: node(path, flags[os.path.basename(path)], os.path.isdir(path), "State")
                            if os.path.basename(path) in flags else None})

    def commands(self, *paths):
        titles = self.titles(*paths)
        return None if titles is None else [title for title in titles if title in (BACK_UP, EXCLUDE, ASAP)]

    def test_the_whole_menu_of_a_file(self):
        self.daemon(ENABLED | PRIORITY_OFFER)
        menu = self.show(self.file("a.txt"))
        section, command = {"commandSize": 4, "attributes": ATTRIBUTE_SECTION}, {"commandSize": 4, "attributes": None}
        self.assertEqual(menu, {
            "title": "Keldane", "command": "r2d2", "commandSize": 8, "attributes": ATTRIBUTE_PARENT,
            "items": [{"title": "Status: Not selected for backup", "command": "r2d3", **section},
                      {"title": "-", "command": "r2d4", **section},
                      {"title": BACK_UP, "command": "r2d<", **command},
                      {"title": ASAP, "command": "r2d>", **command},
                      {"title": "-", "command": "r2dA", **section},
                      {"title": "Open Keldane Preferences…", "command": "r2dB", **command}]})

    def test_as_text(self):
        self.daemon(ENABLED)
        result = self.run_menu("show", self.file("a.txt"))
        self.assertEqual(result.stdout.decode(), "Keldane\n  (Status: Not selected for backup)\n  ---\n"
                         "  Back This Up [backup]\n  ---\n  Open Keldane Preferences… [preferences]\n")

    def test_a_file_is_offered_what_fits_it(self):
        for flags, offers in ((ENABLED, [BACK_UP]), (ENABLED | CHECKED, [EXCLUDE]), (ENABLED | GRAYED, [BACK_UP, EXCLUDE]),
                              (ENABLED | CHECKED | GRAYED, [EXCLUDE])):
            with self.subTest(flags=flags):
                daemon = self.daemon(flags)
                self.assertEqual(self.commands(self.file("a")), offers)
                daemon.stop()
                os.unlink(self.socket)

    def test_a_folder_is_offered_both_and_never_priority(self):
        self.daemon(ENABLED | CHECKED | PRIORITY_OFFER)
        self.assertEqual(self.commands(self.folder("d")), [BACK_UP, EXCLUDE])

    def test_priority_needs_enabled_and_visible_and_not_checked(self):
        for flags, offered in ((PRIORITY_OFFER, True), (PRIORITY_OFFER | PRIORITY_CHECKED, False),
                               (PRIORITY_ENABLED, False), (PRIORITY_VISIBLE, False), (0, False)):
            with self.subTest(flags=flags):
                daemon = self.daemon(ENABLED | flags)
                self.assertEqual(ASAP in self.commands(self.file("a")), offered)
                daemon.stop()
                os.unlink(self.socket)

    def test_priority_for_several_needs_it_for_each_and_no_folder(self):
        self.by_path({"a": ENABLED | PRIORITY_OFFER, "b": ENABLED | PRIORITY_OFFER, "c": ENABLED, "d": ENABLED})
        a, b, c, d = self.file("a"), self.file("b"), self.file("c"), self.folder("d")
        self.assertEqual(self.commands(a, b), [BACK_UP, ASAP])
        self.assertEqual(self.commands(a, b, c), [BACK_UP])
        self.assertEqual(self.commands(a, d), [BACK_UP, EXCLUDE])

    def test_offers_of_several_are_added_up(self):
        self.by_path({"a": ENABLED, "b": ENABLED | CHECKED})
        self.assertEqual(self.titles(self.file("a"), self.file("b")),
                         [SEVERAL, "-", BACK_UP, EXCLUDE, "-", "Open Keldane Preferences…"])

    def test_one_barred_item_bars_the_menu(self):
        self.by_path({"a": ENABLED, "b": CHECKED, "d": 0})
        self.assertIsNone(self.show(self.file("b")))
        self.assertIsNone(self.show(self.file("a"), self.file("b")))
        self.assertIsNone(self.show(self.folder("d")), "a folder too")
        result = self.run_menu("show", self.file("b"))
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b"no menu\n"))

    def test_what_the_daemon_does_not_know_has_no_status(self):
        self.by_path({})
        self.assertEqual(self.titles(self.file("a")), NO_COMMANDS)
        self.assertEqual(self.titles(self.file("a"), self.file("b")), [SEVERAL, *NO_COMMANDS])

    def test_a_status_of_any_text(self):
        for state, title in (("100 % %@ %s", "Status: 100 % %@ %s"), ("", "Status: "), (5, "Status: 5"),
                             (None, "Status: (null)"), ("gesichert 😀", "Status: gesichert 😀")):
            with self.subTest(state=state):
                answer = {"simpleFlags": ENABLED, **({} if state is None else {"state": state})}
                daemon = self.daemon({"dictionaryForPath:withDirSizes:": answer})
                self.assertEqual(self.titles(self.file("a"))[0], title)
                daemon.stop()
                os.unlink(self.socket)

    def test_without_attributes_nothing_carries_any(self):
        self.daemon(ENABLED)
        menu = self.show(self.file("a"), options=["--no-attributes"])
        self.assertIsNone(menu["attributes"])
        self.assertEqual({item["attributes"] for item in menu["items"]}, {None})

    def test_a_selection_in_each_form(self):
        self.daemon(ENABLED)
        path = self.file("a b:c")
        for form in ("furl", "alias", "fsref"):
            for options in ([], ["--list"]):
                self.assertIsNotNone(self.show(path, options=["--descriptor", form, *options]), (form, options))
            self.assertEqual(self.titles(path, self.file("x"), options=["--descriptor", form])[0], SEVERAL)
        self.assertIsNone(self.show(path, options=["--descriptor", "text"]))

    def test_names_that_are_no_text_are_left_out(self):
        daemon = self.daemon(ENABLED)
        odd = os.path.join(os.fsencode(self.folder(".")), b"bad\xff")
        with open(odd, "wb"):
            pass
        self.assertIsNone(self.show(odd))
        self.assertEqual(self.titles(odd, self.file("a"))[0], "Status: Not selected for backup", "one is left")
        self.assertEqual({frame.arguments[0] for frame in daemon.frames if len(frame.arguments) == 2}, {self.file("a")})

    def test_relative_paths_are_taken_from_the_working_directory(self):
        daemon = self.daemon(ENABLED)
        path = self.file("a")
        result = self.run_menu("--json", "show", "./a", cwd=os.path.dirname(path))
        self.assertEqual(result.returncode, 0)
        self.assertEqual(daemon.frames[0].arguments[0], path)

    def test_in_the_users_language(self):
        self.daemon(ENABLED | GRAYED)
        self.environment["LC_ALL"] = "de_DE.UTF-8"
        self.assertEqual(self.titles(self.file("a")), ["Status: Not selected for backup", "-", "Sichern", "Nicht sichern",
                                                       "-", "Keldane-Einstellungen öffnen …"])

    def test_defaults_where_the_strings_tables_are_missing_or_broken(self):
        self.daemon(ENABLED)
        table = os.path.join(self.bundle, "Contents/Resources/en.lproj/Localizable.strings")
        for content in (None, b"", b"\xff\xfe broken", b'"ASAP" = "x"', b'"Menu Title" = ('):
            if content is None:
                os.unlink(table)
            else:
                with open(table, "wb") as stream:
                    stream.write(content)
            menu = self.show(self.file("a"))
            self.assertEqual(menu["title"], "Keldane")
            self.assertEqual(menu["items"][2]["title"], BACK_UP)

    def test_strings_that_ask_for_what_is_not_there(self):
        self.daemon(ENABLED)
        with open(os.path.join(self.bundle, "Contents/Resources/en.lproj/Localizable.strings"), "w") as stream:
            stream.write('"Single File Status" = "%s %@ %n %d %999999999d";\n"Multi-file Status" = "%@ %s";')
        self.assertTrue(self.titles(self.file("a"))[0].startswith("Not selected for backup (null) %n 0 "))
        self.assertEqual(self.titles(self.file("a"), self.file("b"))[0], "(null) (null)")


if __name__ == "__main__":
    unittest.main()
