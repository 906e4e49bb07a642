"""Tests each row of the table in docs/files.md, with the installed daemon and the real storage program."""

import json
import os
import shutil
import socket
import stat
import unittest

from storage_harness import BACKED_UP, QUICK, StorageCase, read, write_private


class Files(StorageCase):
    def setUp(self):
        super().setUp()
        self.one = self.computer().start()
        self.target = os.path.join(self.one.home, "target")
        os.mkdir(self.target)

    def path(self, name):
        return os.path.join(self.one.files, name)

    def store(self, *names):
        """Selects these paths, or everything, and waits until they are stored."""
        paths = [os.path.normpath(self.path(name)) for name in names or ["."]]
        for path in paths:
            self.one.select(path)
        for path in paths:
            self.one.becomes(path, BACKED_UP)
        self.one.quiet()

    def restore(self, name, *options, status=0):
        self.one.control("restore", self.path(name), "--to", self.target, *options, status=status)
        return os.path.join(self.target, os.path.basename(name))

    def held(self, name="."):
        """The items of the newest snapshot at or below a path, relative to the files, with their types."""
        newest = self.one.snapshots()[max(self.one.snapshots())]["id"]
        below = os.path.normpath(self.path(name))
        nodes = [json.loads(line) for line in self.one.restic("ls", "--json", newest).splitlines()]
        return {os.path.relpath(node["path"], self.one.files): node["type"] for node in nodes
                if node.get("path", "").startswith(below + "/")}


class Links(Files):
    def test_a_link_is_stored_and_what_it_leads_to_is_not(self):
        outside = os.path.join(self.one.home, "outside")
        os.mkdir(outside)
        with open(os.path.join(outside, "file"), "w", encoding="ascii") as stream:
            stream.write("outside")
        self.one.write("left/out", "out")
        self.one.write("d/in", "in")
        for name, leads_to in (("away", outside), ("excluded", "../left/out"), ("folder", "../left"), ("nowhere", "none"),
                               ("self", "self"), ("in", "in-d")):
            os.symlink(leads_to, self.path("d/link-" + name))
        self.one.ask("excludeFileFromBackup:", self.path("left"), returns="I")
        self.store("d")
        held = self.held()
        self.assertEqual({name for name in held if name.startswith("d/")},
                         {"d/in", *(f"d/link-{name}" for name in ("away", "excluded", "folder", "nowhere", "self", "in"))})
        self.assertNotIn("left/out", held)
        self.assertNotIn("outside/file", held)
        self.assertEqual(self.one.status(self.path("d/link-folder")), BACKED_UP)
        there = self.restore("d")
        self.assertEqual(os.readlink(os.path.join(there, "link-excluded")), "../left/out")
        self.assertEqual(os.readlink(os.path.join(there, "link-nowhere")), "none")

    def test_an_excluded_link_is_left_out_and_what_it_leads_to_is_not(self):
        self.one.write("d/in", "in")
        os.symlink("in", self.path("d/link"))
        self.one.select(self.path("d"))
        self.one.ask("excludeFileFromBackup:", self.path("d/link"), returns="I")
        self.store("d")
        self.assertEqual([name for name in self.held("d") if name.startswith("d/")], ["d/in"])

    def test_a_link_that_is_included_itself_is_stored_as_a_link(self):
        self.one.write("left/out", "out")
        os.symlink("left", self.path("link"))
        self.store("link")
        self.one.becomes(self.path("link"), BACKED_UP)
        self.assertEqual({name: kind for name, kind in self.held().items() if kind != "dir"}, {"link": "symlink"})

    def test_hard_links_are_each_stored_and_come_back_as_one_file(self):
        first = self.one.write("d/first", "x" * 5000)
        os.link(first, self.path("d/second"))
        os.link(first, self.path("left-out"))
        self.store("d")
        self.assertEqual([self.one.status(self.path(name)) for name in ("d/first", "d/second")], [BACKED_UP] * 2)
        self.assertNotIn("left-out", self.held())
        there = self.restore("d")
        self.assertEqual(read(os.path.join(there, "first")), b"x" * 5000)
        self.assertEqual(os.stat(os.path.join(there, "first")).st_ino, os.stat(os.path.join(there, "second")).st_ino)
        # Links that are restored separately become files of their own.
        shutil.rmtree(there)
        self.assertEqual(os.stat(self.restore("d/second")).st_nlink, 1)


