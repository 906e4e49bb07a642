"""Whether keys alone work the window, and whether everything that can be worked has a name."""

import re
import unittest

from desktop import FocusedNames, eventually, has_size, is_on, role_of, walk
from pages_test import SETUP, PagesCase
from preferences_window import TITLE

ROLES = ("push button", "check box", "toggle button", "text", "password text", "spin button", "combo box", "slider")
NO_NAME = re.compile("^(Gtk|gtkmm__)|^$")  # the toolkit's own word for a control without a name
# The arrow keys work these: the buttons of folders in a tree, the days of a calendar, and all but one button of a group.
BY_ARROWS = {"Expand", "Choose a day", "Where it was", "Into a folder:", "On this disk", "On an external disk", "On a server",
             "There is a backup already, and it is to be gone on with"}
PART_OF_COMBO_BOX = "GtkToggleButton"  # the part that takes the focus; newer toolkits name it by what is chosen
CHOSEN = "Stays; what is restored gets another name"
MOST_STEPS = 40


class Keys(PagesCase):
    PAGES = {"overview": "Pause", "restore": "Choose a Folder…", "storage": "Check Now", "rules": "Show What That Is",
             "setup": "Later"}

    def controls(self, title):
        """The controls of the window that can be worked now: role and name. A part of another control is none."""
        frame = next(node for node in walk(self.program.application()) if node.get_name() == title)
        return [(role_of(node), node.get_name() or "") for node in walk(frame)
                if role_of(node) in ROLES and has_size(node) and is_on(node, "sensitive")
                and role_of(node.get_parent()) not in ("combo box", "spin button")]

    def check(self, page, last):
        self.open("--page", page)
        title = SETUP if page == "setup" else TITLE
        self.window(title)
        eventually(lambda: ("push button", last) in self.controls(title), f"the page {page}")
        controls = self.controls(title)
        self.assertEqual([control for control in controls if NO_NAME.match(control[1])], [])
        left = {PART_OF_COMBO_BOX if role == "combo box" else name for role, name in controls}
        left -= BY_ARROWS | {self.home}  # the first row of a tree
        heard = FocusedNames()
        try:
            for _ in range(MOST_STEPS):
                self.press(title, "Tab")
                name = heard.next(0.5)
                left.discard(PART_OF_COMBO_BOX if name == CHOSEN else name)
                if not left:
                    break
        finally:
            heard.end()
        self.assertEqual(left, set())

    def test_every_control_has_a_name_and_is_reached_by_keys(self):
        self.back_up(self.letter)
        for page, last in self.PAGES.items():
            with self.subTest(page):
                try:
                    self.check(page, last)
                finally:
                    self.program.end()


if __name__ == "__main__":
    unittest.main()
