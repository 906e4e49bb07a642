"""The documents of the programs: manual pages, desktop files, the description for software centres, the changelog."""

import glob
import os
import re
import shutil
import subprocess
import unittest

BUILD = os.environ["KELDANE_BUILD"]
SOURCE = os.environ["KELDANE_SOURCE"]
PAGES = os.path.join(BUILD, "docs", "man")


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="utf-8") as stream:
        return stream.read()


class ManualPages(unittest.TestCase):
    def setUp(self):
        if not shutil.which("scdoc"):
            self.skipTest("scdoc is not installed")

    @staticmethod
    def text(page):
        """A page without its formatting."""
        with open(os.path.join(PAGES, page), encoding="utf-8") as stream:
            return re.sub(r"\\f[BIR]|\\&", "", stream.read()).replace("\\-", "-")

    def test_every_program_has_one(self):
        for program in glob.glob(os.path.join(BUILD, "bin", "keldane*")):
            name = os.path.basename(program)
            with self.subTest(name):
                self.assertEqual(len(glob.glob(os.path.join(PAGES, name + ".[18]"))), 1)

    def test_every_option_and_command_stands_in_them(self):
        for page, program in (("keldanectl.1", "keldanectl"), ("keldaned.8", "keldaned"), ("keldane-menu.1", "keldane-menu")):
            text = self.text(page)
            self.assertNotIn("@reference", text)
            path = os.path.join(BUILD, "bin", program)
            usage = subprocess.run([path, "--help"], capture_output=True, text=True, check=True).stdout
            for option in re.findall(r"^ +(?:-\w,)?(--[\w-]+)", usage, re.MULTILINE):
                self.assertIn(option, text, page)
            commands = re.split(r"\nsubcommands:\n", usage, flags=re.IGNORECASE)[1:]
            for command in re.findall(r"^  (\w[\w-]*) ", commands[0] if commands else "", re.MULTILINE):
                self.assertIn(f"{program} {command}", text, page)

    def test_every_value_of_the_configuration_file_is_explained(self):
        names = re.findall(r'^    \{"([a-z-]+)", Kind::', read("config", "SystemConfig.cpp"), re.MULTILINE)
        self.assertGreater(len(names), 5)
        page = self.text("keldane.conf.5")
        for name in names:
            self.assertRegex(page, rf"(?m)^{name}\b", name)


class Descriptions(unittest.TestCase):
    @unittest.skipUnless(shutil.which("desktop-file-validate"), "desktop-file-validate is not installed")
    def test_the_desktop_files_are_valid(self):
        for path in ("clients/preferences/keldane-preferences.desktop",
                     "clients/preferences/keldane-notifications.desktop", "daemon/service/keldane.desktop"):
            result = subprocess.run(["desktop-file-validate", os.path.join(SOURCE, path)], capture_output=True, text=True,
                                    check=False)
            self.assertEqual((result.returncode, result.stdout), (0, ""))

    @unittest.skipUnless(shutil.which("appstreamcli"), "appstreamcli is not installed")
    def test_the_description_for_software_centres_is_valid(self):
        path = os.path.join(SOURCE, "clients", "preferences", "example.keldane.Preferences.metainfo.xml")
        result = subprocess.run(["appstreamcli", "validate", "--no-net", path], capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_pictures_have_a_ground_of_their_own(self):
        # A page may be dark, and black text without a background could not be read there.
        pictures = glob.glob(os.path.join(SOURCE, "docs", "**", "*.svg"), recursive=True)
        self.assertGreater(len(pictures), 3)
        for path in pictures:
            self.assertIn('<rect width="100%" height="100%" fill="white"/>', read(path), path)

    def test_the_example_configuration_is_right(self):
        path = os.path.join(SOURCE, "docs", "examples", "administration", "keldane.conf")
        result = subprocess.run([os.path.join(BUILD, "bin", "keldanectl"), "config", "check", path], capture_output=True,
                                text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_the_version_is_the_same_everywhere(self):
        version = re.search(r"project\(Keldane VERSION (\S+)", read("CMakeLists.txt"))[1]
        self.assertTrue(read("debian", "changelog").startswith(f"keldane ({version}"))
        self.assertRegex(read("CHANGELOG.md"), rf"(?m)^## {re.escape(version)}\b")
        self.assertIn(f'<release version="{version}"', read("clients", "preferences",
                                                            "example.keldane.Preferences.metainfo.xml"))


if __name__ == "__main__":
    unittest.main()
