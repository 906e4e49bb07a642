"""Clients of yesterday with the daemon of today: recorded sessions are sent again, byte by byte as they were."""

import os
import shutil
import tempfile
import unittest

from kit_test import Place  # which knows where the kit is

from keldane_conformance import reference  # noqa: E402
from keldane_conformance.frames import RESPONSE, Link, Silent  # noqa: E402
from keldane_conformance.meaning import from_json, kind  # noqa: E402
from keldane_conformance.menu import CHECKED, ENABLED  # noqa: E402

SESSIONS = ("menu", "add", "asap", "watch", "restore")
OPTIONAL = {row["key"] for table in ("node", "state") for row in reference.protocol()[table] if not row["required"]}


class Versioning(Place):
    def setUp(self):
        # A folder whose name is as long as the recorded one, so that no length within the messages changes.
        recorded = reference.recording("menu")["folder"]
        prefix, length = recorded.rsplit("-", 1)[0] + "-", len(recorded.rsplit("-", 1)[1])
        self.place = tempfile.mkdtemp(prefix=os.path.basename(prefix), dir=os.path.dirname(prefix))
        self.assertEqual(len(self.place), len(recorded), f"a random name has {length} characters")
        self.addCleanup(shutil.rmtree, self.place, ignore_errors=True)
        self.recorded = recorded
        self.socket, self.files = self.place + "/socket", self.place + "/files"
        os.makedirs(self.files + "/folder")
        for name in ("letter.txt", "folder/inner.txt"):
            with open(f"{self.files}/{name}", "w", encoding="utf-8") as stream:
                stream.write("Dear reader,\n")

    def moved(self, data):
        """Recorded bytes with the folder of this test."""
        return data.replace(self.recorded.encode(), self.place.encode())

    def replay(self, name):
        """Sends what the client sent, and compares what comes."""
        session = reference.recording(name)
        answers = 0
        with Link(self.socket + (".owner" if session["socket"] == "owner" else ""), 30) as link:
            for step in session["steps"]:
                data = bytes.fromhex("".join(step["bytes"]))
                if step["from"] == "client":
                    link.send(self.moved(data))
                    continue
                frame = link.answer()
                self.assertEqual(frame.kind, RESPONSE)
                self.compare(frame.value, from_json(step["meaning"]), name)
                answers += 1
            with self.assertRaises(Silent, msg="an answer came that the client of yesterday does not expect"):
                link.answer(0.3)
        self.assertGreater(answers, 0)

    def compare(self, today, yesterday, what):
        """Every key that was there is there, with its kind; what decided something decides the same."""
        self.assertEqual(kind(today), kind(yesterday), what)
        if isinstance(yesterday, list):
            for one, other in zip(today, yesterday):
                self.compare(one, other, what)
        if not isinstance(yesterday, dict):
            return
        for key, value in yesterday.items():
            if key in today or key not in OPTIONAL:
                self.assertIn(key, today, what)
                self.compare(today[key], value, f'"{key}" of {what}')
        for key in ("fileName", "isDirectory"):
            self.assertEqual(today.get(key), yesterday.get(key), what)
        if "simpleFlags" in yesterday:
            bits = CHECKED | ENABLED
            self.assertEqual(today["simpleFlags"] & bits, yesterday["simpleFlags"] & bits, what)

    def test_recorded_sessions_go_as_they_went(self):
        self.start()
        for name in SESSIONS:
            with self.subTest(name):
                self.replay(name)

    def test_every_recording_is_played(self):
        folder = os.path.join(reference.folder(), "recordings")
        self.assertEqual({name.removesuffix(".json") for name in os.listdir(folder)}, set(SESSIONS))

    def test_the_daemon_tells_no_key_that_the_reference_lacks(self):
        self.start()
        with Link(self.socket, 30) as link:
            link.call("addFileToBackup:", self.files)
            known = {table: {row["key"] for row in reference.protocol()[table]} for table in ("node", "state")}
            advice = "docs/protocol/protocol.json lacks these; add them and run scripts/protocol-tables"
            for path in (self.files, self.files + "/letter.txt"):
                self.assertEqual(set(link.ask("dictionaryForPath:", path)) - known["node"], set(), advice)
            self.assertEqual(set(link.ask("daemonState")) - known["state"], set(), advice)


if __name__ == "__main__":
    unittest.main()
