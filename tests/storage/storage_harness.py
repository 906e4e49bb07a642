"""The common parts of the storage tests: computers with daemons, real repositories, and restic itself as the witness."""

import base64
import json
import os
import plistlib
import re
import shutil
import signal
import struct
import subprocess
import threading
import time

from daemon_client import DaemonClient, Gone
from harness import Case
from recording_daemon import MARKER, REQUEST

DAEMON = os.environ["KELDANED_STORING"]
CONTROL = os.environ["KELDANECTL"]
RESTIC = shutil.which("restic") or "restic"
FAULTS = os.environ["KELDANE_MACHINE_FAULTS_LIBRARY"]
SUPPORT = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support", "daemon")

NEW, CHANGED, WAITING, BACKED_UP = "New", "Changed since last backup", "Waiting to be backed up", "Backed up"
UNSEEN, STORING = "Waiting to be looked at", "Being backed up: "
DELETED, FAILED = "Deleted here, still in the backup", "Could not be backed up"

# Everything that a test waits for happens within this time in seconds, even on a busy machine.
PATIENCE = 90


def quick_repository():
    """The constants of the repository that opens quickly; opening any other takes restic a second by design."""
    with open(os.path.join(SUPPORT, "QuickRepository.h"), encoding="utf-8") as stream:
        header = stream.read()
    constants = {}
    for name, text in re.findall(r"constexpr char (k\w+)\[\] =\s*(.*?);\n", header, re.DOTALL):
        constants[name] = "".join(raw or plain for raw, plain in re.findall(r'R"\((.*?)\)"|"([^"]*)"', text, re.DOTALL))
    return constants


QUICK = quick_repository()


def write_quick_repository(folder):
    for name in ("data", "index", "keys", "locks", "snapshots"):
        os.makedirs(os.path.join(folder, name), mode=0o700)
    with open(os.path.join(folder, "config"), "wb") as stream:
        stream.write(base64.b64decode(QUICK["kConfig"]))
    with open(os.path.join(folder, "keys", QUICK["kKeyName"]), "w", encoding="ascii") as stream:
        stream.write(QUICK["kKeyFile"])


def locks_in(repository):
    """The names of the repository's locks. A file to which a killed program has not given its final name is no lock."""
    return [name for name in os.listdir(os.path.join(repository, "locks")) if len(name) == 64]


def write_private(path, text):
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
    with open(descriptor, "w", encoding="utf-8") as stream:
        stream.write(text)


def read(path):
    with open(path, "rb") as stream:
        return stream.read()


def children_of(process):
    """The ids of all processes below this one."""
    found = []
    try:
        for task in os.listdir(f"/proc/{process}/task"):
            with open(f"/proc/{process}/task/{task}/children", encoding="ascii") as stream:
                for child in stream.read().split():
                    found += [int(child), *children_of(int(child))]
    except OSError:
        pass
    return found


def command_line(process):
    try:
        return read(f"/proc/{process}/cmdline").decode(errors="replace").split("\0")
    except OSError:
        return []


class Listener:
    """A client that receives alerts and, if wanted, the state."""

    def __init__(self, path, handlers=("setAlertHandler",)):
        self.calls = []
        self._changed = threading.Condition()
        self._client = DaemonClient(path, timeout=None)
        for handler in handlers:
            self._client.send(handler)
        self._client.ask("serverURL")  # answered after those calls were performed
        self._thread = threading.Thread(target=self._listen, daemon=True)
        self._thread.start()

    def _listen(self):
        try:
            while True:
                header = self._client._read(44)
                kind, length = struct.unpack("<iI", header[36:])
                payload = self._client._read(length)
                if header[:36] == MARKER and kind == REQUEST and payload:
                    value = plistlib.loads(payload)
                    with self._changed:
                        self.calls.append((value[2], value[5] if len(value) > 5 else None))
                        self._changed.notify_all()
        except (Gone, ValueError):
            pass

    def alerts(self):
        with self._changed:
            return [argument for selector, argument in self.calls if selector == "alertRaised:"]

    def wait(self, condition, what):
        """Waits for the first alert that fulfils the condition."""
        def found():
            return next((argument for selector, argument in self.calls
                         if selector == "alertRaised:" and condition(argument)), None)
        with self._changed:
            if not self._changed.wait_for(lambda: found() is not None, PATIENCE):
                raise AssertionError(f"no alert {what}; there were {self.calls}")
            return found()

    def close(self):
        self._client.close()


