"""The host's contract, and the plug-in's behaviour in all kinds of hosts."""

import os
import shutil
import subprocess
import time
import unittest

from harness import MENU, NO_COMMANDS, PATIENCE, Case
from recording_daemon import ENABLED

TYPE = "2F6522E9-3E66-11D5-80A7-003065B300BC"
INTERFACE = "32997B62-3E66-11D5-BEAB-003065B300BC"
UNKNOWN = "00000000-0000-0000-C000-000000000046"
FACTORY = "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36"
SWITCH = "/tmp/keldane_logging"


class Plugin(Case):
    def test_counts_its_references(self):
        answers = self.script({"do": "instances"}, {"do": "addref"}, {"do": "addref"}, {"do": "addref"},
                              {"do": "release"}, {"do": "release"}, {"do": "release"}, {"do": "release"},
                              {"do": "instances"})
        self.assertEqual([answer["count"] for answer in answers], [1, 2, 3, 4, 3, 2, 1, 0, 1],
                         "a new instance is made for the step after the last release")

    def test_answers_for_its_interfaces_only(self):
        answers = self.script({"do": "query", "interface": INTERFACE}, {"do": "query", "interface": UNKNOWN.lower()},
                              {"do": "query", "interface": FACTORY}, {"do": "addref"})
        self.assertEqual(answers, [{"result": 0, "pointer": True}, {"result": 0, "pointer": True},
                                   {"result": 2147483652, "pointer": False}, {"count": 4}])

    def test_makes_no_instance_of_another_type(self):
        answers = self.script({"do": "create", "type": FACTORY}, {"do": "create", "type": TYPE}, {"do": "instances"})
        self.assertEqual(answers, [{"ok": False}, {"ok": True}, {"count": 1}])

    def test_shows_itself_to_the_finder_only(self):
        self.daemon(ENABLED)
        path = self.file("a")
        examine = {"do": "examine", "paths": [path]}
        answers = self.script({"do": "host", "signature": "MACS", "type": "APPL"}, examine,
                              {"do": "host", "signature": "ttxt", "type": "FNDR"}, examine,
                              {"do": "host", "signature": "MACS", "type": "FNDR", "error": -600}, examine,
                              {"do": "host", "error": 0}, {"do": "application", "available": False}, examine,
                              {"do": "application", "available": True}, {"do": "gestalt", "error": -5550}, examine,
                              {"do": "gestalt", "error": 0}, examine)
        examined = [answer for answer in answers if "menu" in answer]
        self.assertEqual(examined[:4], [{"status": 0, "menu": None}] * 4)
        self.assertEqual(examined[4], {"status": -5550, "menu": None})
        self.assertIsNotNone(examined[5]["menu"])

    def test_shows_nothing_for_nothing(self):
        self.daemon(ENABLED)
        answers = self.script({"do": "examine", "descriptor": "null"}, {"do": "examine", "paths": []},
                              {"do": "examine", "paths": [self.file("a")], "descriptor": "text"})
        self.assertEqual(answers, [{"status": 0, "menu": None}] * 3)

    def test_rereads_the_attributes_with_each_examination(self):
        self.daemon(ENABLED)
        examine = {"do": "examine", "paths": [self.file("a")]}
        answers = self.script({"do": "gestalt", "attributes": 0}, examine, {"do": "gestalt", "attributes": 4}, examine)
        self.assertEqual([answers[1]["menu"]["attributes"], answers[3]["menu"]["attributes"]], [None, 4])

    def test_a_choice_needs_an_examination_before_it(self):
        self.edit_info(**{"Prefpane Path": "/prefs"})
        daemon = self.daemon(ENABLED)
        path = self.file("a")
        select, preferences = ({"do": "select", "command": command, "paths": [path]} for command in ("r2d<", "r2dB"))
        answers = self.script(select, preferences, {"do": "examine", "paths": [path]}, {"do": "cleanup"}, {"do": "cleanup"},
                              select, preferences, {"do": "opened"})
        self.assertEqual(answers[-1], {"files": []})
        self.assertEqual([answers[i] for i in (0, 1, 5, 6)], [{"status": 0}] * 4)
        self.assertNotIn("addFileToBackup:", daemon.selectors())

    def test_opens_the_preferences(self):
        self.daemon(ENABLED)
        examine, select = ({"do": what, "command": "preferences", "paths": [self.file("a")]} for what in ("examine", "select"))
        self.edit_info(**{"Prefpane Path": "/somewhere/prefs.desktop"})
        self.assertEqual(self.script(examine, select, {"do": "opened"}, {"do": "opened"})[2:],
                         [{"files": ["/somewhere/prefs.desktop"]}, {"files": []}])
        self.edit_info(**{"Prefpane Path": None})
        self.assertEqual(self.script(examine, select, {"do": "opened"})[2], {"files": [None]})

    def test_a_choice_takes_its_paths_afresh(self):
        daemon = self.daemon(ENABLED)
        a, b = self.file("a"), self.file("b")
        self.script({"do": "examine", "paths": [a]}, {"do": "select", "command": "backup", "paths": [b, a]}, {"do": "cleanup"})
        self.eventually(lambda: daemon.selectors().count("addFileToBackup:") == 2)
        self.assertEqual([frame.arguments for frame in daemon.frames if frame.selector == "addFileToBackup:"], [[b], [a]])

    def test_each_cycle_connects_anew(self):
        daemon = self.daemon(ENABLED)
        cycle = [{"do": "examine", "paths": [self.file("a")]}, {"do": "cleanup"}]
        self.script(*cycle * 20, {"do": "run", "seconds": 0.1})
        self.assertEqual(daemon.connections, 20)

    def test_an_examination_again_in_one_cycle_uses_the_connection_that_is_there(self):
        daemon = self.daemon(ENABLED)
        self.script(*[{"do": "examine", "paths": [self.file("a")]}] * 3, {"do": "cleanup"})
        self.assertEqual(daemon.connections, 1)

    def test_logs_once_the_switch_file_is_there(self):
        if os.path.exists(SWITCH):
            self.fail(f"{SWITCH} is there: somebody is logging on this machine")
        self.daemon(ENABLED)
        path = self.file("a")
        self.assertNotIn(b"KeldanePlugin_ExamineContext:", self.run_menu("show", path).stderr)
        with open(SWITCH, "x"):
            pass
        try:
            lines = self.run_menu("show", path).stderr.decode()
        finally:
            os.unlink(SWITCH)
        for line in ("KeldanePlugin_ExamineContext:", f'"{path}"' if " " in path else path, "BackupState:onBegin - opening connection",
                     "ConnectionController:start()", "ConnectionController:start - trying to connect immediately",
                     "ConnectionController: connected", "KeldaneCMM connected", "KeldanePlugin_PostMenuCleanup:",
                     "KeldanePlugin_Release:", "KeldanePlugin_Dealloc:"):
            self.assertIn(line, lines)
        self.assertNotIn("KeldanePluginFactory:", lines, "written before the first examination, so lost")