class Kinds(Files):
    def test_special_files_go_with_their_folder_and_sockets_do_not(self):
        self.one.write("d/file", "file")
        os.mkfifo(self.path("d/pipe"))
        if os.geteuid() == 0:
            os.mknod(self.path("d/device"), stat.S_IFCHR | 0o600, os.makedev(1, 3))
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path("d/socket"))
        self.store("d")
        states = {node["fileName"]: node["state"] for node in self.one.ask("childrenDictionariesForPath:", self.path("d"))}
        self.assertEqual(states["pipe"], "Pipe, goes with its folder")
        self.assertEqual(states["socket"], "Socket, never backed up")
        self.assertEqual(self.one.state()["pendingFileCount"], 0)
        self.assertEqual(self.one.state()["backedUpFileCount"], 1)
        held = self.held("d")
        self.assertEqual((held["d/file"], held["d/pipe"]), ("file", "fifo"))
        self.assertNotIn("d/socket", held)
        if os.geteuid() == 0:
            there = self.restore("d")
            self.assertTrue(stat.S_ISFIFO(os.lstat(os.path.join(there, "pipe")).st_mode))
            self.assertEqual(os.lstat(os.path.join(there, "device")).st_rdev, os.makedev(1, 3))

    def test_holes_are_read_as_zeros_and_come_back(self):
        path = self.one.write("sparse", "begin")
        os.truncate(path, 64 << 20)
        with open(path, "r+b") as stream:
            stream.seek((64 << 20) - 3)
            stream.write(b"end")
        self.store()
        self.one.becomes(path, BACKED_UP)
        there = self.restore("sparse")
        self.assertEqual(read(there), read(path))
        self.assertLess(os.stat(there).st_blocks * 512, 4 << 20)

    def test_empty_folders_and_their_dates_come_back_with_what_is_around_them(self):
        self.one.write("d/file", "file")
        os.mkdir(self.path("d/empty"), 0o750)
        os.utime(self.path("d/empty"), (1_000_000_000, 1_000_000_000))
        self.store()
        there = os.path.join(self.restore("d"), "empty")
        self.assertEqual(os.stat(there).st_mtime_ns, 1_000_000_000 * 10**9)
        self.assertEqual(stat.S_IMODE(os.stat(there).st_mode), 0o750)


class Dates(Files):
    DATES = {"zero": 0, "negative": -1, "old": -2_000_000_000, "far": 4_000_000_000, "past-2262": 9_300_000_000,
             "to-the-nanosecond": 1_700_000_000}

    def test_strange_dates_are_stored_and_come_back(self):
        dates = {}
        for name, seconds in self.DATES.items():
            path = self.one.write("d/" + name, name)
            moment = seconds * 10**9 + (123_456_789 if name == "to-the-nanosecond" else 0)
            os.utime(path, ns=(moment, moment))
            dates[name] = os.stat(path).st_mtime_ns  # the date as this file system stores it
        self.store()
        for name in dates:
            self.assertEqual(self.one.status(self.path("d/" + name)), BACKED_UP, name)
        there = self.restore("d")
        for name, moment in dates.items():
            self.assertEqual(read(os.path.join(there, name)), name.encode())
            if name != "past-2262":  # later dates are stored, but the storage program cannot set them
                self.assertEqual(os.stat(os.path.join(there, name)).st_mtime_ns, moment, name)
        # They stay stored for a daemon that scans again, and for one that knows only the repository.
        highest = max(self.one.snapshots())
        self.one.terminate()
        for suffix in ("", "-wal", "-shm"):
            if os.path.exists(self.one.store + suffix):
                os.unlink(self.one.store + suffix)
        self.one.start()
        self.one.settle()
        self.assertEqual(max(self.one.snapshots()), highest, "nothing was stored again")