class Computer:
    """A daemon with its own files, data folder, store and socket."""

    def __init__(self, case, name="one", *options, repository="quick", host="", number=0, user=None):
        self.case, self.name, self.user = case, name, user
        self.home = os.path.join(case.place, name)
        self.files, self.data = os.path.join(self.home, "files"), os.path.join(self.home, "data")
        self.socket, self.store = os.path.join(self.home, "sock"), os.path.join(self.home, "store")
        self.root = self.files
        self.errors = os.path.join(self.home, "errors")
        self.tools = os.path.join(self.home, "tools")  # first in the PATH
        for folder in (self.home, self.files, self.data, self.tools):
            os.makedirs(folder, mode=0o700, exist_ok=True)
        self.options, self.environment = options, dict(case.environment)
        self.environment["HOME"] = self.home
        self.environment["PATH"] = self.tools + ":" + case.environment["PATH"]
        self.process = None
        self._client = None
        if repository == "quick":
            repository = os.path.join(self.data, "repository")
            write_quick_repository(repository)
        if repository:
            self.configure(location=repository, repositoryId=QUICK["kId"], computerNumber=number or 7,
                           hostName=host or "alpha")
            write_private(os.path.join(self.data, "key"), QUICK["kKey"])
        if user is not None:
            for folder, _, names in os.walk(self.home):
                for path in (folder, *(os.path.join(folder, entry) for entry in names)):
                    os.chown(path, user, user)
            os.chmod(case.place, 0o711)
        case.addCleanup(self.close)

    # --- The computer's own files ---

    def configuration(self):
        try:
            return json.loads(read(os.path.join(self.data, "repository.json")))
        except OSError:
            return {}

    def configure(self, **changes):
        write_private(os.path.join(self.data, "repository.json"), json.dumps(self.configuration() | changes))

    @property
    def repository(self):
        return self.configuration()["location"]

    @property
    def key_file(self):
        return os.path.join(self.data, "key")

    def log(self):
        return read(self.errors).decode(errors="replace") if os.path.exists(self.errors) else ""

    def write(self, name, content):
        path = os.path.join(self.files, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as stream:
            stream.write(content if isinstance(content, bytes) else content.encode())
        if self.user is not None:
            os.chown(path, self.user, self.user)
        return path

    def replace(self, name, content):
        """Writes a file with its whole content at once, so that nobody sees a part of it."""
        path = os.path.join(self.files, name)
        aside = self.write(os.path.join(self.home, "aside"), content)
        os.replace(aside, path)
        return path

    def tool(self, name, text):
        """Provides a program that is found before the system's own; None removes it."""
        path = os.path.join(self.tools, name)
        if text is None:
            os.unlink(path)
            return
        with open(path + ".new", "w", encoding="utf-8") as stream:
            stream.write(text)
        os.chmod(path + ".new", 0o755)
        os.rename(path + ".new", path)

    def set_clock(self, seconds):
        """Shifts the daemon's time of day by this number of seconds; restic uses the machine's."""
        self.environment |= {"LD_PRELOAD": FAULTS, "KELDANE_MACHINE_FAULTS": self.home}
        write_private(os.path.join(self.home, "clock"), str(seconds))

    # --- The daemon ---

    def start(self):
        command = [DAEMON, "--foreground", "--socket", self.socket, "--store", self.store, "--data", self.data,
                   "--root", self.root, "--batch-delay", "0", *self.options]
        if self.user is not None:
            command = ["setpriv", f"--reuid={self.user}", f"--regid={self.user}", "--clear-groups", "--", *command]
        with open(self.errors, "ab") as errors:
            self.process = subprocess.Popen(command, env=self.environment, stdout=errors, stderr=errors)
        self.client()
        return self

    def client(self):
        """The connection, made as soon as the daemon listens."""
        end = time.monotonic() + PATIENCE
        while self._client is None:
            client = None
            try:
                client = DaemonClient(self.socket, PATIENCE)
                client.ask("serverURL")  # a child of a killed daemon may hold its socket for a moment
                self._client = client
            except Gone:
                if client:
                    client.close()
                self.case.assertIsNone(self.process.poll(), "the daemon has ended:\n" + self.log())
                self.case.assertLess(time.monotonic(), end, "no daemon came:\n" + self.log())
                time.sleep(0.01)
        return self._client

    def hang_up(self):
        if self._client:
            self._client.close()
            self._client = None

    def kill(self):
        """Kills the daemon at once and its child with it, as a power cut would."""
        self.hang_up()
        if self.process and self.process.poll() is None:
            self.process.kill()
        if self.process:
            self.process.wait(PATIENCE)
        for path in (self.socket, self.socket + ".owner"):  # so that no old socket is taken for that of the next daemon
            if os.path.exists(path):
                os.unlink(path)

    def terminate(self):
        self.hang_up()
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(PATIENCE)

    def close(self):
        self.kill()

    def engines(self):
        """The ids of the storage programs that run for this daemon."""
        return [child for child in children_of(self.process.pid)
                if os.path.basename((command_line(child) or [""])[0]) == "restic"]

    def listen(self, *handlers):
        listener = Listener(self.socket, handlers or ("setAlertHandler",))
        self.case.addCleanup(listener.close)
        return listener

    # --- Requests ---

    def ask(self, selector, *arguments, returns="@"):
        return self.client().ask(selector, *arguments, returns=returns)

    def tell(self, selector, *arguments):
        """Sends a call without an answer, and waits until it was performed."""
        self.client().send(selector, *arguments)
        self.ask("serverURL")

    def owner(self, selector, **request):
        try:
            with DaemonClient(self.socket + ".owner", PATIENCE) as client:
                return client.ask(selector, request)
        except Gone as gone:
            self.case.fail(f"the second socket: {gone}; the daemon: {self.process.poll()}\n{self.log()}")

    def repository_page(self, **request):
        return self.owner("repository:", **request)

    def has_catalogue(self, snapshots):
        """Whether the catalogue has been made anew from this number of snapshots."""
        page = self.repository_page()
        return page["snapshots"] == snapshots and page["catalogue"] == "complete"

    def control(self, *arguments, status=0):
        """Runs keldanectl and returns its output."""
        bundle = os.path.join(self.home, "Keldane.plugin")
        if not os.path.exists(bundle):
            shutil.copytree(self.case.bundle, bundle)
            info = os.path.join(bundle, "Contents", "Info.plist")
            values = plistlib.loads(read(info)) | {"DaemonPath": self.socket}
            with open(info, "wb") as stream:
                plistlib.dump(values, stream)
        result = subprocess.run([CONTROL, "--bundle", bundle, *arguments], env=self.environment, capture_output=True,
                                stdin=subprocess.DEVNULL, text=True, timeout=PATIENCE, check=False)
        self.case.assertEqual(result.returncode, status, result.stdout + result.stderr + self.log())
        return result.stdout

    def state(self):
        return self.ask("daemonState")

    def node(self, path):
        return self.ask("dictionaryForPath:", path)

    def status(self, path):
        return (self.node(path) or {}).get("state")

    def versions(self, path):
        return [version["version"] for version in self.node(path).get("versions", [])]

    def select(self, path=None):
        """Selects a path, or all files, which starts a scan at once."""
        self.tell("addFileToBackup:", path or self.files)

    def walk(self, folder=None):
        """Yields the nodes of all files that the daemon knows."""
        for node in self.ask("childrenDictionariesForPath:", folder or self.files) or []:
            if node["isDirectory"] or node["backupFlags"] & 0x800:
                yield from self.walk(node["path"])
            else:
                yield node

    # --- Waiting ---

    def eventually(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not (answer := condition()):
            if time.monotonic() > end:
                self.case.fail(f"{what} did not come about: {self.state()}\n{self.log()}")
            time.sleep(0.02)
        return answer

    def becomes(self, path, status):
        self.eventually(lambda: (self.status(path) or "").startswith(status), f"{status!r} of {path}")

    def is_quiet(self):
        state = self.state()
        return not state["isBackupNeeded"] and state["health"] == "ready"

    def quiet(self):
        self.eventually(self.is_quiet, "quiet")

    def settle(self):
        """Starts a scan of everything, and waits until all is stored."""
        self.select()
        self.quiet()

    def stands(self, health):
        return self.eventually(lambda: (state := self.state())["health"] == health and state, f"health {health}")

    # --- The repository, read by restic alone ---

    def restic(self, *arguments, binary=False, check=True):
        command = [RESTIC, "--no-cache", "--no-lock", "--repo", self.repository, "--password-file", self.key_file, *arguments]
        environment = {"PATH": os.environ["PATH"], "HOME": self.home, "LANG": "C"}
        result = subprocess.run(command, env=environment, capture_output=True, timeout=PATIENCE, check=False)
        if check:
            self.case.assertEqual(result.returncode, 0, result.stderr.decode(errors="replace"))
        return result.stdout if binary else result.stdout.decode()

    def snapshots(self):
        """This computer's snapshots by number."""
        found = {}
        own = f"computer:{self.configuration()['computerNumber']}"
        for snapshot in json.loads(self.restic("snapshots", "--json")) or []:
            tags = snapshot.get("tags") or []
            if own in tags:
                number = next(int(tag[7:]) for tag in tags if tag.startswith("number:"))
                self.case.assertNotIn(number, found, "a number was used twice")
                found[number] = snapshot
        return found

    def stored(self, path, version):
        """The bytes of a version, read from the first snapshot that had it."""
        snapshots = self.snapshots()
        self.case.assertIn(version, snapshots)
        return self.restic("dump", snapshots[version]["id"], path, binary=True)

    def packs(self):
        folder = os.path.join(self.repository, "data")
        return [os.path.join(where, name) for where, _, names in os.walk(folder) for name in names]


class StorageCase(Case):
    def computer(self, *arguments, **options):
        return Computer(self, *arguments, **options)


def damage(pack, place=0.5):
    """Exchanges some bytes of a pack; the end of a pack lists its contents."""
    os.chmod(pack, 0o600)
    with open(pack, "r+b") as stream:
        stream.seek(int(os.path.getsize(pack) * place))
        block = stream.read(16)
        stream.seek(-len(block), os.SEEK_CUR)
        stream.write(bytes(byte ^ 0xFF for byte in block))
