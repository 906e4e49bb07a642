"""Failures while files are stored. Each is reported in plain words, pending files stay pending, no file counts as stored
that is not, and everything goes on by itself when the cause is gone."""

import os
import random
import shutil
import signal
import subprocess
import time
import unittest

from storage_harness import (BACKED_UP, FAILED, QUICK, RESTIC, WAITING, StorageCase, children_of, command_line,
                             damage, locks_in, read, write_private)

PROMPT = 5  # seconds in which a run of the storage program ends that is no longer wanted


def noise(size, seed=1):
    return random.Random(seed).randbytes(size)


class Failures(StorageCase):
    def begun(self, **options):
        """A computer with one stored file, and a client that receives alerts."""
        one = self.computer(**options).start()
        self.path = one.write("a", "first")
        one.settle()
        one.becomes(self.path, BACKED_UP)
        self.listener = one.listen()
        return one

    def fails(self, one, health, words):
        """Checks that a change is not stored, and that this is reported."""
        before = one.node(self.path)["version"]
        one.write("a", "second")
        one.select()
        state = one.stands(health)
        self.assertRegex(state["statusString"], words)
        self.assertGreaterEqual(state["pendingFileCount"], 1)
        self.assertTrue(state["isBackupNeeded"])
        node = one.node(self.path)
        self.assertEqual((node["state"], node["version"]), (WAITING, before))
        alert = self.listener.wait(lambda alert: alert["kind"] == "repository", "of " + health)
        self.assertRegex(alert["text"], words)

    def is_over(self, one):
        """Checks that the failure ends by itself and that pending files are stored."""
        one.becomes(self.path, BACKED_UP)
        one.quiet()
        self.listener.wait(lambda alert: "can be used again" in alert["text"], "that it is over")
        self.assertEqual(one.stored(self.path, one.versions(self.path)[0]), read(self.path))