class Names(Files):
    RAW = [b"caf\xe9", b"caf\xe8", b"\xff\xfe", b"line\nfeed \x80", b"\xc3", b"folder\xff/file", b"folder\xfe/file",
           "told \ufffd".encode(), b"told \xe9"]

    def write_raw(self):
        top = os.fsencode(self.path("d"))
        for name in self.RAW:
            os.makedirs(os.path.dirname(os.path.join(top, name)), exist_ok=True)
            with open(os.path.join(top, name), "wb") as stream:
                stream.write(b"in " + name)
        return top

    def contents(self, top):
        found = {}
        for folder, _, names in os.walk(os.fsencode(top)):
            for name in names:
                path = os.path.join(folder, name)
                found[os.path.relpath(path, os.fsencode(top))] = read(path)
        return found

    def test_names_of_any_bytes_are_stored_and_come_back_with_their_folder(self):
        top = self.write_raw()
        self.store()
        self.assertEqual(self.one.state()["failureCount"], 0)
        self.assertEqual(self.one.state()["backedUpFileCount"], len(self.RAW))
        self.assertEqual(self.one.status(self.path("d")), BACKED_UP)
        newest = self.one.snapshots()[max(self.one.snapshots())]["id"]
        for name in self.RAW:
            self.assertEqual(self.one.restic("dump", newest, os.path.join(top, name), binary=True), b"in " + name)
        listed = [node["path"] for node in self.one.ask("childrenDictionariesForPath:", self.path("d"))]
        self.assertEqual(listed, [self.path("d/told \ufffd")])
        found = {os.path.basename(entry["path"]) for entry in self.one.owner("find:", pattern="caf*")["entries"]}
        self.assertEqual(found, {"caf\\xe9", "caf\\xe8"}, "in a list for people they are told apart")
        self.assertEqual(self.contents(self.restore("d")), {name: b"in " + name for name in self.RAW})

    def test_a_change_in_one_of_two_that_look_alike_is_stored(self):
        top = self.write_raw()
        self.store()
        before = max(self.one.snapshots())
        with open(os.path.join(top, b"caf\xe9"), "wb") as stream:
            stream.write(b"changed")
        self.store()
        self.one.eventually(lambda: max(self.one.snapshots()) > before and self.one.is_quiet(), "another backup")
        there = self.contents(self.restore("d"))
        self.assertEqual((there[b"caf\xe9"], there[b"caf\xe8"]), (b"changed", b"in caf\xe8"))

    def test_one_of_two_that_look_alike_and_cannot_be_stored_does_not_count(self):
        top = self.write_raw()
        # This storage program stores one of the two files and reports the same as for both.
        hidden = os.path.join(self.one.home, "hidden")
        self.one.terminate()
        self.one.tool("restic", f"""#!/bin/bash
case "$*" in *backup*) mv {self.path("d")}/$'caf\\xe8' {hidden}; {shutil.which("restic")} "$@"; end=$?
  mv {hidden} {self.path("d")}/$'caf\\xe8'; exit $end;; esac
exec {shutil.which("restic")} "$@"
""")
        self.one.start()
        self.one.select()
        self.one.eventually(lambda: self.one.state()["backedUpFileCount"] == len(self.RAW) - 1, "the others")
        self.assertNotEqual(self.one.status(self.path("d")), BACKED_UP)

    def test_they_come_back_on_a_new_computer_too(self):
        self.write_raw()
        self.store()
        highest = max(self.one.snapshots())
        self.one.terminate()
        new = self.computer("new", repository=None)
        new.root = self.place
        new.start()
        key = os.path.join(self.place, "kept-key")
        write_private(key, QUICK["kKey"] + "\n")
        new.control("recover", self.one.repository, "--key", key)
        new.eventually(lambda: new.has_catalogue(highest), "the catalogue")
        new.control("restore", self.path("d"), "--to", self.target)
        self.assertEqual(self.contents(os.path.join(self.target, "d")), {name: b"in " + name for name in self.RAW})


if __name__ == "__main__":
    unittest.main()
