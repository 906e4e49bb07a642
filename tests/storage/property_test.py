"""Random trees, edits, kills and faults of the repository. Every file that is called "Backed up" afterwards can be restored
byte for byte from the repository, or is no longer called so once a check has run.

KELDANE_SEED determines everything that happens, KELDANE_MOMENTS the number of faults."""

import collections
import hashlib
import os
import random
import re
import shutil
import signal
import subprocess
import time
import unittest

from daemon_client import Gone
from storage_harness import BACKED_UP, RESTIC, StorageCase, damage

SEED = int(os.environ.get("KELDANE_SEED", "20261122"))
MOMENTS = int(os.environ.get("KELDANE_MOMENTS", "15"))
NAMES = ["a", "b", "c", "ä ö", "*", "[x]", "q?", "back\\slash", " blank ", "n\nl"]
MOST_FILES = 60


def content_of(path):
    """The content of a file or link in short form; None when it is not there."""
    try:
        if os.path.islink(path):
            return "-> " + os.readlink(path)
        with open(path, "rb") as stream:
            return hashlib.sha256(stream.read()).hexdigest()
    except OSError:
        return None


class Tree:
    """The files of a computer, which are changed at random."""

    def __init__(self, folder, choice):
        self.folder, self.random = folder, choice

    def files(self):
        return sorted(os.path.join(where, name) for where, folders, names in os.walk(self.folder)
                      for name in names + [each for each in folders if os.path.islink(os.path.join(where, each))])

    def folders(self):
        return sorted(where for where, _, _ in os.walk(self.folder))

    def bytes(self):
        size = self.random.choice([0, 1, 100, 4000, 70_000, 600_000])
        return self.random.randbytes(size) if self.random.random() < 0.7 else b"the same again " * (size // 15)

    def edit(self):
        files = self.files()
        edits = [self.make, self.make] if len(files) < MOST_FILES else [self.remove]
        if files:
            edits += [self.overwrite, self.overwrite, self.append, self.disguise, self.move, self.remove, self.change_mode]
        self.random.choice(edits)()

    def make(self):
        folder = self.random.choice(self.folders())
        path = os.path.join(folder, self.random.choice(NAMES) + str(self.random.randrange(100)))
        if os.path.lexists(path):
            return
        kind = self.random.random()
        if kind < 0.2 and path.count("/") < self.folder.count("/") + 5:
            os.mkdir(path)
        elif kind < 0.3:
            os.symlink(self.random.choice(["nowhere", "a", "/etc/hostname"]), path)
        else:
            with open(path, "wb") as stream:
                stream.write(self.bytes())

    def a_file(self):
        return self.random.choice([path for path in self.files() if not os.path.islink(path)] or [None])

    def overwrite(self):
        if path := self.a_file():
            with open(path, "wb") as stream:
                stream.write(self.bytes())

    def append(self):
        if path := self.a_file():
            with open(path, "ab") as stream:
                stream.write(b"more")

    def disguise(self):
        """Writes other bytes with the same size and the same modification time."""
        if path := self.a_file():
            status = os.stat(path)
            with open(path, "r+b") as stream:
                stream.write(self.random.randbytes(min(status.st_size, 8)))
            os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))

    def move(self):
        path = self.random.choice(self.files() + self.folders()[1:])
        target = os.path.join(self.random.choice(self.folders()), "moved" + str(self.random.randrange(100)))
        if not os.path.lexists(target) and not target.startswith(path + "/"):
            os.rename(path, target)

    def remove(self):
        path = self.random.choice(self.files())
        os.unlink(path)

    def change_mode(self):
        if path := self.a_file():
            os.chmod(path, self.random.choice([0o600, 0o644, 0o755]))


class Witness:
    """Reads the repository with restic alone."""

    def __init__(self, computer):
        self.computer, self.restored = computer, {}

    def forget(self):
        for folder in self.restored.values():
            shutil.rmtree(folder)
        self.restored = {}

    def restore(self, snapshot, folder, *options):
        subprocess.run([RESTIC, "--no-cache", "--no-lock", "--quiet", "--repo", self.computer.repository, "--password-file",
                        self.computer.key_file, "restore", snapshot["id"], "--target", folder, *options],
                       capture_output=True, check=False)  # some may be damaged, and not called stored

    def content(self, snapshots, version, path):
        """The content of a path in the snapshot of that number."""
        if version not in snapshots:
            return "no such snapshot"
        if version not in self.restored:
            self.restored[version] = os.path.join(self.computer.home, "restored", str(version))
            self.restore(snapshots[version], self.restored[version])
        if (content := content_of(self.restored[version] + path)) is not None:
            return content
        # When the bytes of one file are lost, restic restores the other files only if they are asked for alone.
        alone = os.path.join(self.restored[version], "alone")
        self.restore(snapshots[version], alone, "--include", re.sub(r"([*?\[\\])", r"\\\1", path))
        return content_of(alone + path)


