"""The two sides that bench/storage.py compares: plain restic, and the daemon with its command line."""

import json
import os
import pathlib
import plistlib
import resource
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "end-to-end"))

from daemon_client import DaemonClient, Gone  # noqa: E402

TICKS = os.sysconf("SC_CLK_TCK")
PATIENCE = 1800  # seconds for any one wait


def eventually(condition, what, pause=0.05):
    """Waits for the condition and returns its first true answer."""
    end = time.monotonic() + PATIENCE
    while not (answer := condition()):
        if time.monotonic() > end:
            sys.exit(f"{what} did not come about.")
        time.sleep(pause)
    return answer


class Restic:
    """A repository for plain restic, with a cache of its own."""

    def __init__(self, place):
        self._place = place
        self._base = ["restic", "--repo", str(place / "repository"), "--cache-dir", str(place / "cache"),
                      "--password-file", str(place / "password")]
        place.mkdir()
        (place / "password").write_text("a password of the benchmark", encoding="ascii")
        self.run("init")

    def run(self, *arguments):
        """Runs restic. Returns (seconds, seconds of processor time)."""
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        begin = time.monotonic()
        result = subprocess.run([*self._base, *arguments], check=False, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, text=True)
        seconds = time.monotonic() - begin
        if result.returncode != 0:
            sys.exit(f"restic {arguments[0]}: {result.stderr}")
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return seconds, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime

    def backup(self, folder):
        return self.run("backup", str(folder))

    def backup_list(self, files):
        """Stores these files and reads each of them, even if an earlier snapshot has it."""
        names = self._place / "names"
        names.write_bytes(b"".join(os.fsencode(file) + b"\0" for file in files))
        return self.run("backup", "--force", "--files-from-raw", str(names))

    def newest_with(self, path):
        result = subprocess.run([*self._base, "snapshots", "--json", "--path", str(path), "--latest", "1"], check=True,
                                capture_output=True, text=True)
        return json.loads(result.stdout)[-1]["id"]

    def restore(self, snapshot, path, target):
        return self.run("restore", snapshot, "--include", str(path), "--target", str(target))

    def remove(self):
        shutil.rmtree(self._place)


class Keldaned:
    """The daemon on a socket and a data folder of its own, and its command line."""

    def __init__(self, build, place, *options):
        self._build = build
        self._place = place
        place.mkdir()
        self.data = place / "data"
        socket = place / "keldaned.sock"
        self._socket = str(socket)
        self._bundle = place / "Keldane.plugin"
        shutil.copytree(build / "Keldane.plugin", self._bundle)
        information = self._bundle / "Contents" / "Info.plist"
        entries = plistlib.loads(information.read_bytes())
        information.write_bytes(plistlib.dumps(entries | {"DaemonPath": self._socket}))
        self._log = open(place / "log", "wb")
        self._process = subprocess.Popen(
            [str(build / "bin" / "keldaned"), "--foreground", "--socket", self._socket, "--store",
             str(self.data / "store.sqlite"), *options], stderr=self._log)
        try:
            self.client = eventually(self._connect, "The daemon's socket")
            eventually(self._has_repository, "The daemon's repository")
            self.wait_for_quiet()
        except BaseException:
            self.stop()
            raise

    def _connect(self):
        if self._process.poll() is not None:
            sys.exit(f"The daemon has ended: {(self._place / 'log').read_text(errors='replace')}")
        try:
            return DaemonClient(self._socket, timeout=PATIENCE)
        except Gone:
            return None

    def another_client(self):
        return DaemonClient(self._socket, timeout=PATIENCE)

    def _has_repository(self):
        file = self.data / "repository.json"
        return file.exists() and json.loads(file.read_text(encoding="utf-8")).get("repositoryId")

    def _children(self):
        found = []
        for task in pathlib.Path(f"/proc/{self._process.pid}/task").iterdir():
            try:
                found += (task / "children").read_text(encoding="ascii").split()
            except OSError:
                pass  # the thread has ended
        return found

    def wait_for_quiet(self):
        """Waits until no child of the daemon has run for a second."""
        quiet = time.monotonic()
        while time.monotonic() - quiet < 1:
            if self._children():
                quiet = time.monotonic()
            time.sleep(0.05)

    def state(self):
        return self.client.ask("daemonState")

    def standing(self, path):
        node = self.client.ask("dictionaryForPath:withDirSizes:", str(path), ("c", 0))
        return node["state"] if node else None

    def include(self, path):
        self.client.send("addFileToBackup:", str(path))

    def prefer(self, path):
        self.client.send("setPriorityBackup:", str(path))

    def switch_automatic(self, isOn):
        self.client.send("setAutomaticMode:", ("c", isOn))

    def wait_until_stored(self, files, pause=0.1):
        """Waits until this number of files is backed up and none is pending."""
        def is_done():
            state = self.state()
            if state["health"] != "ready":
                sys.exit(f"The daemon's repository: {state['statusString']}")
            return state["backedUpFileCount"] >= files and state["pendingFileCount"] == 0
        eventually(is_done, "The backup", pause)

    def processor_seconds(self):
        """The processor time of the daemon and of its children that have ended."""
        fields = pathlib.Path(f"/proc/{self._process.pid}/stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()
        return sum(int(field) for field in fields[11:15]) / TICKS

    def memory(self):
        """The most and the present memory of the daemon itself, in MiB."""
        lines = pathlib.Path(f"/proc/{self._process.pid}/status").read_text(encoding="ascii").splitlines()
        sizes = {line.split(":")[0]: int(line.split()[1]) / 1024 for line in lines if line.endswith(" kB")}
        return sizes["VmHWM"], sizes["VmRSS"]

    def ctl(self, *arguments):
        """Runs a command. Returns the seconds that it took."""
        begin = time.monotonic()
        result = subprocess.run([str(self._build / "bin" / "keldanectl"), "--bundle", str(self._bundle), *arguments],
                                check=False, capture_output=True, text=True)
        seconds = time.monotonic() - begin
        if result.returncode != 0:
            sys.exit(f"keldanectl {' '.join(arguments)}: {result.returncode} {result.stdout}{result.stderr}")
        return seconds

    def restore(self, path, target):
        return self.ctl("restore", str(path), "--to", str(target))

    def stop(self):
        if self._process.poll() is None:
            self._process.terminate()
            self._process.wait(60)
        self._log.close()

    def remove(self):
        self.stop()
        shutil.rmtree(self._place)
