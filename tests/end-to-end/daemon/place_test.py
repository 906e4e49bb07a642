"""The default places where clients find the daemon: one bundle for every user, a socket in each user's runtime folder."""

import os
import re
import shutil
import subprocess
import unittest

from daemon_client import listens
from harness import BUNDLE, DAEMON, MENU, PATIENCE, Case
from recording_daemon import ENABLED

CTL = os.environ["KELDANECTL"]
NOBODY = 65534
VARIABLE = "${XDG_RUNTIME_DIR}/keldane-place-test/daemon.sock"
needs_root = unittest.skipUnless(os.geteuid() == 0, "only root can become another user")


class PlaceCase(Case):
    def setUp(self):
        super().setUp()
        self.runtime = os.path.join(self.place, "runtime")
        os.mkdir(self.runtime, 0o700)
        self.environment["XDG_RUNTIME_DIR"] = self.runtime

    def place_named_by_ctl(self, **options):
        """The path where keldanectl looked for a daemon that is not there."""
        result = subprocess.run([CTL, "--bundle", self.bundle, "status"], env=self.environment, capture_output=True,
                                timeout=PATIENCE, check=False, text=True, **options)
        self.assertEqual(result.returncode, 3, result.stderr)
        return re.search(r"cannot be reached at (.*)\.$", result.stderr)[1]

    def start(self, *options):
        process = subprocess.Popen([DAEMON, "--foreground", *options], env=self.environment, stderr=subprocess.PIPE,
                                   text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process


class Clients(PlaceCase):
    def setUp(self):
        super().setUp()
        self.edit_info(DaemonPath=VARIABLE)

    def test_the_socket_lies_in_the_runtime_folder_of_the_session(self):
        self.assertEqual(self.place_named_by_ctl(), f"{self.runtime}/keldane-place-test/daemon.sock")

    def test_the_menu_finds_it_there(self):
        self.assertIsNone(self.show(self.file("a")))
        os.mkdir(f"{self.runtime}/keldane-place-test")
        self.socket = f"{self.runtime}/keldane-place-test/daemon.sock"
        self.daemon(ENABLED)
        self.assertEqual(self.titles(self.file("a"))[0], "Status: Not selected for backup")

    def test_a_runtime_folder_that_others_can_enter_is_passed_over(self):
        os.chmod(self.runtime, 0o755)
        self.assertEqual(self.place_named_by_ctl(), f"/run/user/{os.geteuid()}/keldane-place-test/daemon.sock")

    def test_any_other_variable_that_is_missing_leaves_no_menu_and_is_told(self):
        self.edit_info(DaemonPath="${KELDANE_NOWHERE}" + self.socket)
        self.assertIsNone(self.show(self.file("a")))
        result = subprocess.run([CTL, "--bundle", self.bundle, "status"], env=self.environment, capture_output=True,
                                timeout=PATIENCE, check=False, text=True)
        self.assertEqual(result.returncode, 3)
        self.assertIn("${KELDANE_NOWHERE}", result.stderr)

    @needs_root
    def test_root_by_sudo_does_not_use_the_folder_of_the_user_before(self):
        os.chown(self.runtime, NOBODY, NOBODY)
        self.assertEqual(self.place_named_by_ctl(), "/run/user/0/keldane-place-test/daemon.sock")
        self.assertIsNone(self.show(self.file("a")))

    @needs_root
    def test_another_user_does_not_use_the_folder_of_root(self):
        # The programs and the bundle must lie where that user can read them.
        os.chmod(self.place, 0o755)
        programs = os.path.join(self.place, "programs")
        os.mkdir(programs)
        for path in (MENU, CTL):
            shutil.copy(path, programs)
        library = os.path.join(os.path.dirname(os.path.dirname(BUNDLE + "/")), "lib", "libkeldane-platform.so.1")
        shutil.copy(library, programs)
        environment = {**self.environment, "LD_LIBRARY_PATH": programs, "HOME": "/nonexistent"}
        for program, arguments, status in (("keldanectl", ["status"], 3), ("keldane-menu", ["show", self.file("a")], 0)):
            result = subprocess.run([os.path.join(programs, program), "--bundle", self.bundle, *arguments],
                                    env=environment, user=NOBODY, group=NOBODY, extra_groups=[], cwd="/",
                                    capture_output=True, timeout=PATIENCE, check=False, text=True)
            self.assertEqual(result.returncode, status, result.stderr)
            said = f"/run/user/{NOBODY}/keldane-place-test/daemon.sock" if program == "keldanectl" else "no menu"
            self.assertIn(said, result.stdout + result.stderr)


class Daemons(PlaceCase):
    def test_without_options_it_serves_its_user(self):
        self.start("--root", self.folder("."))
        socket = os.path.join(self.runtime, "keldane", "keldaned.sock")
        self.eventually(lambda: listens(socket), "the daemon")
        self.assertTrue(os.path.exists(os.path.join(self.environment["XDG_DATA_HOME"], "keldane", "store.sqlite")))
        self.edit_info(DaemonPath="${XDG_RUNTIME_DIR}/keldane/keldaned.sock")
        self.assertEqual(self.titles(self.file("a"))[0], "Status: Not selected for backup")

    def test_a_store_that_is_there_already_goes_on_being_used(self):
        earlier = os.path.join(self.place, ".local", "share", "keldane")
        os.makedirs(earlier, 0o700)
        with open(os.path.join(earlier, "store.sqlite"), "w", encoding="utf-8"):
            pass
        os.chmod(os.path.join(earlier, "store.sqlite"), 0o600)
        self.start("--root", self.folder("."))
        self.eventually(lambda: os.path.exists(os.path.join(self.runtime, "keldane", "keldaned.sock")), "the socket")
        self.assertGreater(os.path.getsize(os.path.join(earlier, "store.sqlite")), 0)
        self.assertFalse(os.path.exists(os.path.join(self.environment["XDG_DATA_HOME"], "keldane")))

    def test_a_socket_path_that_is_too_long_is_refused(self):
        runtime = os.path.join(self.place, "r" * (103 - len(self.place)))
        os.mkdir(runtime, 0o700)
        self.environment["XDG_RUNTIME_DIR"] = runtime
        process = self.start("--root", self.folder("."))
        self.assertEqual(process.wait(PATIENCE), 1)
        self.assertIn("longer than 103 bytes", process.stderr.read())


if __name__ == "__main__":
    unittest.main()
