"""keldanectl in the languages of its users: its own texts, the daemon's texts, and texts that stay untranslated."""

import os
import re
import tempfile
import unittest

import locales
from ctl_harness import DONE, USAGE, CtlCase
from harness import Keldaned
from owner_harness import KEY, REPOSITORY, OwnerCase


@unittest.skipUnless(locales.can_be_made(), "the sources of the locales are not installed")
class Language(unittest.TestCase):
    """A test with texts in another language."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.locales = folder.name

    def speak(self, language):
        self.environment.update(locales.made(self.locales, language))


class WithTheDaemon(Language, CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def test_states_are_translated_where_they_are_shown(self):
        path = self.file("letter")
        self.backed_up(path)
        self.speak("de")
        self.assertRegex(self.ctl("ls", path), r" Gesichert +\d")
        self.assertRegex(self.ctl("status"), r"(?m)^Status +Auf dem neuesten Stand \(Zustand \d+\)$")
        self.assertRegex(self.ctl("status"), r"(?m)^Gesichert +1 Datei, 7 B$")
        self.assertRegex(self.ctl("why", path), r"entscheidet +Eine eigene Regel nimmt es auf\.")
        self.assertEqual(self.ctl("remove", path), f"{path}: Nicht zur Sicherung gewählt\n")
        self.assertIn(": Dort ist nichts.", self.refusal("add", path + "er"))

    def test_what_programs_read_is_english(self):
        path = self.file("letter")
        self.backed_up(path)
        self.speak("de")
        self.assertEqual(self.json("ls", path)[0]["state"], "Backed up")
        self.assertEqual(self.json("status")["state"]["statusString"], "Up to date")
        self.assertIn("# HELP keldane_pending_files Files that wait to be stored.", self.run_ctl("metrics").stdout)
        self.assertRegex(self.run_ctl("metrics").stdout, r"(?m)^keldane_up [01]$")

    def test_scripts_that_ask_for_it_see_english(self):
        self.environment.update(locales.made(self.locales, "de"), LC_ALL="C", LANG="de_DE.UTF-8", LANGUAGE="de")
        self.assertRegex(self.ctl("status"), r"(?m)^Status +Up to date ")

    def test_numbers_of_things_have_their_forms(self):
        self.speak("pl")
        self.ctl("pause", "5")
        for count, text in ((1, "1 plik"), (2, "2 pliki"), (5, "5 plików")):
            while len(os.listdir(self.files)) < count:
                self.ctl("add", self.file(f"letter {len(os.listdir(self.files))}"))
            self.assertRegex(self.ctl("status"), rf"(?m)^Czeka +{text}, ")

    def test_questions_take_the_language_and_english(self):
        self.speak("de")
        for word in ("j", "y"):
            terminal = self.terminal("stop")
            terminal.wait_for(r"Ihn beenden\? \[j/N\] ")
            terminal.write(word + "\n")
            self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
            self.assertIn("Der Dienst ist beendet.", terminal.text)
            self.keldaned.process.wait()
            self.keldaned.start()


class WithoutADaemon(Language, CtlCase):
    LANGUAGES = {"de": ("Aufruf:", "Optionen:", "Befehle:"), "es": ("Uso:", "Opciones:", "Órdenes:"),
                 "fr": ("Usage:", "Options:", "Commandes:"), "it": ("Uso:", "Opzioni:", "Comandi:"),
                 "nl": ("Gebruik:", "Opties:", "Opdrachten:"), "pl": ("Użycie:", "Opcje:", "Polecenia:"),
                 "pt": ("Utilização:", "Opções:", "Comandos:")}

    def test_help_has_a_language_s_headings_and_no_english(self):
        english = {line for line in self.ctl("--help").splitlines() if re.match(r"  \w", line)}
        for language, headings in self.LANGUAGES.items():
            self.speak(language)
            text = self.ctl("--help")
            for heading in headings:
                self.assertRegex(text, rf"(?m)^{heading}", language)
            self.assertEqual(english & set(text.splitlines()), set(), language)

    def test_the_parser_s_complaints(self):
        self.speak("de")
        for arguments, sentence in (([], "Ein Befehl fehlt"), (["ls", "--frob"], "Das folgende Argument wurde nicht erwartet: --frob"),
                                    (["add"], "PATH fehlt"), (["pause", "soon"], "soon ist keine Zahl von 1 bis 525600"),
                                    (["automatic", "maybe"], "maybe ist keines von {on,off}"),
                                    (["check", "--data", "--drill"], "Höchstens eine Option")):
            result = self.run_ctl(*arguments)
            self.assertEqual(result.returncode, USAGE)
            self.assertIn(sentence, result.stderr)
            self.assertTrue(result.stderr.endswith(" (mehr sagt keldanectl --help)\n"))

    def test_a_locale_that_is_not_there_is_no_hindrance(self):
        self.environment.update(LC_ALL="de_DE.UTF-8", LOCPATH="/nonexistent")
        self.assertRegex(self.run_ctl("status").stderr, r"^keldanectl: (Der Sicherungsdienst|The backup daemon) ")

    def test_completions_are_made_in_english(self):
        self.speak("de")
        build = os.path.dirname(os.path.dirname(self.program))
        with open(os.path.join(build, "clients", "ctl", "completions", "keldanectl.fish"), encoding="utf-8") as stream:
            self.assertIn("-d 'List a folder as the daemon sees it'", stream.read())


class Repository(Language, OwnerCase):
    def test_what_the_daemon_says_is_translated_with_what_stands_in_it(self):
        self.speak("de")
        self.answer(**{"repository": {**REPOSITORY, "health": "unreachable", "snapshots": 1, "files": 1234,
                                      "detail": "The repository cannot be reached: Connection refused. "
                                                "Check the network and the server."}})
        text = self.ctl("repository")
        self.assertRegex(text, r"Das Repository ist nicht erreichbar: .+\. Prüfen Sie das Netz und den Server\.")
        self.assertRegex(text, r"(?m)^Enthält +1\.234 Dateien in 1 Stand$")
        self.answer(check={"error": "The administrator of this computer has fixed \"New\"."})
        self.assertEqual(self.refusal("check"), "keldanectl: Der Verwalter dieses Rechners hat „New“ festgelegt.\n")

    def test_names_are_not_translated(self):
        self.speak("fr")
        self.first.answers["dictionaryForPath:"] = {
            "state": "Backed up", "reasons": [{"text": 'The list of what is ignored leaves out New, by its line "Paused".'}]}
        self.assertIn("laisse New de côté, par sa ligne « Paused ».", self.ctl("why", "/a"))

    def test_a_sheet_of_one_language_is_read_in_another(self):
        self.answer(verifyKey={"matches": True})
        for language in ("de", "pl"):
            self.speak(language)
            sheet = os.path.join(self.folder("."), language + ".txt")
            self.ctl("key", "sheet", sheet)
        self.speak("it")
        for language in ("de", "pl"):
            self.ctl("key", "verify", os.path.join(self.folder("."), language + ".txt"))
        self.assertEqual([request["key"] for request in self.asked("verifyKey")], [KEY, KEY])


if __name__ == "__main__":
    unittest.main()
