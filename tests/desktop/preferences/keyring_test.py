"""The key of the backup in the desktop's key ring, as the window puts it there."""

import os
import re
import subprocess
import unittest

from desktop import act, eventually
from pages_test import PagesCase

NAME = "org.freedesktop.secrets"


class KeyRing(PagesCase):
    def setUp(self):
        super().setUp()
        self.back_up(self.letter)
        self.key = os.path.join(self.place, "exported")
        self.ctl("key", "export", self.key)
        self.id = re.search(r"(?m)^Repository +(\S+)$", self.ctl("repository"))[1]

    def start_key_ring(self):
        """A real one in a folder of the test's own, which is open."""
        environment = {**os.environ, "XDG_DATA_HOME": self.folder("keyring")}
        service = subprocess.Popen(["gnome-keyring-daemon", "--foreground", "--replace", "--unlock", "--components=secrets"],
                                   stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   env=environment)
        self.addCleanup(service.wait)
        self.addCleanup(service.terminate)
        service.stdin.write(b"a password")
        service.stdin.close()
        eventually(lambda: self.owner() == service.pid, "the key ring on the session's bus")

    @staticmethod
    def owner():
        """The process that is the key ring now; nothing when there is none."""
        answer = subprocess.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                                 "/org/freedesktop/DBus", "--method", "org.freedesktop.DBus.GetConnectionUnixProcessID",
                                 NAME], check=False, capture_output=True, text=True, timeout=60).stdout
        found = re.search(r"uint32 (\d+)", answer)
        return int(found[1]) if found else None

    def kept_key(self):
        return subprocess.run(["secret-tool", "lookup", "repository", self.id], check=False, capture_output=True, text=True,
                              timeout=60).stdout

    def copy_to_key_ring(self):
        self.open("--page", "storage")
        act(self.button("Copy to the Key Ring"))

    def test_it_takes_the_key_and_gives_it_back(self):
        self.start_key_ring()
        self.assertEqual(self.kept_key(), "")
        self.copy_to_key_ring()
        self.shows("The key is in the key ring. That lies on this computer and goes with it: keep another copy elsewhere.")
        found = os.path.join(self.place, "found")
        with open(found, "w", encoding="utf-8") as stream:
            stream.write(self.kept_key() + "\n")
        self.assertEqual(self.content(found), self.content(self.key))
        self.ctl("key", "verify", found)

    def test_another_key_of_the_repository_takes_its_place(self):
        self.start_key_ring()
        self.copy_to_key_ring()
        self.shows(re.compile(r"\AThe key is in the key ring\."))
        before = self.kept_key()
        act(self.button("Change the Key…"))
        act(self.button("Make a New Key"))
        self.shows(re.compile(r"\AA new key opens the backup now\."))
        self.assertEqual(self.kept_key(), before, "nobody asked for the new one to be copied")
        act(self.button("Copy to the Key Ring"))
        eventually(lambda: self.kept_key() != before, "the new key")


if __name__ == "__main__":
    unittest.main()
