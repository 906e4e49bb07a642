"""Emblems, columns, pages and menu entries in a real file manager, which KELDANE_FILE_MANAGER names."""

import datetime
import os
import re
import subprocess
import threading
import time
import unittest

import desktop
import filemanagers
import locales

from status_case import EACH, LISTING, MANAGER, STATES, WITH_VERSIONS, StatusCase, height_of, setUpModule  # noqa: F401  used by unittest


@unittest.skipUnless(MANAGER.has_emblems, "it knows no emblems of extensions")
class Emblems(StatusCase):
    def test_each_state_has_its_emblem(self):
        for state in STATES:
            self.file(f"{state}.txt", state)
        self.daemon()
        self.open()
        self.shows(*[state for state in STATES if state != "not selected"])

    def test_an_emblem_follows_the_daemon(self):
        path = self.file("letter.txt", "waiting")
        self.daemon()
        self.open()
        self.shows("waiting")
        self.become(path, "backed up")
        begin = time.monotonic()
        self.shows("backed up")
        self.assertLess(time.monotonic() - begin, 20)
        self.become(path, "not selected")
        self.shows()

    def test_a_folder_has_an_emblem_too(self):
        os.mkdir(os.path.join(self.files, "folder"))
        self.states[os.path.join(self.files, "folder")] = "waiting"
        self.daemon()
        self.open()
        self.shows("waiting")

    def test_a_daemon_that_goes_and_comes_back(self):
        self.file("letter.txt", "changed")
        daemon = self.daemon()
        self.open()
        self.shows("changed")
        daemon.stop()
        os.unlink(self.socket)
        self.shows()
        self.daemon()
        self.shows("changed")

    def test_without_a_daemon_there_are_none(self):
        self.file("letter.txt", "changed")
        self.open()
        self.manager.cell("letter.txt")
        self.shows()

    def test_a_daemon_that_hangs_does_not_hang_the_window(self):
        path = self.file("letter.txt", "changed")
        daemon = self.daemon()
        self.answering.clear()
        self.open()
        self.manager.cell("letter.txt")
        desktop.eventually(lambda: {LISTING, EACH, "daemonState"} & set(daemon.selectors()), "the first question")
        for _ in range(20):
            begin = time.monotonic()
            self.manager.application.get_child_at_index(0).get_name()
            self.assertLess(time.monotonic() - begin, 1)
        self.answering.set()
        self.shows("changed")
        self.assertIn(path, self.states)

    def test_the_file_manager_can_end_while_the_daemon_is_asked(self):
        self.file("letter.txt", "changed")
        daemon = self.daemon()
        self.answering.clear()
        self.open()
        desktop.eventually(lambda: {LISTING, EACH, "daemonState"} & set(daemon.selectors()), "the first question")
        self.assertIn(self.manager.program.end(), (0, -15))

    def test_emblems_can_be_switched_off_and_on(self):
        path = self.file("letter.txt", "changed")
        self.daemon()
        self.prefer(ShowEmblems="NO")
        self.open()
        self.manager.cell("letter.txt")
        time.sleep(1)
        self.shows()
        self.prefer(ShowEmblems="YES")
        self.become(path, "waiting")
        self.shows("waiting")
        self.prefer(ShowEmblems="NO")
        self.shows()

    def test_with_everything_off_nothing_is_asked_until_it_is_switched_on(self):
        self.file("letter.txt", "changed")
        daemon = self.daemon()
        for name in ("emblems", "columns", "restore-entries"):
            self.switch(name, "off")
        self.open()
        self.manager.cell("letter.txt")
        time.sleep(1)
        self.assertEqual(daemon.connections, 0)
        self.switch("emblems", "on")
        self.shows("changed")

    def test_odd_names(self):
        for name, state in (("new\nline & <b>%41.txt", "backed up"), ("x" * 251 + ".txt", "waiting"),
                            (" \u05e9\u05dc\u05d5\u05dd ", "failed"), (b"caf\xe9.txt", "excluded"),
                            ("caf\ufffd.txt", "not selected")):
            self.file(name, state)
        daemon = self.daemon()
        self.open()
        self.shows("backed up", "waiting", "failed")
        asked = [frame.arguments[0] for frame in list(daemon.frames) if frame.selector in (LISTING, EACH)]
        known = {self.files, *self.states, *(os.path.join(self.files, name) for name in os.listdir(self.files))}
        self.assertLessEqual({path for path in asked if path.startswith(self.files)}, known)

    def test_nothing_for_what_the_daemon_does_not_tell(self):
        """The daemon reports nothing about another user's files, for example."""
        self.file("mine.txt", "changed")
        self.hidden.add(self.file("theirs.txt", "failed"))
        self.daemon()
        self.open()
        self.shows("changed")
        time.sleep(1)
        self.shows("changed")

    def test_ten_thousand_files(self):
        for number in range(10000):
            self.file(f"{number:05}.txt", "changed")
        self.daemon()
        self.open()
        self.shows("changed")
        begin = time.monotonic()
        self.manager.application.get_child_at_index(0).get_name()
        self.assertLess(time.monotonic() - begin, 5)

    def test_the_window_can_be_closed_while_a_folder_is_asked_about(self):
        for number in range(100):
            self.file(f"{number}.txt", "changed")
        daemon = self.daemon()
        self.answering.clear()
        self.open()
        desktop.eventually(lambda: {LISTING, EACH, "daemonState"} & set(daemon.selectors()), "the first question")
        filemanagers.give_focus(MANAGER.name)
        desktop.press("alt+F4")
        desktop.eventually(lambda: not self.manager.program.is_running(), "the end of the file manager")
        self.assertEqual(self.manager.program.process.returncode, 0)

    def test_nothing_for_what_was_thrown_away(self):
        path = self.file("letter.txt", "changed")
        subprocess.run(["gio", "trash", path], check=True)
        self.addCleanup(subprocess.run, ["gio", "trash", "--empty"], check=True)
        self.check_that_nothing_is_asked("trash:///")

    @unittest.skipIf(MANAGER.remote is None, "it knows no other machine's files without another machine")
    def test_nothing_for_another_machines_files(self):
        self.file("letter.txt", "changed")
        place = f"{MANAGER.remote}{self.files}"
        subprocess.run(["gio", "mount", place], check=True, capture_output=True)
        self.addCleanup(subprocess.run, ["gio", "mount", "--unmount", place], check=True, capture_output=True)
        self.check_that_nothing_is_asked(place)

    def check_that_nothing_is_asked(self, place):
        daemon = self.daemon()
        self.open(place)
        self.manager.cell("letter.txt")
        time.sleep(1)
        self.shows()
        asked = [frame.arguments[0] for frame in list(daemon.frames) if frame.selector in (LISTING, EACH)]
        self.assertEqual([path for path in asked if "letter.txt" in path or path == self.files], [])


