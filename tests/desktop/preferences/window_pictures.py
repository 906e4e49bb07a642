"""window_pictures.py FOLDER: makes a picture of each page of the preferences program in its window, light and dark."""

import os
import sys
import time
import unittest

import desktop
from pages_test import PagesCase

PICTURES = os.path.abspath(sys.argv.pop(1))
THEMES = {"light": "Adwaita", "dark": "Adwaita:dark"}
# The set-up is left out, because it shows the disks of the present computer.
PAGES = ("overview", "restore", "storage", "rules")
TIME_TO_DRAW = 1.5  # seconds, because no event says that a picture is complete


class Pictures(PagesCase):
    def test_each_page(self):
        self.file("home/Documents/accounts.csv", "1\n" * 2000)
        self.file("home/Documents/Holiday/beach.raw", "x" * 300000)
        self.back_up(self.documents)
        for page in PAGES:
            for theme, name in THEMES.items():
                with self.subTest(page=page, theme=theme):
                    self.open("--page", page, GTK_THEME=name)
                    self.program.find("push button")
                    time.sleep(TIME_TO_DRAW)
                    desktop.screenshot(os.path.join(PICTURES, f"preferences-{page}-{theme}.png"))
                    self.program.end()


if __name__ == "__main__":
    unittest.main()
