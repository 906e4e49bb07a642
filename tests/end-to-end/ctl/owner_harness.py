"""A daemon with prepared answers, on both of its sockets."""

import datetime
import os

from ctl_harness import CtlCase
from recording_daemon import RecordingDaemon

DATE = datetime.datetime(2026, 11, 20, 12, 0)
KEY = "K7QF3ZB2MXWN5TDRAHV6YJCL4EGSPUOI2345672ABCDEFGHIJKLM"
REPOSITORY = {"location": "/data/repository", "health": "ready", "repositoryId": "0123abcd", "computerNumber": 3,
              "hostName": "laptop", "size": 3 << 20, "snapshots": 4, "files": 1234, "lastGoodBackup": DATE,
              "lastFull": DATE, "lastCheck": DATE, "lastCheckResult": "No errors were found",
              "lastDrill": DATE, "lastDrillResult": "All came back", "drillCompared": 90, "drillHashed": 10,
              "drillFailed": 0, "catalogue": "complete", "dataFolder": "/data", "keyFile": "/data/key"}
EXPORTED = {"key": KEY, "location": "sftp:me@host:/backup", "repositoryId": "0123abcd", "computerNumber": 3,
            "hostName": "laptop"}


class OwnerCase(CtlCase):
    """A daemon on both sockets. The tests look at the requests on the second one."""

    def setUp(self):
        super().setUp()
        self.environment["TZ"] = "UTC"
        self.first = self.daemon()
        self.owner = RecordingDaemon(self.socket + ".owner", {"repository:": REPOSITORY, "exportKey:": EXPORTED})
        self.addCleanup(self.owner.stop)

    def answer(self, **answers):
        """Sets the answers to methods by their names, without the colon."""
        self.owner.answers.update({name + ":": answer for name, answer in answers.items()})

    def asked(self, name):
        """The requests of a method, in their order."""
        return [frame.arguments[0] for frame in self.owner.frames if frame.selector == name + ":"]

    def only(self, name):
        requests = self.asked(name)
        self.assertEqual(len(requests), 1, requests)
        return requests[0]

    def secret_file(self, name, content):
        path = self.file(name, content)
        os.chmod(path, 0o600)
        return path
