"""The daemon as a server of many clients, some of them hostile."""

import errno
import os
import signal
import subprocess
import sys
import unittest

from daemon_client import DaemonClient, Gone, listens, request
from harness import DAEMON, PATIENCE, Case

CLIENTS = 500
NOBODY = 65534

# Each client costs a thread, a descriptor, and at most this much memory.
BYTES_A_CLIENT = 256 * 1024


def instrumented():
    """Whether the daemon was built with a sanitizer, whose shadow memory is not the daemon's own."""
    with open(DAEMON, "rb") as program:
        content = program.read()
    return b"__asan_init" in content or b"__tsan_init" in content


class Server(Case):
    def setUp(self):
        super().setUp()
        self.folder(".")
        self.process = subprocess.Popen(
            [DAEMON, "--foreground", "--socket", self.socket, "--store", os.path.join(self.place, "store"),
             "--root", os.path.join(self.place, "files")], env=self.environment, stderr=subprocess.DEVNULL)
        self.addCleanup(self.end)
        self.eventually(lambda: listens(self.socket), "the daemon")

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(PATIENCE)

    def connect(self):
        """Waits while the daemon's queue is full."""
        def try_it():
            try:
                return DaemonClient(self.socket, PATIENCE)
            except Gone:
                return None
        client = self.eventually(try_it, "a place in the daemon's queue")
        self.addCleanup(client.close)
        return client

    def status(self, key):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as lines:
            return next(int(line.split()[1]) for line in lines if line.startswith(key + ":"))

    def test_five_hundred_clients_are_answered_at_once(self):
        path = self.file("a.txt")
        self.connect().ask("daemonState")
        before = self.status("VmRSS") * 1024
        peers = [self.connect() for _ in range(CLIENTS)]
        for peer in peers:
            peer.send("dictionaryForPath:", path, returns="@")
        for peer in peers:
            self.assertEqual(peer.answer()["path"], path)
        threads, memory = self.status("Threads"), self.status("VmRSS") * 1024 - before
        print(f"{CLIENTS} clients: {threads} threads, {memory // CLIENTS // 1024} KiB each", file=sys.stderr)
        self.assertLess(threads, CLIENTS + 16, "one thread for each, and few of its own")
        if not instrumented():
            self.assertLess(memory, CLIENTS * BYTES_A_CLIENT)
        for peer in peers:
            peer.close()
        self.eventually(lambda: self.status("Threads") < 16, "the threads' end")

    def test_it_ends_cleanly_while_it_is_flooded(self):
        path = self.folder(".")
        peers = [self.connect() for _ in range(20)]
        for index, peer in enumerate(peers):
            selector = ("childrenDictionariesForPath:", "dictionaryForPath:", "backupColorsForFiles:")[index % 3]
            peer.send_what_goes(request(selector, [path] * 50 if index % 3 == 2 else path, returns="@") * 200)
        self.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.process.wait(PATIENCE), 0)
        self.assertFalse(os.path.exists(self.socket))

    @unittest.skipIf(os.geteuid() != 0, "only root can be somebody else")
    def test_another_user_learns_and_changes_nothing_of_what_it_cannot_read(self):
        secret, readable = self.file("secret"), self.file("readable")
        os.chmod(secret, 0o600)
        os.chmod(readable, 0o644)
        for folder in (self.place, os.path.join(self.place, "files")):
            os.chmod(folder, 0o755)

        def as_somebody_else():
            peer = self.connect()
            self.assertEqual(peer.ask("dictionaryForPath:", readable)["fileName"], "readable")
            self.assertIsNone(peer.ask("dictionaryForPath:", secret))
            self.assertEqual(peer.ask("excludeFileFromBackup:", secret, returns="I"), errno.EACCES)
            self.assertEqual(peer.ask("excludeFileFromBackup:", readable, returns="I"), errno.EACCES)
            peer.send("terminate")
            self.assertEqual(peer.ask("daemonState")["pendingFileCount"], 0)

        child = os.fork()
        if child == 0:
            status = 1
            try:
                os.setgroups([])
                os.setgid(NOBODY)
                os.setuid(NOBODY)
                as_somebody_else()
                status = 0
            except BaseException as error:  # the child of the fork must not go on with the parent's tests
                print(repr(error), file=sys.stderr, flush=True)
            finally:
                os._exit(status)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)
        self.assertIsNone(self.process.poll())


if __name__ == "__main__":
    unittest.main()
