"""The daemon as a service: systemd's commands go to a stand-in that records them, the autostart of a session is real. Also
the settings of an administrator."""

import json
import os
import plistlib
import signal
import subprocess
import unittest

from harness import PATIENCE, Case, Keldaned

CTL = os.environ["KELDANECTL"]
DONE, NOT_TAKEN = 0, 1

SYSTEMCTL = """#!/bin/sh
echo "$*" >>"$PLACE/calls"
verb=$3
[ "$2" = --quiet ] || verb=$2
state() { cat "$PLACE/$1" 2>/dev/null || echo "$2"; }
case $verb in
  show)
    echo "LoadState=$(state load loaded)"
    echo "ActiveState=$(state active inactive)"
    echo "UnitFileState=$(state file enabled)"
    echo "MainPID=$(state pid 0)"
    ;;
  start) echo active >"$PLACE/active"; echo 4711 >"$PLACE/pid" ;;
  stop) echo inactive >"$PLACE/active"; echo 0 >"$PLACE/pid" ;;
  mask) echo masked >"$PLACE/load"; echo masked >"$PLACE/file" ;;
  unmask) echo loaded >"$PLACE/load"; echo enabled >"$PLACE/file" ;;
  disable) ;;
  *) exit 1 ;;
esac
"""


class ServiceCase(Case):
    def setUp(self):
        super().setUp()
        self.runtime = os.path.join(self.place, "runtime")
        os.mkdir(self.runtime, 0o700)
        self.environment |= {"XDG_RUNTIME_DIR": self.runtime, "XDG_STATE_HOME": os.path.join(self.place, "state"),
                             "XDG_CONFIG_DIRS": os.path.join(self.place, "xdg"), "PLACE": self.place}

    def ctl(self, *arguments, status=DONE):
        result = subprocess.run([CTL, "--bundle", self.bundle, *arguments], env=self.environment, capture_output=True,
                                timeout=PATIENCE, check=False, text=True, stdin=subprocess.DEVNULL)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result.stdout + result.stderr

    def standing(self, status=DONE):
        return json.loads(self.ctl("service", "status", "--json", status=status))


class UnderSystemd(ServiceCase):
    def setUp(self):
        super().setUp()
        programs = os.path.join(self.place, "programs")
        os.mkdir(programs)
        for name, text in (("systemctl", SYSTEMCTL), ("journalctl", '#!/bin/sh\necho "journal: $*"\n')):
            with open(os.path.join(programs, name), "w", encoding="utf-8") as stream:
                stream.write(text)
            os.chmod(os.path.join(programs, name), 0o755)
        self.environment["PATH"] = programs + ":" + self.environment["PATH"]

    def calls(self):
        with open(os.path.join(self.place, "calls"), encoding="utf-8") as stream:
            return [line.strip() for line in stream if " show " not in line]

    def test_start_and_stop(self):
        self.assertEqual(self.standing(NOT_TAKEN), {"manager": "systemd", "running": False, "starting": False,
                                                    "enabled": True, "process": 0})
        self.assertIn("does not run", self.ctl("service", "status", status=NOT_TAKEN))
        self.ctl("service", "start")
        self.assertEqual(self.ctl("service", "status"),
                         "The daemon runs (process 4711).\nIt is started at login, by systemd.\n")
        self.ctl("service", "stop")
        self.assertIs(self.standing(NOT_TAKEN)["running"], False)
        self.assertEqual(self.calls(), ["--user --quiet start keldaned.service", "--user --quiet stop keldaned.service"])

    def test_a_unit_that_is_on_for_all_users_is_masked_for_one(self):
        self.ctl("service", "disable")
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], False)
        self.assertIn("service enable", self.ctl("service", "start", status=NOT_TAKEN))
        self.assertIn("service start", self.ctl("service", "enable"))
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], True)
        self.assertEqual([call.split()[2] for call in self.calls()], ["disable", "mask", "unmask"])

    def test_the_log_is_the_journal(self):
        self.assertEqual(self.ctl("log", "-n", "7", "--follow"),
                         "journal: --user --unit=keldaned.service --no-pager --lines=7 --follow\n")

    def test_the_autostart_entry_leaves_it_to_systemd(self):
        self.assertEqual(self.ctl("service", "supervise"), "")
        self.assertFalse(os.path.exists(os.path.join(self.runtime, "keldane")))


