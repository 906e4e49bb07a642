"""The preferences program with real servers, with a slow store, and with every failure of a store."""

import os
import re
import shutil
import socket
import subprocess
import tempfile
import unittest

from desktop import act, eventually, is_on, set_text
from pages_test import SETUP, PagesCase
from preferences_window import TITLE, PreferencesCase
from recording_daemon import RecordingDaemon

RESTIC = shutil.which("restic")


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


class StoresCase(PagesCase):
    def setUp(self):
        self.tools = None
        super().setUp()

    def tool(self, name, text):
        """Provides a program that the daemon finds before the system's own, after a restart."""
        tools = os.path.join(self.place, "tools")
        os.makedirs(tools, exist_ok=True)
        path = os.path.join(tools, name)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("#!/bin/sh\n" + text + "\n")
        os.chmod(path, 0o755)
        if not self.environment["PATH"].startswith(tools):
            self.environment["PATH"] = tools + ":" + self.environment["PATH"]

    def serve(self, port, *command):
        server = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)

        def answers():
            with socket.socket() as client:
                return client.connect_ex(("127.0.0.1", port)) == 0

        eventually(answers, "a server")

    def sftp_server(self):
        """Starts a server that ssh reaches as "store"."""
        port, place = free_port(), os.path.join(self.place, "ssh")
        os.makedirs(place)
        for name in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", os.path.join(place, name)], check=True)
        with open(os.path.join(place, "server"), "w", encoding="utf-8") as stream:
            stream.write(f"Port {port}\nListenAddress 127.0.0.1\nHostKey {place}/host\nAuthorizedKeysFile {place}/user.pub\n"
                         "PidFile none\nUsePAM no\nStrictModes no\nPermitRootLogin yes\nSubsystem sftp internal-sftp\n")
        with open(os.path.join(place, "client"), "w", encoding="utf-8") as stream:
            stream.write(f"Host store\n  HostName 127.0.0.1\n  Port {port}\n  IdentityFile {place}/user\n"
                         "  StrictHostKeyChecking no\n  UserKnownHostsFile /dev/null\n  LogLevel ERROR\n")
        os.makedirs("/run/sshd", exist_ok=True)
        self.tool("ssh", f'exec {shutil.which("ssh")} -F {place}/client "$@"')
        self.serve(port, "/usr/sbin/sshd", "-D", "-e", "-f", os.path.join(place, "server"))

    def start_anew(self):
        """Restarts the daemon, so that it finds the tools."""
        self.keldaned.kill()
        self.keldaned.start()

    def choose_kind_of_server(self, number):
        self.click(self.program.find("check box", "On a server"), SETUP)
        self.click(self.program.find("combo box", "Kind of server"), SETUP)
        for key in ["Down"] * number + ["Return"]:
            self.press(SETUP, key)

    def fill(self, name, text):
        field = self.program.find("text", name)
        set_text(field, text)


