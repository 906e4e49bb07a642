"""keldanectl follows the daemon."""

import json
import os
import re
import signal
import subprocess
import unittest

from ctl_harness import DONE, CtlCase
from harness import PATIENCE, Keldaned


class Watching(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def watch(self, *arguments):
        process = subprocess.Popen(self.command("watch", *arguments), env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)

        def end():
            process.kill()
            process.wait(PATIENCE)
            process.stdout.close()
        self.addCleanup(end)
        return process

    def test_watch_says_a_line_a_change(self):
        process = self.watch()
        self.assertRegex(process.stdout.readline(), r"^\d\d:\d\d:\d\d Up to date$")
        self.ctl("pause", "1")
        self.assertRegex(process.stdout.readline(), r"Paused$")
        self.ctl("add", self.file("f", "x" * 3000))
        self.assertRegex(process.stdout.readline(), r"Paused \(1 file, 2\.9 KiB to go\)$")

    def test_watch_goes_on_when_the_daemon_is_killed_and_started_again(self):
        process = self.watch()
        self.assertIn("Up to date", process.stdout.readline())
        self.keldaned.kill()
        self.assertIn("The backup daemon has gone; waiting for it to come back.", process.stdout.readline())
        self.keldaned.start()
        self.assertIn("The backup daemon is back.", process.stdout.readline())
        self.ctl("pause", "1")
        self.eventually(lambda: "Paused" in process.stdout.readline(), "the next change")

    def test_watch_in_json(self):
        process = self.watch("--json")
        event = json.loads(process.stdout.readline())
        self.assertEqual(event["event"], "state")
        self.assertEqual(event["progress"]["fraction"], 1)
        self.keldaned.kill()
        self.assertEqual(json.loads(process.stdout.readline())["event"], "disconnected")
        self.keldaned.start()
        self.assertEqual(json.loads(process.stdout.readline())["event"], "connected")

    def test_watch_ends_when_nobody_reads_it(self):
        process = self.watch()
        process.stdout.readline()
        process.stdout.close()
        self.ctl("pause", "1")
        self.assertNotEqual(process.wait(PATIENCE), None)

    def test_watch_draws_a_bar_on_a_terminal(self):
        self.ctl("low-priority", "on")
        self.ctl("pause", "1")
        folder = self.folder("many")
        for i in range(100):
            self.file(f"many/{i}", "x" * 1000)
        self.ctl("add", folder)
        terminal = self.terminal("watch", "--until-done")
        terminal.wait_for(r"\[░+\] +0%  Paused  100 files, 98 KiB to go")
        self.ctl("resume")
        terminal.wait_for(r"\[█+░*\] +\d+%  \d+ files?, [\d.]+ \w+ to go  [\d.]+ \w+/s, \d+ s left")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
        self.assertRegex(terminal.text, r"Up to date\r\n\Z")
        self.assertNotRegex(terminal.text, r"go  \r")

    def test_watch_keeps_to_the_width_of_the_terminal(self):
        self.ctl("pause", "1")
        self.ctl("add", self.file("a" * 200))
        for columns in (20, 40, 77, 200):
            terminal = self.terminal("watch", columns=columns)
            terminal.wait_for(r"0%")
            line = re.sub(r"\x1b\[[0-9;]*[A-Za-z]", "", terminal.text.rsplit("\r", 1)[-1])
            self.assertLess(len(line), columns)

    def test_watch_on_a_terminal_across_the_death_of_the_daemon(self):
        terminal = self.terminal("watch")
        terminal.wait_for("Up to date")
        self.keldaned.kill()
        terminal.wait_for("The backup daemon has gone; waiting for it to come back.")
        self.keldaned.start()
        terminal.wait_for("The backup daemon is back.")
        self.ctl("pause", "1")
        terminal.wait_for("Paused")
        terminal.write("\x03")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), -signal.SIGINT)
        self.assertTrue(terminal.text.endswith("\r\n"))


class WatchingForADaemon(CtlCase):
    def test_watch_waits_for_it(self):
        process = subprocess.Popen(self.command("watch"), env=self.environment, stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.assertIn("cannot be reached", process.stdout.readline())
        self.folder(".")
        Keldaned(self)
        self.assertIn("The backup daemon is back.", process.stdout.readline())
        self.assertIn("Up to date", process.stdout.readline())


if __name__ == "__main__":
    unittest.main()
