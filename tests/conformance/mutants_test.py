"""The kit passes what is right and finds each fault of what is wrong: of a daemon, and of a client."""

import contextlib
import io
import json
import os
import sys
import tempfile
import unittest

from faulty_client import FAULTS as CLIENT_FAULTS
from scripted_daemon import FAULTS, Server

from keldane_conformance.command import main


CLIENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "faulty_client.py")


def kit(*words: str) -> dict:
    """The kit's answer in JSON."""
    output = io.StringIO()
    with contextlib.redirect_stdout(output):
        main([*words])
    return json.loads(output.getvalue())


def judge(server_path: str, scratch: str, *options: str) -> dict:
    """What the kit says of a daemon."""
    return kit("daemon", server_path, "--json", "--destructive", "--scratch", scratch, *options)


class Clients(unittest.TestCase):
    """That the client without a fault passes is tested with the examples."""

    def test_each_fault_is_found(self) -> None:
        for fault, check in CLIENT_FAULTS.items():
            with self.subTest(fault):
                answer = kit("client", "--json", "--only", check, "--timeout", "3", "--", sys.executable, "-B", CLIENT, fault,
                             "{socket}", "{file}")
                self.assertEqual([row["status"] for row in answer["checks"]], ["failed"], answer)


class Daemons(unittest.TestCase):
    def setUp(self) -> None:
        self.place = self.enterContext(tempfile.TemporaryDirectory())
        self.scratch = os.path.join(self.place, "scratch")
        os.mkdir(self.scratch)

    def daemon(self, name: str, fault: str | None = None) -> str:
        """A scripted daemon's socket."""
        server = Server(os.path.join(self.place, name), fault)
        self.addCleanup(server.close)
        return os.path.join(self.place, name)

    def test_a_right_daemon_passes(self) -> None:
        answer = judge(self.daemon("right"), self.scratch)
        # It does not know users, has no second socket, and cannot be started again.
        self.assertEqual([check["name"] for check in answer["checks"] if check["status"] == "failed"
                          and not check["name"].startswith("others/")], [])
        skipped = {check["name"] for check in answer["checks"] if check["status"] == "skipped"}
        self.assertEqual({name.split("/")[0] for name in skipped} - {"others", "owner", "survival"}, set())

    def test_each_fault_is_found(self) -> None:
        self.assertGreaterEqual(len(FAULTS), 20)
        for number, (fault, check) in enumerate(FAULTS.items()):
            with self.subTest(fault):
                path = self.daemon(str(number), fault)
                answer = judge(path, self.scratch, "--only", check, "--timeout", "2")
                self.assertEqual([row["status"] for row in answer["checks"]], ["failed"], answer)
                row = answer["checks"][0]
                self.assertTrue(row["detail"] and row["why"] and row["page"])


if __name__ == "__main__":
    unittest.main()
