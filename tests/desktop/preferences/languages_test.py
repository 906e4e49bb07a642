"""The window of the preferences in every language: its texts are translated, and it fits a small screen."""

import glob
import os
import re
import subprocess

import desktop
import locales
from harness import PATIENCE, Case, Keldaned

PREFERENCES = os.environ["KELDANE_PREFERENCES"]
TRANSLATIONS = os.path.join(os.path.dirname(__file__), "..", "..", "..", "clients", "preferences", "po")
TITLE = "Keldane Preferences"
# The space that a screen of 1,024 by 768 leaves beside the bars of the desktop. A window grows until its texts fit.
WIDEST, HIGHEST = 1000, 700


def titles():
    """The window's title by language."""
    found = {"en": TITLE}
    for path in glob.glob(os.path.join(TRANSLATIONS, "*.po")):
        with open(path, encoding="utf-8") as stream:
            title = re.search(rf'^msgid "{TITLE}"\nmsgstr "(.+)"$', stream.read(), re.MULTILINE)[1]
        found[os.path.basename(path).removesuffix(".po")] = title
    return found


class Languages(Case):
    def setUp(self):
        super().setUp()
        self.environment["HOME"] = os.path.realpath(self.folder("home"))
        self.file("home/letter.txt")
        Keldaned(self)

    @staticmethod
    def size_of(title):
        """The window's width and height in points, as soon as it is visible."""
        number = subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--name", f"^{title}$"], check=True,
                                capture_output=True, text=True, timeout=PATIENCE).stdout.split()[0]
        text = subprocess.run(["xdotool", "getwindowgeometry", "--shell", number], check=True, capture_output=True,
                              text=True).stdout
        return tuple(int(re.search(rf"^{name}=(\d+)$", text, re.MULTILINE)[1]) for name in ("WIDTH", "HEIGHT"))

    def test_the_window_fits_in_every_language(self):
        found = titles()
        self.assertGreater(len(found), 5)
        data = self.environment["XDG_DATA_DIRS"] + ":/usr/local/share:/usr/share"
        for language, title in found.items():
            with self.subTest(language):
                program = desktop.Program(PREFERENCES, "--bundle", self.bundle, **{
                    **self.environment, "XDG_DATA_DIRS": data,
                    **(locales.made(self.place, language) if language != "en" else {})})
                try:
                    program.application()
                    width, height = self.size_of(title)
                    self.assertLessEqual(width, WIDEST)
                    self.assertLessEqual(height, HIGHEST)
                finally:
                    program.end()