class OfTheRepository(Failures):
    def test_a_wrong_key(self):
        one = self.begun()
        write_private(one.key_file, "A" * 52)
        self.fails(one, "wrongKey", "key does not open")
        self.assertNotIn("A" * 52, one.log())
        write_private(one.key_file, QUICK["kKey"])
        self.is_over(one)

    def test_a_repository_that_is_gone_is_never_made_anew(self):
        one = self.begun()
        repository, away = one.repository, os.path.join(one.home, "away")
        os.rename(repository, away)
        self.fails(one, "missing", "gone")
        os.mkdir(repository)  # an empty mount point
        page = one.repository_page(probe=True)
        self.assertEqual(page["health"], "missing")
        one.terminate()
        one.start()
        self.listener = one.listen()
        one.stands("missing")
        self.assertEqual(one.status(self.path), WAITING)
        self.assertEqual(os.listdir(repository), [])
        os.rmdir(repository)
        os.rename(away, repository)
        self.is_over(one)

    def test_a_disk_that_is_not_connected(self):
        one = self.begun()
        one.configure(fileSystemUuid="01234567-89ab-cdef-0123-456789abcdef")
        self.fails(one, "notConnected", "not connected")
        one.configure(fileSystemUuid="")
        self.is_over(one)

    def test_another_repository_at_its_place(self):
        one = self.begun()
        one.configure(repositoryId="0" * 64)
        one.write("a", "second")
        one.repository_page(probe=True)
        self.assertRegex(one.stands("otherRepository")["statusString"], "Another repository")
        one.configure(repositoryId=QUICK["kId"])
        one.select()
        self.is_over(one)

    def test_a_lock_of_a_living_program_is_waited_for_and_a_dead_ones_removed(self):
        one = self.begun()
        for _ in range(50):  # until a run is stopped while it holds its lock
            holder = subprocess.Popen([RESTIC, "--no-cache", "--repo", one.repository, "--password-file", one.key_file,
                                       "check", "--read-data"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            while holder.poll() is None and not locks_in(one.repository):
                pass
            holder.send_signal(signal.SIGSTOP)
            if holder.poll() is None and locks_in(one.repository):
                break
            holder.kill()
            holder.wait()
        self.addCleanup(holder.wait)
        self.addCleanup(holder.kill)
        self.assertTrue(locks_in(one.repository))
        self.fails(one, "locked", "in use by another")
        self.assertTrue(locks_in(one.repository), "nobody else's lock is removed")
        holder.kill()
        holder.wait()
        self.is_over(one)
        one.eventually(lambda: not locks_in(one.repository), "a repository without locks")

    def test_a_full_disk(self):
        one = self.begun()
        disk, repository = os.path.join(one.home, "disk"), one.repository
        os.mkdir(disk)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "none", disk], capture_output=True,
                          check=False).returncode != 0:
            self.skipTest("nothing may be mounted here")
        self.addCleanup(subprocess.run, ["umount", "-l", disk], check=False)
        shutil.copytree(repository, os.path.join(disk, "repository"))
        one.configure(location=os.path.join(disk, "repository"))
        big = one.write("big", noise(6_000_000))
        self.fails(one, "full", "No room is left")
        self.assertEqual(one.status(big), WAITING)
        subprocess.run(["mount", "-o", "remount,size=40m", disk], check=True)
        self.is_over(one)
        self.assertEqual(one.stored(big, one.versions(big)[0]), read(big))
        self.assertIn("no errors were found", one.restic("check", "--read-data"))

    def test_a_used_up_quota(self):
        one = self.begun()
        one.write("big", noise(3_000_000))
        one.settle()
        one.owner("settings:", quotaMB=1)
        self.fails(one, "full", "quota")
        self.assertTrue(one.state()["isOverQuota"])
        one.owner("settings:", quotaMB=100)
        self.is_over(one)

    def test_a_repository_that_may_not_be_used(self):
        if os.getuid() != 0:
            self.skipTest("only root can run a daemon as somebody else")
        one = self.begun(user=12345)
        os.chmod(os.path.join(one.repository, "locks"), 0)
        self.fails(one, "denied", "access is refused")
        os.chmod(os.path.join(one.repository, "locks"), 0o700)
        self.is_over(one)

    def test_a_damaged_pack(self):
        one = self.begun()
        known = set(one.packs())
        other = one.write("b", noise(50_000))
        one.settle()
        # The largest of the new packs holds the contents.
        pack = max(set(one.packs()) - known, key=os.path.getsize)
        damage(pack)
        self.assertEqual(one.status(other), BACKED_UP, "nobody can know yet")
        version = one.node(other)["version"]
        one.control("check")  # checks the structure only
        self.assertIn("damaged", one.control("check", "--data", status=1))
        self.listener.wait(lambda alert: alert["kind"] == "stored" and "damaged" in alert["text"], "of the damage")
        self.assertNotIn(version, one.versions(other), "that version cannot be had back")
        one.becomes(other, BACKED_UP)
        newest = one.versions(other)[0]
        self.assertGreater(newest, version)
        self.assertEqual(one.stored(other, newest), read(other))
        one.quiet()
        one.owner("check:", mode="data")  # old versions stay lost, everything else is stored
        self.assertEqual([one.status(path) for path in (self.path, other)], [BACKED_UP, BACKED_UP])
        self.assertEqual(one.versions(other)[0], newest)

    def test_a_drill_finds_damage_and_what_is_stored_anew_does_not_rest_on_it(self):
        one = self.begun()
        known = set(one.packs())
        other = one.write("b", noise(50_000))
        one.settle()
        damage(max(set(one.packs()) - known, key=os.path.getsize))
        version = one.versions(other)[0]
        one.control("check", "--drill", "--sample", "10", status=1)
        self.listener.wait(lambda alert: "could not be had back" in alert["text"], "of the drill")
        one.becomes(other, BACKED_UP)
        one.quiet()
        self.assertGreater(one.versions(other)[0], version)
        self.assertEqual(one.stored(other, one.versions(other)[0]), read(other))
        one.control("check", "--drill", "--sample", "10")