@unittest.skipIf(MANAGER.columns is None, "it knows no columns of extensions")
class Columns(StatusCase):
    def setUp(self):
        super().setUp()
        if MANAGER.viewer:
            filemanagers.set_option(MANAGER.viewer, "default-folder-viewer", "list-view")
            self.addCleanup(filemanagers.set_option, MANAGER.viewer, "default-folder-viewer", "icon-view")
        for key in ("default-visible-columns", "default-column-order"):
            filemanagers.set_option(MANAGER.columns, key, "['name', 'size', 'keldane-backup', 'keldane-last-backup']")

    def test_the_cells_say_what_the_emblems_show(self):
        path = self.file("letter.txt", "waiting")
        self.daemon()
        self.open(TZ="UTC")
        self.manager.cell_with("Waiting to be backed up")
        self.become(path, "backed up")
        self.manager.cell_with("Backed up")
        self.manager.cell_with("2026-11-20 14:00")
        if MANAGER.names_headers:
            for header in ("Backup", "Last backed up"):
                desktop.find(self.manager.application, header, "table column header")

    @unittest.skipUnless(locales.can_be_made(), "the sources of the locales are not installed")
    def test_the_cells_speak_the_users_language(self):
        self.file("letter.txt", "failed")
        self.daemon()
        self.open(**locales.made(self.place, "de"))
        self.manager.cell_with("Konnte nicht gesichert werden: Keine Berechtigung")

    @unittest.skipUnless(MANAGER.names_headers, "its headers cannot be found")
    def test_they_can_be_sorted_by(self):
        self.file("a.txt", "waiting")
        self.file("b.txt", "backed up")
        self.file("c.txt", "changed")
        self.daemon()
        self.open()
        self.manager.cell_with("Waiting to be backed up")
        desktop.click(desktop.find(self.manager.application, "Backup", "table column header"))
        expected = ["b.txt", "c.txt", "a.txt"]
        def sorted_by_it():
            places = [desktop.middle(self.manager.cell(name))[1] for name in expected]
            return places in (sorted(places), sorted(places, reverse=True))
        desktop.eventually(sorted_by_it, "rows in the order of the column")

    @unittest.skipIf(MANAGER.names_headers, "the test above sorts by a header's name")
    def test_the_last_one_can_be_sorted_by(self):
        """Its header is at the right edge of the window. By date, the file that was never backed up is above the other,
        although its name comes later."""
        self.file("a.txt", "backed up")
        self.file("b.txt", "waiting")
        self.daemon()
        self.open()
        self.shows("backed up", "waiting")
        first, second = height_of("backed up"), height_of("waiting")
        self.assertLess(first, second)
        desktop.xdotool("mousemove", self.manager.right_edge() - 100, first - (second - first), "click", 1)
        desktop.eventually(lambda: height_of("waiting") < height_of("backed up"), "rows in the order of the dates")

    def test_they_can_be_switched_off(self):
        self.file("letter.txt", "waiting")
        self.daemon()
        self.prefer(ShowColumns="NO")
        self.open()
        self.shows("waiting")
        self.assertIsNone(desktop.find_now(self.manager.application, "Waiting to be backed up", showing=False))