class WithoutSystemd(ServiceCase):
    def setUp(self):
        super().setUp()
        self.addCleanup(lambda: subprocess.run([CTL, "service", "stop"], env=self.environment, capture_output=True,
                                               check=False, timeout=PATIENCE))
        self.edit_info(DaemonPath="${XDG_RUNTIME_DIR}/keldane/keldaned.sock")

    def daemon_process(self, supervisor):
        with open(f"/proc/{supervisor}/task/{supervisor}/children", encoding="utf-8") as stream:
            return int(stream.read().split()[0])

    def start(self):
        self.ctl("service", "start")
        self.eventually(lambda: self.show(self.folder(".")) is not None, "the daemon")
        return self.standing()["process"]

    def test_start_and_stop(self):
        self.assertEqual(self.standing(NOT_TAKEN), {"manager": "autostart", "running": False, "starting": False,
                                                    "enabled": False, "process": 0})
        self.assertIn("no log yet", self.ctl("log", status=NOT_TAKEN))
        supervisor = self.start()
        self.assertEqual(self.start(), supervisor, "it runs already")
        self.assertIn("already", self.ctl("service", "supervise", status=NOT_TAKEN))
        daemon = self.daemon_process(supervisor)
        self.ctl("service", "stop")
        self.assertIs(self.standing(NOT_TAKEN)["running"], False)
        self.assertFalse(os.path.exists(f"/proc/{daemon}"))

    def test_a_daemon_that_crashes_is_started_again_after_a_pause(self):
        supervisor = self.start()
        first = self.daemon_process(supervisor)
        os.kill(first, signal.SIGKILL)
        self.eventually(lambda: "started again in 5 s" in self.ctl("log"), "the line in the log")
        second = self.eventually(lambda: self.children(supervisor), "the second daemon")
        self.assertNotEqual(second, first)

    def status(self):
        """The output of `service status`, whether the daemon runs or not."""
        return subprocess.run([CTL, "service", "status"], env=self.environment, capture_output=True, timeout=PATIENCE,
                              check=False, text=True).stdout

    def children(self, supervisor):
        try:
            return self.daemon_process(supervisor)
        except IndexError:
            return None

    def test_a_new_version_goes_on_in_place_of_the_old(self):
        supervisor = self.start()
        first = self.daemon_process(supervisor)
        os.kill(supervisor, signal.SIGUSR1)
        self.eventually(lambda: not os.path.exists(f"/proc/{first}"), "the end of the first daemon")
        self.eventually(lambda: f"(process {supervisor})" in self.status(), "the same process with the lock")
        self.eventually(lambda: self.show(self.folder(".")) is not None, "the second daemon")

    def test_enable_and_disable(self):
        own = os.path.join(self.environment["XDG_CONFIG_HOME"], "autostart", "keldane.desktop")
        self.ctl("service", "enable")
        self.assertTrue(os.path.exists(own))
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], True)
        self.ctl("service", "disable")
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], False)
        entries = os.path.join(self.environment["XDG_CONFIG_DIRS"], "autostart")
        os.makedirs(entries)
        with open(os.path.join(entries, "keldane.desktop"), "w", encoding="utf-8"):
            pass
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], False, "one's own entry counts")
        self.ctl("service", "enable")
        self.assertFalse(os.path.exists(own), "the computer's entry is enough")
        self.assertIs(self.standing(NOT_TAKEN)["enabled"], True)