class OfTheEngine(Failures):
    def without_restic(self):
        one = self.computer()
        one.environment["PATH"] = one.tools
        os.symlink(RESTIC, os.path.join(one.tools, "restic"))
        return one

    def begin(self, one):
        one.start()
        self.path = one.write("a", "first")
        one.settle()
        self.listener = one.listen()

    def test_it_is_missing(self):
        one = self.without_restic()
        self.begin(one)
        os.unlink(os.path.join(one.tools, "restic"))
        self.fails(one, "engineMissing", "restic is not installed")
        os.symlink(RESTIC, os.path.join(one.tools, "restic"))
        self.is_over(one)

    def test_it_is_too_old(self):
        one = self.without_restic()
        self.begin(one)
        one.tool("restic", "#!/bin/sh\necho 'restic 0.12.1 compiled with go1.16 on linux/amd64'\n")
        self.fails(one, "engineTooOld", "too old.*0.12.1")
        one.tool("restic", f'#!/bin/sh\nexec {RESTIC} "$@"\n')
        self.is_over(one)

    def test_it_is_missing_at_the_first_start(self):
        one = self.computer(repository=None)
        one.environment["PATH"] = one.tools
        self.path = one.write("a", "first")
        one.start()
        self.listener = one.listen()
        one.select()
        one.stands("engineMissing")
        os.symlink(RESTIC, os.path.join(one.tools, "restic"))
        self.is_over(one)

    def test_it_is_killed_in_the_middle(self):
        one = self.begun()
        big = os.path.join(one.files, "big")
        with open(big, "wb") as stream:
            stream.truncate(1 << 30)  # reading this takes a while
        one.select()
        one.eventually(lambda: locks_in(one.repository) and one.engines(), "a run that has its lock")
        for engine in one.engines():
            os.kill(engine, signal.SIGKILL)
        state = one.stands("failed")
        self.assertRegex(state["statusString"], "signal 9")
        self.assertEqual(one.status(big), WAITING)
        os.truncate(big, 1000)
        one.select()
        self.path = big
        self.is_over(one)
        one.control("check")  # the check needs the repository for itself
        one.eventually(lambda: not locks_in(one.repository), "a repository without locks")

    def test_pause_off_and_the_end_cancel_what_runs(self):
        one = self.begun()
        slow = '#!/bin/sh\ncase "$*" in *" backup "*) exec sleep 60;; esac\n' f'exec {RESTIC} "$@"\n'
        plain = f'#!/bin/sh\nexec {RESTIC} "$@"\n'

        def runs():
            return [child for child in children_of(one.process.pid) if "sleep" in command_line(child)]

        cancels = {
            "Paused": (lambda: one.tell("setPausedMinutes:", ("I", 10)), lambda: one.tell("setPausedMinutes:", ("I", 0))),
            "Backup is switched off": (lambda: one.tell("setEnabled:", ("c", 0)), lambda: one.tell("setEnabled:", ("c", 1))),
            "": (lambda: self.assertEqual(one.terminate(), 0), one.start),
        }
        for word, (cancel, go_on) in cancels.items():
            one.tool("restic", slow)
            one.write("a", "changed " + word)
            one.select()
            children = one.eventually(runs, "a batch")
            began = time.monotonic()
            cancel()
            while any(os.path.exists(f"/proc/{child}") for child in children):
                self.assertLess(time.monotonic() - began, PROMPT, word)
                time.sleep(0.01)
            if word:
                self.assertEqual(one.state()["statusString"], word)
                self.assertEqual(one.status(self.path), WAITING)
                self.assertEqual(runs(), [])
            one.tool("restic", plain)
            go_on()
            one.becomes(self.path, BACKED_UP)
            self.assertEqual(one.stored(self.path, one.versions(self.path)[0]), read(self.path))
        self.assertEqual([alert for alert in self.listener.alerts() if alert["kind"] == "repository"], [])