@unittest.skipUnless(os.path.exists("/usr/sbin/sshd") and os.geteuid() == 0, "a server for ssh needs root here")
class Servers(StoresCase):
    def test_a_backup_is_set_up_on_a_server_that_ssh_reaches(self):
        self.sftp_server()
        self.start_anew()
        served = os.path.join(self.place, "served")
        self.open("--page", "setup")
        self.click(self.program.find("check box", "On a server"), SETUP)
        self.fill("Server, as for ssh (user@host)", "nobody-there")
        self.fill("Folder on the server", served)
        act(self.button("Next"))
        eventually(lambda: is_on(self.button("Next"), "sensitive"), "an answer")
        self.shows("Step 1 of 4")
        self.fill("Server, as for ssh (user@host)", "store")
        act(self.button("Next"))
        self.shows("Step 2 of 4")
        eventually(lambda: os.path.exists(os.path.join(served, "config")), "a repository on the server")
        self.assertIn("sftp:store:" + served, self.ctl("repository"))

    @unittest.skipUnless(shutil.which("rclone"), "rclone serves the protocol")
    def test_a_backup_is_set_up_on_a_rest_server(self):
        port, served = free_port(), os.path.join(self.place, "served")
        self.serve(port, "rclone", "serve", "restic", "--config", "/dev/null", "--addr", f"127.0.0.1:{port}",
                   "--user", "keeper", "--pass", "secretword", served)
        self.open("--page", "setup")
        self.choose_kind_of_server(1)
        self.fill("Address (https://host:port/name)", f"http://127.0.0.1:{port}/")
        self.fill("User name (empty for none)", "keeper")
        for password, answer in (("wrong", re.compile("access is refused")), ("secretword", "Step 2 of 4")):
            set_text(self.program.find("password text", "Password"), password)
            act(eventually(lambda: is_on(self.button("Next"), "sensitive") and self.button("Next"), "a button"))
            self.shows(answer)
        self.assertTrue(os.path.exists(os.path.join(served, "config")))
        repository = self.ctl("repository")
        self.assertIn(f"127.0.0.1:{port}", repository)
        self.assertNotIn("secretword", repository)

    @unittest.skipUnless("KELDANE_S3_SERVER" in os.environ, "scripts/test-servers installs the server")
    def test_a_backup_is_set_up_on_an_s3_server(self):
        port, served = free_port(), os.path.join(self.place, "served")
        private, certificate = (os.path.join(self.place, name) for name in ("private", "certificate"))
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", private, "-out", certificate], check=True,
                       capture_output=True, timeout=60)
        self.serve(port, os.environ["KELDANE_S3_SERVER"], "-d", served, "-a", "127.0.0.1", "-p", str(port), "--key", private,
                   "--cert", certificate, "--configure-bucket", "keldane-test")
        # The certificate is one that the system trusts, as that of a public server.
        self.tool("restic", f'export SSL_CERT_FILE={certificate}\nexec {RESTIC} "$@"')
        self.start_anew()
        self.open("--page", "setup")
        self.choose_kind_of_server(2)
        self.fill("Address and bucket (host/bucket)", f"https://127.0.0.1:{port}/keldane-test")
        self.fill("Access key ID", "nobody")
        act(self.button("Next"))
        self.shows("Please fill in all that the server needs.")
        set_text(self.program.find("password text", "Secret access key"), "S3RVER")
        # This server compares no signatures, but it knows who may come.
        for user, answer in (("nobody", re.compile("access is refused")), ("S3RVER", "Step 2 of 4")):
            self.fill("Access key ID", user)
            act(eventually(lambda: is_on(self.button("Next"), "sensitive") and self.button("Next"), "a button"))
            self.shows(answer)
        self.assertTrue(any(name.startswith("config") for name in os.listdir(os.path.join(served, "keldane-test"))))
        self.assertIn(f"s3:https://127.0.0.1:{port}/keldane-test", self.ctl("repository"))

    def test_the_backup_moves_to_a_server_with_its_versions(self):
        self.sftp_server()
        self.start_anew()
        served = os.path.join(self.place, "served")
        self.back_up(self.letter)
        self.file("home/Documents/letter.txt", "second, which is longer")
        eventually(lambda: self.ctl("versions", self.letter).count("\n") == 2, "a second version")
        self.open("--page", "storage")
        act(self.button("Move It to Another Place…"))
        self.click(self.program.find("check box", "On a server"))
        self.fill("Server, as for ssh (user@host)", "store")
        self.fill("Folder on the server", served)
        act(self.button("Move the Backup"))
        self.shows(MOVED)
        self.assertIn("sftp:store:" + served, self.ctl("repository"))
        self.assertIn("Backed up", self.ctl("ls", self.documents))
        self.assertEqual(self.ctl("versions", self.letter).count("\n"), 2)


@unittest.skipUnless(os.geteuid() == 0, "only root can mount a disk")
class Disks(StoresCase):
    NONE = "No external disk is there. Plug one in; it is shown here as soon as it can be used."

    def disk(self):
        """A disk that is not plugged in, and the folder where the desktop would mount it."""
        image = os.path.join(self.place, "disk")
        with open(image, "wb") as stream:
            stream.truncate(64 << 20)
        subprocess.run(["mkfs.ext4", "-q", "-F", image], check=True, timeout=60)
        os.makedirs("/media", exist_ok=True)
        folder = tempfile.mkdtemp(prefix="keldane-disk-", dir="/media")
        self.addCleanup(os.rmdir, folder)
        return image, folder

    def plug_in(self, image, folder):
        mount = subprocess.run(["mount", "-o", "loop", image, folder], check=False, capture_output=True, timeout=60)
        if mount.returncode != 0:
            self.skipTest("this machine mounts no image of a disk")
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=False, capture_output=True, timeout=60)
        device, uuid = subprocess.run(["findmnt", "--noheadings", "--output", "SOURCE,UUID", folder], check=True,
                                      capture_output=True, text=True, timeout=60).stdout.split()
        link = os.path.join("/dev/disk/by-uuid", uuid)
        if not os.path.lexists(link):  # nothing on this machine makes the links of devices
            os.makedirs(os.path.dirname(link), exist_ok=True)
            os.symlink(device, link)
            self.addCleanup(os.unlink, link)

    def unplug(self, folder):
        eventually(lambda: subprocess.run(["umount", folder], check=False, capture_output=True, timeout=60).returncode == 0,
                   "a disk that nobody uses")

    def test_a_disk_is_offered_once_it_is_plugged_in_and_missed_when_it_is_gone(self):
        image, folder = self.disk()
        self.open("--page", "setup")
        self.shows(self.NONE)
        self.plug_in(image, folder)
        self.shows(re.compile(re.escape(folder) + r" \(.* free\)"))
        act(self.button("Next"))
        self.shows("Step 2 of 4")
        self.assertIn(folder + "/keldane-backup", self.ctl("repository"))
        self.program.end()
        self.back_up(self.letter)
        self.unplug(folder)
        self.file("home/Documents/letter.txt", "second, which is longer")
        self.open()
        self.shows("The disk with the backup is not connected. Please plug it in.")
        self.plug_in(image, folder)
        act(self.button("Try Again"))
        self.shows(re.compile(r"\AThe only file is backed up"))
        self.assertEqual(self.ctl("versions", self.letter).count("\n"), 2)


