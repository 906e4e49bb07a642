"""The examples, judged by the kit, and tried with each other."""

import os
import subprocess
import sys
import unittest

from daemon_client import listens
from kit_test import BUNDLE, MENU, SOURCE, Place, kit

DAEMON, CLIENT = (os.path.join(SOURCE, "examples", name) for name in ("minimum_daemon.py", "file_status.py"))


class Examples(Place):
    def start_example(self):
        process = subprocess.Popen([sys.executable, "-B", DAEMON, self.socket])
        self.addCleanup(process.wait, 60)
        self.addCleanup(process.terminate)
        while not listens(self.socket):
            self.assertIsNone(process.poll())

    def test_the_daemon_shows_menus(self):
        self.start_example()
        kit("daemon", self.socket, "--profile", "menu", "--destructive", "--scratch", self.files)

    def test_the_plug_in_shows_a_menu_with_it(self):
        self.start_example()
        path = os.path.join(self.files, "letter.txt")
        with open(path, "w", encoding="utf-8"):
            pass
        bundle = os.path.join(self.place, "Keldane.plugin")
        subprocess.run(["cp", "-r", BUNDLE, bundle], check=True)
        with open(bundle + "/Contents/Info.plist", encoding="utf-8") as stream:
            text = stream.read()
        before, after = text.split("<key>DaemonPath</key>")
        with open(bundle + "/Contents/Info.plist", "w", encoding="utf-8") as stream:
            stream.write(before + "<key>DaemonPath</key><string>" + self.socket + after[after.index("</string>"):])
        menu = [MENU, "--bundle", bundle]
        environment = {**os.environ, "HOME": self.place}
        subprocess.run([*menu, "choose", "backup", path], check=True, env=environment, stdout=subprocess.DEVNULL)
        output = subprocess.run([*menu, "show", path], check=True, env=environment, capture_output=True, text=True).stdout
        self.assertIn("Status: Waiting to be backed up", output)
        self.assertIn("Don't Back This Up", output)

    def test_the_client_stands_everything(self):
        kit("client", "--", sys.executable, "-B", CLIENT, "{socket}", "{file}")

    def test_the_client_prints_what_the_daemon_says(self):
        self.start_example()
        client = [sys.executable, "-B", CLIENT, self.socket]
        result = subprocess.run([*client, self.files], check=True, capture_output=True, text=True)
        self.assertEqual(result.stdout, f"{self.files}: Not selected for backup\n  in the backup: no\n  last backup:   none\n")
        for words, status in (([*client, self.files + "/none"], 1), (client, 2), ([*client[:-1], "/nowhere", "/etc"], 3)):
            self.assertEqual(subprocess.run(words, check=False, capture_output=True).returncode, status)


if __name__ == "__main__":
    unittest.main()