class Properties(StatusCase):
    def setUp(self):
        super().setUp()
        self.path = self.file("letter.txt", "backed up")
        self.prefer(ShowEmblems="NO", ShowColumns="NO")

    def daemon(self):
        daemon = super().daemon()
        def answer(path):
            versions = [{"version": number, "backupDate": datetime.datetime(2026, 11, number), "size": 1024 * number}
                        for number in (3, 2)]
            return {**self.node(path), "versions": versions,
                    "reasons": [{"kind": "own", "includes": True, "text": "A rule of its own includes it."}]}
        daemon.answers[WITH_VERSIONS] = self.answer(answer)
        daemon.answers["restoreFile:toPath:version:priority:"] = 7
        daemon.answers["getRestoreJobStatus:"] = 3
        return daemon

    def open_properties(self):
        self.open(TZ="UTC")
        self.manager.select("letter.txt")
        self.manager.open_properties()

    def finds(self, name, role=None):
        return desktop.find(self.manager.application, name, role, showing=MANAGER.tells_what_shows)

    @unittest.skipUnless(MANAGER.tells_of_properties, "what stands in its properties cannot be read")
    def test_what_the_page_tells(self):
        self.daemon()
        self.open_properties()
        for text in ("Backed up", "A rule of its own includes it.", "2026-11-20 14:00", "When it changes"):
            self.finds(text)
        self.finds(re.compile(r"^3[.,]0.KiB$"))
        if MANAGER.has_page_buttons:
            self.finds("2026-11-02 00:00")

    @unittest.skipUnless(MANAGER.has_page_buttons and MANAGER.tells_of_properties, "there are no buttons to be found")
    def test_back_up_now(self):
        daemon = self.daemon()
        self.open_properties()
        self.finds("Backed up")
        button = self.finds("Back Up Now", "push button")
        desktop.eventually(lambda: desktop.is_on(button, "sensitive"), "the button")
        desktop.act(button)
        desktop.eventually(lambda: "setPriorityBackup:" in daemon.selectors(), "the command")
        self.assertEqual([frame.arguments for frame in daemon.frames if frame.selector == "addFileToBackup:"],
                         [[self.path]])

    @unittest.skipUnless(MANAGER.has_page_buttons and MANAGER.tells_of_properties, "there are no buttons to be found")
    def test_restore_this_version(self):
        daemon = self.daemon()
        self.open_properties()
        desktop.click(self.finds("2026-11-02 00:00"))
        button = self.finds("Restore This Version", "push button")
        desktop.eventually(lambda: desktop.is_on(button, "sensitive"), "the button")
        desktop.act(button)
        self.finds(re.compile("^It was restored[.]"))
        self.assertEqual([frame.arguments for frame in daemon.frames if frame.selector.startswith("restoreFile:")],
                         [[self.path, "", 2, 0]])

    @unittest.skipUnless(MANAGER.has_page_buttons and MANAGER.tells_of_properties, "there are no buttons to be found")
    def test_all_that_can_be_worked_has_a_name_and_is_reached_by_keys(self):
        daemon = self.daemon()
        self.open_properties()
        self.finds("2026-11-02 00:00")
        page = button = self.finds("Back Up Now", "push button")
        while desktop.find_now(page, re.compile("^Restore To"), "push button") is None or \
                desktop.find_now(page, "Backed up", "label") is None:
            page = page.get_parent()
        worked = [node for node in desktop.walk(page) if desktop.has_state(node, desktop.Atspi.StateType.FOCUSABLE)
                  and desktop.has_state(node, desktop.Atspi.StateType.SHOWING)]
        self.assertGreater(len(worked), 5)
        self.assertEqual([node.get_role_name() for node in worked if not node.get_name()], [])
        def reached():
            desktop.press("Tab")
            time.sleep(0.2)
            return desktop.is_on(button, "focused")
        desktop.eventually(reached, "the button")
        desktop.press("space")
        desktop.eventually(lambda: "setPriorityBackup:" in daemon.selectors(), "the command")

    @unittest.skipUnless(MANAGER.tells_of_properties, "what stands in its properties cannot be read")
    def test_without_a_daemon_the_page_says_so(self):
        self.open_properties()
        self.finds("The backup daemon cannot be reached.")
        if MANAGER.has_page_buttons:
            self.assertFalse(desktop.is_on(self.finds("Back Up Now", "push button"), "sensitive"))

    def test_a_page_that_is_closed_before_the_daemon_answers(self):
        daemon = self.daemon()
        # Only the page's own question waits, because some file managers ask others before it.
        answer, let_go = daemon.answers[WITH_VERSIONS], threading.Event()
        self.addCleanup(let_go.set)
        daemon.answers[WITH_VERSIONS] = lambda *arguments: let_go.wait(60) and answer(*arguments)
        self.open_properties()
        desktop.eventually(lambda: WITH_VERSIONS in daemon.selectors(), "the page's question")
        desktop.press("Escape")
        time.sleep(0.5)
        let_go.set()
        desktop.eventually(lambda: "daemonState" in daemon.selectors(), "the questions")
        time.sleep(1)
        self.assertTrue(self.manager.program.is_running())