class Properties(StorageCase):
    def setUp(self):
        super().setUp()
        self.random = random.Random(SEED)
        self.one = self.computer().start()
        self.tree = Tree(self.one.files, self.random)
        self.witness = Witness(self.one)
        self.known = {}  # the content of each version that was ever called backed up
        self.happened = collections.Counter()
        self.claims = self.comparisons = 0

    # --- Faults ---

    def kill_daemon(self):
        self.one.kill()

    def kill_engine(self):
        for _ in range(100):
            for engine in self.one.engines():
                try:
                    os.kill(engine, self.random.choice([signal.SIGKILL, signal.SIGKILL, signal.SIGTERM, signal.SIGINT]))
                except ProcessLookupError:
                    pass
                return
            time.sleep(0.01)

    def move_repository_away(self):
        self.away(self.one.repository)

    def move_a_part_away(self):
        self.away(os.path.join(self.one.repository, self.random.choice(["locks", "index", "data", "snapshots", "keys"])))

    def away(self, folder):
        os.rename(folder, folder + ".away")
        time.sleep(self.random.uniform(0, 0.8))
        for _ in range(100):  # restic may have made the folder anew for a lock
            try:
                if os.path.isdir(folder):
                    shutil.copytree(folder, folder + ".away", dirs_exist_ok=True)
                    shutil.rmtree(folder)
                os.rename(folder + ".away", folder)
                return
            except OSError:
                time.sleep(0.01)

    def make_read_only(self):
        repository = self.one.repository
        if subprocess.run(["mount", "--bind", repository, repository], capture_output=True, check=False).returncode != 0:
            return
        subprocess.run(["mount", "-o", "remount,bind,ro", repository], capture_output=True, check=False)
        time.sleep(self.random.uniform(0, 0.8))
        subprocess.run(["umount", "-l", repository], capture_output=True, check=True)

    def damage_pack(self):
        packs = sorted(self.one.packs())
        if packs:
            damage(self.random.choice(packs), self.random.random())
        self.is_damaged = True

    def nothing(self):
        pass

    # --- A moment of the test ---

    def go_wrong(self):
        faults = {self.kill_daemon: 30, self.kill_engine: 25, self.move_repository_away: 10, self.move_a_part_away: 5,
                  self.make_read_only: 8, self.damage_pack: 15, self.nothing: 7}
        fault = self.random.choices(list(faults), list(faults.values()))[0]
        self.happened[fault.__name__] += 1
        time.sleep(self.random.choice([0, self.random.uniform(0, 0.6)]))
        fault()

    def check(self):
        """Repeats a check until it has run, because the remains of the fault may prevent it at first."""
        for _ in range(30):
            answer = self.one.owner("check:", mode="data")
            if "error" not in answer:
                self.witness.forget()
                return
            time.sleep(1)
        self.fail(f"no check runs: {answer}")

    def settle(self):
        if self.one.process.poll() is not None:
            self.one.hang_up()
            self.one.start()
        self.one.repository_page(probe=True)  # a person's request, so that the daemon tries at once
        if self.is_damaged:
            self.check()
            self.is_damaged = False
        self.one.settle()

    def verify(self, moment):
        snapshots = self.one.snapshots()
        wrong = []
        nodes = {node["path"]: node for node in self.one.walk()}
        for path in self.tree.files():
            node = nodes.get(path, {"state": None})
            if node["state"] != BACKED_UP:
                wrong.append((path, node["state"]))
                continue
            self.claims += 1
            self.known[path, node["version"]] = content_of(path)
        everything = moment % 10 == 9 or moment == MOMENTS - 1
        for path, node in nodes.items():
            if node["state"] == BACKED_UP and not everything:
                listed = [node["version"]]
            else:
                listed = self.one.versions(path) if "version" in node else []
            for version in listed:
                stored = self.witness.content(snapshots, version, path)
                self.comparisons += 1
                expected = self.known.get((path, version), stored)  # never called so if it changed at once
                if stored is None or stored != expected:
                    wrong.append((path, node["state"], version, stored, expected))
        self.assertEqual(wrong, [], f"moment {moment}, seed {SEED}: {self.happened}\n{self.one.log()[-3000:]}")

    def test_what_is_called_backed_up_restores(self):
        print(f"\nseed {SEED}, moments {MOMENTS}", flush=True)
        self.is_damaged = False
        for moment in range(MOMENTS):
            for _ in range(self.random.randrange(1, 12)):
                self.tree.edit()
            try:
                self.one.select()
                if self.random.random() < 0.3 and (path := self.tree.a_file()):
                    self.one.tell("setPriorityBackup:", path)
            except Gone:
                pass
            self.go_wrong()
            self.settle()
            self.verify(moment)
        print(f"{dict(self.happened)}, snapshots {len(self.one.snapshots())}, called backed up {self.claims}, "
              f"compared {self.comparisons}", flush=True)


if __name__ == "__main__":
    unittest.main()