MOVED = ("The backup is kept at the new place now. What is at the old one is left as it was; delete it when you no longer "
         "want it.")


class Slow(StoresCase):
    def test_a_restore_goes_on_without_a_window_and_is_there_in_the_next(self):
        self.TREE = "Files and versions"
        gate = os.path.join(self.place, "gate")
        self.tool("restic", f'case "$*" in *" restore "*|*" dump "*) while [ ! -e {gate} ]; do sleep 0.1; done;; esac\n'
                            f'exec {RESTIC} "$@"')
        self.start_anew()
        self.back_up(self.letter)
        os.unlink(self.letter)
        self.open("--restore", self.letter)
        self.shows(f"Versions of {self.letter} in the backup:")
        self.tick(self.names()[0])
        eventually(lambda: is_on(self.button("Restore"), "sensitive"), "a selection")
        act(self.button("Restore"))
        self.button("Cancel the Restore")
        first = self.program
        self.close()
        self.wait_for_end(TITLE)
        self.assertTrue(first.is_running())  # the end of the restore must still be told
        self.open("--page", "restore")
        self.button("Cancel the Restore")
        with open(gate, "w", encoding="utf-8"):
            pass
        self.shows("1 file restored, 5 B.")
        self.assertEqual(self.content(self.letter), "first")
        self.assertEqual(first.process.wait(60), 0)


class Failures(PreferencesCase):
    """Every failure of a store, in the window's words."""

    SENTENCES = {
        "notSetUp": "It is not set up yet where the backup is to be kept.",
        "missing": "The backup is gone: there is none any more at its place.",
        "otherRepository": "Another computer's backup lies where this one's should be.",
        "wrongKey": "The key does not open the backup.",
        "notConnected": "The disk with the backup is not connected. Please plug it in.",
        "unreachable": "The server with the backup cannot be reached.",
        "denied": "The server or the system refuses access to the backup.",
        "locked": "Another computer is busy with the backup, or has left it locked.",
        "full": "No room is left where the backup is kept.",
        "damaged": "The backup is damaged: what is stored is not what it was.",
        "engineMissing": "The program that stores the backup, restic, is not installed.",
        "engineTooOld": "The program that stores the backup, restic, is too old.",
        "failed": "The backup could not be stored.",
    }

    def test_each_is_told_with_what_mends_it(self):
        first = self.daemon({"daemonState": {"statusString": "Trouble", "health": "ready", "pendingFiles": 1}})
        owner = RecordingDaemon(self.socket + ".owner", {"repository:": {"health": "ready"}})
        self.addCleanup(owner.stop)
        self.open()
        self.shows("Trouble")
        for health, sentence in self.SENTENCES.items():
            with self.subTest(health=health):
                first.answers["daemonState"] = {"statusString": "Trouble", "health": health, "pendingFiles": 1}
                self.shows(sentence)
                self.program.find("push button", BUTTONS.get(health, "Show the Storage"))


BUTTONS = {"notSetUp": "Set Up…", **dict.fromkeys(("notConnected", "unreachable", "locked", "engineMissing", "engineTooOld",
                                                  "failed"), "Try Again")}


class Sizes(PagesCase):
    PAGES = ("overview", "restore", "storage", "rules")

    def width(self):
        shell = subprocess.run(["xdotool", "getwindowgeometry", "--shell", self.window(TITLE)], check=True,
                               capture_output=True, text=True, timeout=60).stdout
        return int(next(line for line in shell.splitlines() if line.startswith("WIDTH="))[6:])

    def test_a_narrow_window_has_every_page(self):
        self.open()
        self.shows("Nothing is chosen for the backup yet.")
        subprocess.run(["xdotool", "windowsize", "--sync", self.window(TITLE), "480", "500"], check=True, timeout=60)
        eventually(lambda: self.width() <= 480, lambda: f"a narrow window instead of {self.width()}")

    def test_at_twice_the_size(self):
        self.open("--page", "storage", GDK_SCALE="2")
        self.shows("ready")
        for page in self.PAGES:
            self.assertTrue(self.program.find("label", page.capitalize()))


if __name__ == "__main__":
    unittest.main()