class OfAFile(Failures):
    def test_a_file_that_cannot_be_read_is_its_own_failure(self):
        if os.getuid() != 0:
            self.skipTest("only root can run a daemon as somebody else")
        one = self.computer(user=12345).start()
        closed, open_ = one.write("closed", "secret"), one.write("open", "open")
        os.chmod(closed, 0)
        one.settle()
        one.becomes(open_, BACKED_UP)
        one.becomes(closed, FAILED)
        self.assertRegex(one.status(closed), "(?i)permission denied")
        self.assertEqual(one.state()["statusString"], "Up to date, but 1 file could not be backed up")
        self.assertEqual(one.state()["health"], "ready")
        failures = one.owner("failures:")
        self.assertEqual([entry["path"] for entry in failures["entries"]], [closed])
        self.assertIn(closed, one.control("failures"))
        os.chmod(closed, 0o600)
        one.settle()
        one.becomes(closed, BACKED_UP)
        self.assertEqual(one.owner("failures:")["count"], 0)
        self.assertEqual(one.stored(closed, one.versions(closed)[0]), b"secret")

    def test_files_that_vanish_or_change_while_they_are_stored(self):
        one = self.computer()
        paths = [one.write(name, name) for name in ("gone", "grown", "exchanged", "other")]
        once = os.path.join(one.home, "once")
        one.tool("restic", f"""#!/bin/sh
case "$*" in *" backup "*) if [ ! -e {once} ]; then
  touch {once}
  rm {paths[0]}; echo more >>{paths[1]}; echo anew >{paths[2]}.new; mv {paths[2]}.new {paths[2]}
fi;; esac
exec {RESTIC} "$@"
""")
        one.start()
        one.settle()
        self.assertIsNone(one.node(paths[0]))
        for path in paths[1:]:
            one.becomes(path, BACKED_UP)
            self.assertEqual(one.stored(path, one.versions(path)[0]), read(path))
        self.assertEqual(one.owner("failures:")["count"], 0)
        self.assertEqual(one.state()["statusString"], "Up to date")


class OfTheMachine(Failures):
    def test_the_daemon_is_killed_at_moments_of_a_batch(self):
        one = self.begun()
        for moment in (0, 0.03, 0.07, 0.12, 0.2, 0.35):
            one.write("a", f"at {moment}")
            fresh = one.write(f"fresh {moment}", noise(100_000, moment))
            one.select()
            time.sleep(moment)
            engines = one.engines()
            one.kill()
            one.case.assertTrue(wait_until(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in engines)),
                                "what it runs ends with it")
            one.start()
            one.settle()
            for path in (self.path, fresh):
                one.becomes(path, BACKED_UP)
                self.assertEqual(one.stored(path, one.versions(path)[0]), read(path))
        self.assertIn("no errors were found", one.restic("check", "--read-data"))

    def test_a_clock_that_is_set_back(self):
        one = self.computer()
        one.set_clock(0)
        one.start()
        path = one.write("a", "first")
        one.settle()
        for day in (-10, 20, -3000):
            one.set_clock(day * 86400)
            one.write("a", f"day {day}")
            one.settle()
            one.becomes(path, BACKED_UP)
        versions = one.versions(path)
        self.assertEqual(len(versions), 4)
        self.assertEqual(versions, sorted(versions, reverse=True))
        self.assertEqual(one.stored(path, versions[0]), b"day -3000")
        self.assertEqual(one.stored(path, versions[3]), b"first")
        self.assertEqual(one.state()["health"], "ready")

    def test_an_old_backup_is_told(self):
        one = self.begun()
        one.terminate()
        away = os.path.join(one.home, "away")
        os.rename(one.repository, away)
        one.set_clock(5 * 86400)
        one.start()
        one.eventually(lambda: "The last good backup is 5 days old." in one.log(), "the word of it")
        one.stands("missing")
        os.rename(away, one.repository)
        one.eventually(lambda: one.state()["statusString"] == "Up to date", "the end of it")


def wait_until(condition):
    end = time.monotonic() + PROMPT
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


if __name__ == "__main__":
    unittest.main()
