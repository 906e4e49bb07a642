"""Daemons that misbehave and unusual selections: the host survives, and the next cycle works."""

import os
import threading
import unittest

from harness import NO_COMMANDS, Case
from recording_daemon import ENABLED


class Faults(Case):
    def show_with(self, fault, answers=ENABLED):
        daemon = self.daemon(answers, fault=fault)
        titles = self.titles(self.file("a.txt"))
        daemon.stop()
        os.unlink(self.socket)
        return titles

    def check_next_cycle(self):
        self.assertEqual(self.show_with(None)[0], "Status: Not selected for backup")

    def test_slow_daemons_are_waited_for(self):
        for fault in ("late", "byte by byte"):
            self.assertEqual(self.show_with(fault)[0], "Status: Not selected for backup", fault)

    def test_noise_of_a_whole_step_is_passed_over(self):
        self.assertEqual(self.show_with("noise")[0], "Status: Not selected for backup")

    def test_an_answer_in_another_format_is_understood(self):
        self.assertEqual(self.show_with("xml")[0], "Status: Not selected for backup")

    def test_garbage_reads_as_nothing(self):
        self.assertEqual(self.show_with("garbage"), NO_COMMANDS)
        self.check_next_cycle()

    def test_a_daemon_that_closes_at_once(self):
        self.assertEqual(self.show_with("closes at once"), NO_COMMANDS)
        self.check_next_cycle()

    def test_a_daemon_that_dies_with_a_question(self):
        self.assertEqual(self.show_with("dies"), NO_COMMANDS)
        self.check_next_cycle()

    def test_a_length_that_never_arrives(self):
        self.assertEqual(self.show_with("huge length"), NO_COMMANDS)
        self.check_next_cycle()

    def test_answers_that_come_twice_shift_the_later_ones(self):
        self.assertIsNotNone(self.show_with("twice"))
        self.check_next_cycle()

    def test_wrong_kinds(self):
        for value in ("text", 5, True, [1, 2], b"data", {}, {"simpleFlags": "2", "state": [1], "isDirectory": {}},
                      {"simpleFlags": ENABLED, "children": [5, {"children": "x"}], "fileName": 7}):
            titles = self.show_with(None, {"dictionaryForPath:withDirSizes:": value, "getFileTypeToggle:": "text"})
            self.assertTrue(titles is None or titles[-1] == "Open Keldane Preferences…", value)
        self.check_next_cycle()

    def test_a_daemon_that_never_answers_and_is_killed(self):
        daemon = self.daemon(ENABLED, fault="never")
        killer = threading.Thread(target=lambda: (daemon.wait_for(1), daemon.stop()))
        killer.start()
        self.assertEqual(self.titles(self.file("a")), NO_COMMANDS)
        killer.join()

    def test_a_daemon_that_goes_and_comes_between_two_cycles_of_one_instance(self):
        path = self.file("a")
        first = self.daemon(ENABLED, fault="dies")
        examine, cleanup = {"do": "examine", "paths": [path]}, {"do": "cleanup"}
        menus = [answer["menu"] for answer in self.script(examine, cleanup, examine, cleanup, {"do": "run", "seconds": 0.2})
                 if "menu" in answer]
        self.assertEqual([len(menu["items"]) for menu in menus], [3, 3])
        first.stop()

    def test_thousands_are_one_menu(self):
        daemon = self.daemon(ENABLED)
        paths = [self.place + f"/files/n{i}" for i in range(2000)]
        self.file("x")
        answer = self.script({"do": "examine", "paths": paths}, {"do": "cleanup"})[0]
        self.assertEqual(answer["menu"]["items"][0]["title"], "Status: <multiple files selected>")
        self.assertEqual(len(daemon.frames), 3 * len(paths))

    def test_strange_paths(self):
        self.daemon(ENABLED)
        long = self.place + "/" + "/".join(["d" * 200] * 19) + "/" + "e" * 100
        for path in (self.place + "/none", "/", long[:4095], "/" + "x" * 4096, "/proc/self/mem", "/dev/null", "/root/../etc"):
            self.assertIsNotNone(self.show(path), path)

    def test_a_file_that_cannot_be_read(self):
        self.daemon(ENABLED)
        path = self.file("secret")
        os.chmod(path, 0)
        self.assertEqual(self.titles(path)[2], "Back This Up")

    def test_preferences_of_every_sort(self):
        """The menu needs no preferences, and none of these files may harm it."""
        self.daemon(ENABLED)
        folder = self.environment["XDG_CONFIG_HOME"]
        os.makedirs(folder)
        file = os.path.join(folder, "com.keldane.preferences.plist")
        for content in (b"", b"bplist00", b"<plist><dict>", b"<plist><string>x</string></plist>", b"\x00" * 1000):
            with open(file, "wb") as stream:
                stream.write(content)
            self.assertIsNotNone(self.show(self.file("a")))
        os.unlink(file)
        os.mkdir(file)
        self.assertIsNotNone(self.show(self.file("a")))


if __name__ == "__main__":
    unittest.main()
