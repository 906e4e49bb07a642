"""Stores within the sandbox of the service's unit, if a service manager runs that can make one."""

import os
import shutil
import subprocess
import unittest

from storage_harness import BACKED_UP, DAEMON, PATIENCE, StorageCase

UNIT = os.environ["KELDANE_UNIT"]
OWN = ("Type", "ExecStartPre", "ExecStart", "Restart", "RuntimeDirectory", "RuntimeDirectoryMode", "StateDirectory",
       "StateDirectoryMode", "CacheDirectory", "CacheDirectoryMode", "ReadWritePaths")


def sandbox():
    """The settings of the unit's service, except those that name the program and the folders."""
    with open(UNIT, encoding="utf-8") as stream:
        service = stream.read().split("[Service]")[1].split("\n[")[0]
    lines = [line.strip() for line in service.splitlines()]
    settings = [line for line in lines if "=" in line and not line.startswith("#")]
    return [line for line in settings if line.split("=")[0] not in OWN]


class Sandbox(StorageCase):
    def manager(self):
        """The options of systemd-run for a manager that accepts a unit; skips the test when there is none."""
        if not shutil.which("systemd-run"):
            self.skipTest("there is no systemd-run")
        refusals = []
        for options in (["--system"] if os.getuid() == 0 else [], ["--user"]):
            command = ["systemd-run", *options, "--quiet", "--wait", "--collect", *(f"--property={line}" for line in sandbox()),
                       "true"]
            result = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False)
            if result.returncode == 0:
                return options
            refusals.append(result.stderr.strip())
        self.skipTest("no service manager makes the sandbox here: " + "; ".join(refusals))

    def test_storing_and_restoring_in_the_sandbox_of_the_unit(self):
        options = self.manager()
        one = self.computer()
        path = one.write("a", "content")
        name = f"keldane-test-{os.getpid()}"
        settings = [*sandbox(), f"ReadWritePaths={one.home}", f"WorkingDirectory={one.home}"]
        environment = [f"--setenv={key}={one.environment[key]}" for key in ("HOME", "PATH", "LC_ALL")]
        command = ["systemd-run", *options, "--quiet", "--wait", "--collect", f"--unit={name}",
                   *(f"--property={line}" for line in settings), *environment, DAEMON, "--foreground", "--socket", one.socket,
                   "--store", one.store, "--data", one.data, "--root", one.root, "--batch-delay", "0"]
        with open(one.errors, "ab") as errors:
            one.process = subprocess.Popen(command, stdout=errors, stderr=errors)
        self.addCleanup(subprocess.run, ["systemctl", *options, "stop", name], capture_output=True, check=False)
        one.select()
        one.becomes(path, BACKED_UP)
        self.assertEqual(one.stored(path, one.versions(path)[0]), b"content")
        os.unlink(path)
        one.control("restore", path)
        with open(path, "rb") as stream:
            self.assertEqual(stream.read(), b"content")


if __name__ == "__main__":
    unittest.main()