class Administered(ServiceCase):
    def config(self, text):
        return self.file("../keldane.conf", text)

    def test_config_check(self):
        good = self.config("[fixed]\nalert-days = 2\n")
        self.assertEqual(self.ctl("config", "check", good), f"{good} is right.\n")
        bad = self.config("[fixed]\nalert-days = 2 days\n\nsalt = 1\n")
        output = self.ctl("config", "check", bad, status=NOT_TAKEN)
        self.assertRegex(output, r"line 2: .*whole number")
        self.assertRegex(output, r"line 4: .*salt")
        self.assertIn("There is no file", self.ctl("config", "check", self.place + "/none", status=NOT_TAKEN))

    def test_config_show(self):
        path = self.config("[default]\nexclude = ${HOME}/Downloads\n[fixed]\nautomatic = no\n")
        self.assertEqual(json.loads(self.ctl("config", "show", path, "--json")),
                         [{"name": "exclude", "value": self.place + "/Downloads", "fixed": False},
                          {"name": "automatic", "value": "0", "fixed": True}])

    def test_config_file_manager(self):
        show = lambda: json.loads(self.ctl("config", "file-manager", "--json"))
        self.assertEqual(show(), {"emblems": True, "columns": True, "restore-entries": True})
        self.assertEqual(self.ctl("config", "file-manager", "columns", "off"), "columns          off\n")
        self.assertEqual(show(), {"emblems": True, "columns": False, "restore-entries": True})
        with open(os.path.join(self.environment["XDG_CONFIG_HOME"], "com.keldane.preferences.plist"), "rb") as stream:
            self.assertEqual(plistlib.load(stream), {"ShowColumns": "NO"})
        self.ctl("config", "file-manager", "columns", "on")
        self.assertEqual(self.ctl("config", "file-manager"),
                         "emblems          on\ncolumns          on\nrestore-entries  on\n")
        self.ctl("config", "file-manager", "sounds", "on", status=2)
        self.ctl("config", "file-manager", "columns", "maybe", status=2)

    def test_a_daemon_does_what_the_administrator_wants(self):
        files = self.folder(".")
        barred, left_out = self.file("barred/a"), self.file("left-out/b")
        keldaned = Keldaned(self, "--config", self.config(
            f"[default]\ninclude = {files}\nexclude = {files}/left-out\nkeep-deleted-days = 200\nalert-days = 9\n"
            f"[fixed]\nexclude = {files}/barred\nalert-days = 2\nlow-priority = yes\nlocation = /srv/backup\n"))
        self.assertIsNone(self.show(barred), "what is barred has no menu")
        self.assertEqual(self.titles(left_out)[0], "Status: Not selected for backup")
        self.assertNotEqual(self.titles(self.file("c"))[0], "Status: Not selected for backup")
        settings = json.loads(self.ctl("settings", "--json"))
        self.assertEqual((settings["keepDeletedDays"], settings["alertDays"]), (200, 2))
        self.assertEqual(json.loads(self.ctl("settings", "--keep-deleted", "7", "--json"))["keepDeletedDays"], 7)
        self.assertIn('has fixed "alert-days"', self.ctl("settings", "--alert-after", "5", status=NOT_TAKEN))
        self.ctl("low-priority", "off", status=NOT_TAKEN)
        self.ctl("automatic", "off")
        self.assertIn("/srv/backup", self.ctl("setup", "--repository", self.place + "/other", status=NOT_TAKEN))
        # A user's changes stay, and the default rules are not set again.
        self.ctl("add", left_out)
        keldaned.kill()
        keldaned.start()
        self.assertNotEqual(self.titles(left_out)[0], "Status: Not selected for backup")
        self.assertEqual(json.loads(self.ctl("settings", "--json"))["keepDeletedDays"], 7)

    def test_metrics(self):
        self.assertIn("keldane_up 0\n", self.ctl("metrics", status=3))
        self.folder(".")
        Keldaned(self)
        text = self.ctl("metrics")
        self.assertIn("keldane_up 1\n", text)
        self.assertIn("keldane_pending_files ", text)
        self.assertTrue(text.endswith("# EOF\n"))
        path = os.path.join(self.place, "keldane.prom")
        self.assertEqual(self.ctl("metrics", "--output", path), "")
        with open(path, encoding="utf-8") as stream:
            self.assertIn("keldane_up 1\n", stream.read())
        self.assertEqual([name for name in os.listdir(self.place) if name.startswith(".keldane.prom")], [])


if __name__ == "__main__":
    unittest.main()