class RestoreEntries(StatusCase):
    """The restore window is replaced by a program that records its arguments."""

    def setUp(self):
        super().setUp()
        self.started = os.path.join(self.place, "started")
        programs = os.path.join(self.place, "bin")
        os.mkdir(programs)
        program = os.path.join(programs, "keldane-preferences")
        with open(program, "w", encoding="utf-8") as stream:
            stream.write(f"#!/bin/sh\nprintf '%s\\n' \"$@\" >'{self.started}.new'\nmv '{self.started}.new' '{self.started}'\n")
        os.chmod(program, 0o755)
        self.environment = {"PATH": f"{programs}:{os.environ['PATH']}"}

    def was_started(self):
        desktop.eventually(lambda: os.path.exists(self.started), "the restore window")
        with open(self.started, encoding="utf-8") as stream:
            return stream.read().splitlines()

    def test_a_previous_version(self):
        path = self.file("letter 1.txt", "backed up")
        self.daemon()
        self.open(**self.environment)
        self.manager.select("letter 1.txt")
        self.manager.choose_own_entry(self.manager.own_entry("Restore Previous Version…", self.manager.open_menu))
        self.assertEqual(self.was_started(), ["--restore", path])

    def test_missing_files(self):
        self.file("letter.txt", "backed up")
        self.daemon()
        self.open(**self.environment)
        self.manager.cell("letter.txt")
        self.manager.choose_own_entry(self.manager.own_entry(
            "Restore Missing Files…", lambda: self.manager.open_background_menu("letter.txt")))
        self.assertEqual(self.was_started(), ["--restore-missing", self.files])

    def test_nothing_is_offered_for_what_was_never_stored(self):
        self.file("letter.txt", "waiting")
        self.check_that_nothing_is_offered("waiting")

    def test_they_can_be_switched_off(self):
        self.file("letter.txt", "backed up")
        self.prefer(ShowRestoreEntries="NO")
        self.check_that_nothing_is_offered("backed up")

    def test_they_can_be_switched_on(self):
        path = self.file("letter.txt", "backed up")
        self.switch("restore-entries", "off")
        self.daemon()
        self.open(**self.environment)
        self.manager.cell("letter.txt")
        self.switch("restore-entries", "on")
        time.sleep(MANAGER.follows_switches_after)
        self.manager.select("letter.txt")
        self.manager.choose_own_entry(self.manager.own_entry("Restore Previous Version…", self.manager.open_menu))
        self.assertEqual(self.was_started(), ["--restore", path])

    @unittest.skipUnless(MANAGER.tells_what_shows and MANAGER.names_what_cannot_be_chosen, "its menus cannot be read")
    def test_it_is_chosen_by_keys_alone(self):
        path = self.file("letter.txt", "backed up")
        self.daemon()
        self.open(**self.environment)

        def open_menu():
            self.manager.select("letter.txt")  # closing a menu that does not have the entry yet can end the selection
            self.manager.open_menu_by_keyboard()
        entry = self.manager.own_entry("Restore Previous Version…", open_menu)

        def reached():
            desktop.press("Down")
            return desktop.is_on(entry, "selected") or desktop.is_on(entry, "focused")
        desktop.eventually(reached, "the entry")
        desktop.press("Return")
        self.assertEqual(self.was_started(), ["--restore", path])

    def check_that_nothing_is_offered(self, state):
        self.daemon()
        self.open(**self.environment)
        if MANAGER.has_emblems:
            self.shows(state)
        self.manager.select("letter.txt")
        self.manager.open_menu()
        desktop.eventually(self.manager.is_open, "the menu")
        for title in ("Restore Previous Version…", "Restore Missing Files…"):
            self.assertIsNone(self.manager.find_own_entry(title))


if __name__ == "__main__":
    unittest.main()
