"""Every text that a person reads stands in every language, with the same placeholders, and is not much longer."""

import collections
import glob
import os
import re
import shutil
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE = os.environ["KELDANE_SOURCE"]
RESOURCES = os.path.join(SOURCE, "KeldaneCMM", "Resources")
PREFERENCES = os.path.join(SOURCE, "clients", "preferences")
DESKTOP_FILES = (os.path.join(PREFERENCES, "keldane-preferences.desktop"),
                 os.path.join(PREFERENCES, "keldane-notifications.desktop"), os.path.join(SOURCE, "daemon", "service", "keldane.desktop"))
METAINFO = os.path.join(PREFERENCES, "example.keldane.Preferences.metainfo.xml")
# The folders of catalogues: the window's own, and the one that everything else shares.
CATALOGUES = (os.path.join(PREFERENCES, "po"), os.path.join(SOURCE, "po"))
XML_LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"

# A submenu is as wide as its widest title and opens beside another menu. On a screen of 1,024 pixels both fit as long as
# no title is wider than the widest English one by more than this; a character takes about 8 pixels.
WIDER_TITLE = 16
# A label of the window may grow by a half; short words differ more from language to language.
LONGER_LABEL, LONGER_WORD = 1.5, 24


def read(path):
    with open(path, encoding="utf-8") as stream:
        return stream.read()


def languages():
    """The languages that the build installs, without English."""
    return re.search(r"^set\(KELDANE_LANGUAGES ([a-z ]+)\)", read(os.path.join(SOURCE, "CMakeLists.txt")), re.MULTILINE)[1].split()


def table(language):
    """The pairs of a strings table. A key that stands twice is an error."""
    pairs = re.findall(r'^"((?:[^"\\]|\\.)*)" = "((?:[^"\\]|\\.)*)";$',
                       read(os.path.join(RESOURCES, language + ".lproj", "Localizable.strings")), re.MULTILINE)
    found = dict(pairs)
    assert len(found) == len(pairs), language
    return found


def placeholders(text):
    return collections.Counter(re.findall(r"%(?:\d+\$)?[-+ #0]*\d*(?:\.\d+)?[a-zA-Z@]", text.replace("%%", "")))


def unquoted(lines):
    """The text of a value in a po file, which may go on in further lines."""
    return "".join(re.findall(r'"(.*)"', lines)).replace('\\"', '"').replace("\\n", "\n")


def messages(catalogue, language):
    """Yields each text of a catalogue with its translations; a text with a number has several."""
    for entry in read(os.path.join(catalogue, language + ".po")).split("\n\n")[1:]:
        parts = re.findall(r'^(msgid|msgid_plural|msgstr(?:\[\d\])?) (".*"(?:\n".*")*)$', entry, re.MULTILINE)
        texts = [unquoted(value) for name, value in parts if name.startswith("msgid")]
        if texts:
            yield texts, [unquoted(value) for name, value in parts if name.startswith("msgstr")]


class Menu(unittest.TestCase):
    def test_every_language_has_every_title_and_no_other(self):
        english = table("en")
        self.assertGreater(len(english), 5)
        self.assertEqual({os.path.basename(path) for path in glob.glob(os.path.join(RESOURCES, "*.lproj"))},
                         {language + ".lproj" for language in ["en", *languages()]})
        for language in languages():
            found = table(language)
            self.assertEqual(found.keys(), english.keys(), language)
            for key, title in found.items():
                self.assertNotEqual(title.strip(), "", (language, key))
                self.assertEqual(placeholders(title), placeholders(english[key]), (language, key))

    def test_no_title_makes_the_menu_much_wider(self):
        most = max(map(len, table("en").values())) + WIDER_TITLE
        for language in languages():
            for title in table(language).values():
                self.assertLessEqual(len(title), most, (language, title))


