"""The kit passes a right daemon and finds each fault of a wrong one."""

import contextlib
import io
import json
import os
import tempfile
import unittest

from scripted_daemon import FAULTS, Server

from keldane_conformance.command import main


def judge(server_path: str, scratch: str, *options: str) -> dict:
    """The kit's answer in JSON."""
    output = io.StringIO()
    with contextlib.redirect_stdout(output):
        main(["daemon", server_path, "--json", "--destructive", "--scratch", scratch, *options])
    return json.loads(output.getvalue())


class Mutants(unittest.TestCase):
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
