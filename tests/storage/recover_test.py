"""A computer is lost: another one finds out from the repository and its key alone which files were stored. Other set-ups,
too."""

import json
import os
import unittest

from storage_harness import BACKED_UP, DELETED, QUICK, StorageCase, read, write_private


class Recovery(StorageCase):
    def setUp(self):
        super().setUp()
        self.old = self.computer("old", host="alpha", number=41).start()
        for name in ("a", "d/b", "gone"):
            self.old.write(name, "first " + name)
        self.old.tell("setFileTypeToggle:toggle:", ".o", ("I", 7))
        self.old.settle()
        self.old.write("a", "second")
        os.unlink(os.path.join(self.old.files, "gone"))
        self.old.settle()
        self.old.write("a", "third")
        self.old.settle()
        self.nodes = {node["path"]: self.old.node(node["path"]) for node in self.old.walk()}
        self.highest = max(self.old.snapshots())
        self.old.terminate()

    def new(self):
        """A computer with the same folder of files as the old one, so that paths are the same, and nothing else of it."""
        new = self.computer("new", repository=None)
        new.root = self.place
        return new.start()

    def recover(self, new, *options):
        key = os.path.join(self.place, "kept-key")
        write_private(key, QUICK["kKey"] + "\n")
        new.control("recover", self.old.repository, "--key", key, *options)
        new.eventually(lambda: new.has_catalogue(self.highest), "the catalogue")

    def known(self, new):
        return {path: new.node(path) for path in self.nodes}

    @staticmethod
    def what_counts(nodes):
        """The parts of a node that are the same on every computer."""
        return {path: (node["version"], node["backupDate"], node["versions"]) for path, node in nodes.items()}

    def test_another_computer_knows_all_and_leaves_all_as_it_is(self):
        new = self.new()
        snapshots = self.old.snapshots()
        self.recover(new)
        self.assertEqual(self.what_counts(self.known(new)), self.what_counts(self.nodes))
        self.assertTrue(new.state()["recoverMode"])
        self.assertRegex(new.state()["statusString"], "Recovered: nothing is backed up or forgotten")
        self.assertEqual(new.ask("getFileTypeToggle:", ".o", returns="I"), 7)
        # A change stays pending until a person resumes.
        changed = self.old.write("a", "after the recovery")
        new.tell("addFileToBackup:", self.old.files)
        self.assertNotEqual(new.status(changed), BACKED_UP)
        self.assertEqual(self.old.snapshots(), snapshots)
        new.tell("setRecoverMode:", ("c", 0))
        new.becomes(changed, BACKED_UP)
        self.assertEqual(self.old.snapshots(), snapshots, "it goes on under a number of its own")
        own = new.snapshots()
        self.assertNotEqual(new.configuration()["computerNumber"], 41)
        self.assertGreater(min(own), self.highest)
        self.assertEqual(new.stored(changed, new.versions(changed)[0]), b"after the recovery")
        # The daemon still knows the former computer's backups after a restart.
        new.terminate()
        new.start()
        new.settle()
        self.assertEqual(new.versions(changed)[1:], [each["version"] for each in self.nodes[changed]["versions"]])

    def test_the_old_number_is_taken_over_when_asked(self):
        new = self.new()
        self.recover(new, "--take-over")
        self.assertEqual(self.what_counts(self.known(new)), self.what_counts(self.nodes))
        new.tell("setRecoverMode:", ("c", 0))
        fresh = self.old.write("fresh", "fresh")
        new.tell("addFileToBackup:", self.old.files)
        new.becomes(fresh, BACKED_UP)
        self.assertEqual(new.configuration()["computerNumber"], 41)
        self.assertIn(self.highest + 1, new.snapshots())
        self.assertEqual(new.versions(fresh), [new.node(fresh)["version"]])
        self.assertGreater(new.node(fresh)["version"], self.highest)

    def test_what_was_recovered_is_restored(self):
        new = self.new()
        self.recover(new)
        target = os.path.join(new.home, "target")
        os.mkdir(target)
        gone, path = os.path.join(self.old.files, "gone"), os.path.join(self.old.files, "a")
        self.assertEqual(new.status(gone), DELETED)
        new.control("restore", gone, "--to", target)
        self.assertEqual(read(os.path.join(target, "gone")), b"first gone")
        new.control("restore", path, "--version", str(new.versions(path)[-1]), "--to", target)
        self.assertEqual(read(os.path.join(target, "a")), b"first a")

    def test_a_wrong_key_harms_nothing(self):
        new = self.new()
        path = new.write("own", "own")
        new.tell("addFileToBackup:", new.files)
        new.becomes(path, BACKED_UP)
        before = (new.configuration(), read(new.key_file), new.node(path))
        wrong = os.path.join(new.home, "wrong")
        write_private(wrong, "B" * 52)
        for command in (("recover", self.old.repository, "--key", wrong),
                        ("setup", "--repository", self.old.repository, "--adopt", "--key", wrong),
                        ("recover", os.path.join(self.place, "nothing"), "--key", new.key_file)):
            new.control(*command, status=1)
        self.assertEqual((new.configuration(), read(new.key_file), new.node(path)), before)
        self.assertFalse(new.state()["recoverMode"])
        self.assertEqual(new.state()["health"], "ready")
        self.assertFalse(os.path.exists(os.path.join(self.place, "nothing")))

    def test_one_of_several_computers_has_to_be_named(self):
        other = self.computer("other", repository=self.old.repository, host="beta", number=55).start()
        other.write("x", "x")
        other.settle()
        other.terminate()
        new = self.new()
        key = os.path.join(self.place, "kept-key")
        write_private(key, QUICK["kKey"])
        listed = json.loads(new.control("recover", self.old.repository, "--key", key, "--json", status=1).splitlines()[0])
        self.assertEqual([(each["computerNumber"], each["hostName"]) for each in listed["computers"]],
                         [(41, "alpha"), (55, "beta")])
        self.assertFalse(new.state()["recoverMode"])
        self.recover(new, "--computer", "41")
        self.assertEqual(self.what_counts(self.known(new)), self.what_counts(self.nodes))
        self.assertNotIn("version", new.node(os.path.join(other.files, "x")))