class Contract(Case):
    def run_alone(self, *arguments):
        return subprocess.run([MENU, *arguments], env=self.environment, capture_output=True, timeout=PATIENCE, check=False)

    def test_usage(self):
        for arguments in ([], ["show"], ["choose", "backup"], ["choose", "nonsense!", "/x"], ["--nonsense"],
                          ["--descriptor", "wrong", "show", "/x"], ["--host", "MACS", "show", "/x"], ["--deadline", "-1", "show", "/x"],
                          ["script", "/nonexistent/steps"]):
            result = self.run_alone(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)

    def test_help_and_version(self):
        self.assertIn(b"script", self.run_alone("--help").stdout)
        self.assertEqual(self.run_alone("--help").returncode, 0)
        self.assertTrue(self.run_alone("--version").stdout.startswith(b"keldane-menu "))

    def test_a_bundle_that_cannot_be_loaded(self):
        for bundle in (self.place + "/none", self.place, self.file("f")):
            result = self.run_alone("--bundle", bundle, "show", "/x")
            self.assertEqual(result.returncode, 3, bundle)
            self.assertIn(bundle.encode(), result.stderr)
        os.unlink(self.bundle + "/Contents/Linux/KeldaneCMM.so")
        self.assertEqual(self.run_menu("show", "/x").returncode, 3)

    def test_finds_the_installed_bundle(self):
        self.daemon(ENABLED)
        path = self.file("a")
        result = self.run_alone("--json", "show", path)
        self.assertEqual(result.returncode, 3)
        self.assertIn(os.path.join(self.place, "data/keldane/plugins").encode(), result.stderr)
        shutil.copytree(self.bundle, os.path.join(self.place, "data/keldane/plugins/Keldane.plugin"))
        self.assertEqual(self.run_alone("--json", "show", path).returncode, 0)

    def test_broken_information_dictionaries(self):
        with open(self.info_file, "rb") as stream:
            whole = stream.read()
        for content in (None, b"", whole[:len(whole) // 2], b"bplist00", b"<plist><array/></plist>", b"just text"):
            if content is None:
                os.unlink(self.info_file)
            else:
                with open(self.info_file, "wb") as stream:
                    stream.write(content)
            result = self.run_menu("show", "/x")
            self.assertEqual(result.returncode, 3, content)
            self.assertIn(self.bundle.encode(), result.stderr)

    def test_an_error_status(self):
        result = self.script({"do": "gestalt", "error": -50}, {"do": "examine", "paths": [self.place]})
        self.assertEqual(result[1]["status"], -50)

    def test_the_deadline(self):
        self.daemon(ENABLED, fault="never")
        start = time.monotonic()
        result = self.run_menu("--deadline", "0.5", "show", self.file("a"))
        self.assertEqual(result.returncode, 4)
        self.assertIn(b"did not answer within 0.5 seconds", result.stderr)
        self.assertLess(time.monotonic() - start, PATIENCE / 2)

    def test_steps_that_are_not_understood_are_answered_and_passed_over(self):
        answers = self.script("no json", {"do": "unknown"}, {"no": "do"}, {"do": 5}, "[]", {"do": "query", "interface": "x"},
                              {"do": "examine", "paths": 5}, {"do": "examine", "descriptor": "x"}, {"do": "host", "type": "toolong"},
                              {"do": "sleep"}, "", "# a comment", {"do": "load"}, status=2)
        self.assertEqual([list(answer) for answer in answers], [["error"]] * 10 + [["ok"]])
        self.assertEqual(answers[-1], {"ok": True})

    def test_a_script_whose_bundle_cannot_be_loaded(self):
        self.bundle = self.place + "/none"
        answers = self.script({"do": "load"}, {"do": "instances"}, status=2)
        self.assertEqual(answers[0]["ok"], False)
        self.assertIn(self.bundle, answers[0]["error"])
        self.assertIn("error", answers[1])

    def test_a_script_in_a_file(self):
        path = self.file("steps", '{"do":"sleep","seconds":0.01}\n{"do":"run","seconds":0.01}\n')
        result = self.run_menu("script", path)
        self.assertEqual((result.returncode, result.stdout), (0, b"{}\n{}\n"))


class Paths(Case):
    def test_a_daemon_path_that_names_nothing(self):
        self.daemon(ENABLED)
        for value in (None, "", 5, ["x"], self.place + "/none"):
            self.edit_info(DaemonPath=value)
            self.assertIsNone(self.show(self.file("a")), value)

    def test_a_daemon_path_where_nobody_listens_leaves_the_fixed_items(self):
        for value in (self.place, self.file("a"), "/dev/null"):
            self.edit_info(DaemonPath=value)
            self.assertEqual(self.titles(self.file("a")), NO_COMMANDS, value)
            self.assertEqual(len(self.titles(self.file("a"), self.file("b"))), 4)

    def test_a_daemon_path_beyond_an_address_is_cut_where_it_connects_but_must_exist_whole(self):
        folder = self.folder("p")
        self.socket = folder + "/" + "s" * (103 - len(folder) - 1)
        self.assertEqual(len(self.socket), 103)
        self.daemon(ENABLED)
        self.edit_info(DaemonPath=self.socket + "more")
        self.assertIsNone(self.show(self.file("a")), "nothing is at the whole path")
        with open(self.socket + "more", "w"):
            pass
        self.assertEqual(self.titles(self.file("a"))[0], "Status: Not selected for backup")


if __name__ == "__main__":
    unittest.main()