class Catalogues(unittest.TestCase):
    """Another test checks that a catalogue has exactly the texts of the sources."""

    @staticmethod
    def everything():
        for catalogue in CATALOGUES:
            for language in languages():
                for texts, translations in messages(catalogue, language):
                    yield language, texts, translations

    def test_every_language_has_its_texts(self):
        for catalogue in CATALOGUES:
            self.assertEqual({os.path.basename(path) for path in glob.glob(os.path.join(catalogue, "*.po"))},
                             {language + ".po" for language in languages()})
            everything = {language: {tuple(texts) for texts, _ in messages(catalogue, language)} for language in languages()}
            for language, found in everything.items():
                self.assertEqual(everything["de"] - found, set(), language)
            self.assertGreater(len(everything["de"]), 20)

    @unittest.skipUnless(shutil.which("msgfmt"), "gettext is not installed")
    def test_the_translations_are_right(self):
        for catalogue in CATALOGUES:
            for language in languages():
                path = os.path.join(catalogue, language + ".po")
                result = subprocess.run(["msgfmt", "--check", "--statistics", "-o", os.devnull, path], capture_output=True,
                                        text=True, check=False, env={**os.environ, "LC_ALL": "C"})
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertRegex(result.stderr, r"(?m)^\d+ translated messages\.$")  # none is missing, none is fuzzy

    def test_placeholders_and_keys_of_access_are_the_same(self):
        for language, texts, translations in self.everything():
            for translation in translations:
                self.assertEqual(placeholders(translation), placeholders(texts[0]), (language, texts))
                self.assertEqual("_" in translation, "_" in texts[0], (language, texts))

    def test_what_is_typed_is_the_same(self):
        # Options and commands are not translated in any text.
        for language, texts, translations in self.everything():
            for typed in re.findall(r"--[a-z-]+|keldanectl (?:service \w+|log\b|versions\b)", texts[0]):
                for translation in translations:
                    self.assertIn(typed, translation, language)

    def test_no_label_is_much_longer(self):
        for language, texts, translations in self.everything():
            most = max(len(texts[0]) * LONGER_LABEL, len(texts[0]) + LONGER_WORD)
            for translation in translations:
                self.assertLessEqual(len(translation), most, (language, translation))


class Daemon(unittest.TestCase):
    LITERALS = re.compile(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+')

    def literals(self, text):
        return ["".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', each)) for each in self.LITERALS.findall(text)]

    def test_the_texts_that_clients_know_are_those_of_the_daemon(self):
        sources = glob.glob(os.path.join(SOURCE, "daemon", "**", "*.cpp"), recursive=True)
        sources.append(os.path.join(SOURCE, "clients", "core", "FolderTree.cpp"))
        said = {literal for path in sources for literal in self.literals(read(path))}
        table = read(os.path.join(SOURCE, "Common", "DaemonText.cpp"))
        # For a text with a number, the daemon sends the plural form.
        texts = ["".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', each))
                 for each in re.findall(r'((?:"(?:[^"\\\n]|\\.)*"\s*)+)\)', table)]
        self.assertGreater(len(texts), 100)

        def is_said(part):
            """Whether the part is within a literal, or crosses from the end of one to the beginning of another."""
            return any(part in literal for literal in said) or any(
                any(literal.endswith(part[:cut]) for literal in said) and
                any(literal.startswith(part[cut:]) for literal in said) for cut in range(1, len(part)))
        for text in texts:
            for part in text.split("%s"):
                self.assertTrue(is_said(part.strip(' .:;,"\\')), text)


class Descriptions(unittest.TestCase):
    def test_desktop_files_speak_every_language(self):
        for path in DESKTOP_FILES:
            text = read(path)
            for key in re.findall(r"^(Name|Comment|Keywords|GenericName)=", text, re.MULTILINE):
                found = re.findall(rf"^{key}\[(\w+)\]=\S", text, re.MULTILINE)
                self.assertEqual(sorted(found), sorted(languages()), (path, key))

    def test_software_centres_show_every_language(self):
        expected = [None, *languages()]
        root = ElementTree.parse(METAINFO).getroot()
        self.assertEqual([each.get(XML_LANGUAGE) for each in root.findall("summary")], expected)
        for caption in root.iter("screenshot"):
            self.assertEqual([each.get(XML_LANGUAGE) for each in caption.findall("caption")], expected)
        paragraphs = [each.get(XML_LANGUAGE) for each in root.find("description")]
        self.assertEqual(paragraphs, expected * paragraphs.count(None))


if __name__ == "__main__":
    unittest.main()