class Places(StorageCase):
    def test_another_place_begins_anew_and_the_first_can_be_taken_up_again(self):
        one = self.computer().start()
        path = one.write("a", "first")
        one.settle()
        first, node, number = one.repository, one.node(path), one.configuration()["computerNumber"]
        elsewhere = os.path.join(one.home, "elsewhere")
        one.control("setup", "--repository", elsewhere)
        one.becomes(path, BACKED_UP)
        self.assertEqual(one.repository, elsewhere)
        self.assertEqual(one.stored(path, one.versions(path)[0]), b"first")
        self.assertEqual(len(one.versions(path)), 1)
        self.assertGreater(one.versions(path)[0], node["version"], "a number is never used again")
        one.control("setup", "--repository", elsewhere, status=1)  # a missing repository is never made anew
        one.control("setup", "--repository", first, "--adopt", "--key", one.key_file)
        one.eventually(lambda: one.versions(path) and one.is_quiet(), "the first catalogue")
        self.assertEqual((one.repository, one.configuration()["computerNumber"]), (first, number))
        self.assertIn(node["versions"][0], one.node(path)["versions"])
        self.assertEqual(one.stored(path, node["version"]), b"first")

    def test_a_folder_that_is_in_use_is_not_made_a_repository(self):
        one = self.computer().start()
        path = one.write("a", "first")
        one.settle()
        full = os.path.join(one.home, "full")
        os.mkdir(full)
        with open(os.path.join(full, "thesis"), "w", encoding="ascii") as stream:
            stream.write("all of it")
        before = one.configuration()
        one.control("setup", "--repository", full, status=1)
        self.assertEqual((one.configuration(), os.listdir(full)), (before, ["thesis"]))
        self.assertEqual(one.status(path), BACKED_UP)


if __name__ == "__main__":
    unittest.main()
