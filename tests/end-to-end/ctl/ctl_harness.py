"""The common parts of keldanectl's tests: running it, also on a terminal, and its exit statuses."""

import fcntl
import json
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import termios
import time

from harness import PATIENCE, Case

CTL = os.environ["KELDANECTL"]

DONE, NOT_TAKEN, USAGE, UNREACHABLE, DEADLINE_PASSED = range(5)
NOBODY = 65534


class Terminal:
    """A program on a pseudo-terminal of a given width, and its output there."""

    def __init__(self, command, environment, columns=100):
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
            os.execve(command[0], command, environment)
        self.text = ""
        self.status = None

    def read(self, seconds=0.05):
        """Appends the output that has come meanwhile. Returns false once the program has closed the terminal."""
        if select.select([self.descriptor], [], [], seconds)[0]:
            try:
                self.text += os.read(self.descriptor, 65536).decode(errors="replace")
            except OSError:
                return False
        return True

    def wait_for(self, pattern):
        end = time.monotonic() + PATIENCE
        while not re.search(pattern, self.text):
            if time.monotonic() > end or not self.read():
                raise AssertionError(f"{pattern!r} did not appear in {self.text!r}")

    def write(self, text):
        os.write(self.descriptor, text.encode())

    def wait(self):
        """Waits for the program's end and returns its wait status."""
        end = time.monotonic() + PATIENCE
        while self.status is None and time.monotonic() < end:
            self.read()
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = status
        while self.read(0):
            if not select.select([self.descriptor], [], [], 0)[0]:
                break
        return self.status

    def kill(self):
        if self.status is None:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.descriptor)


class CtlCase(Case):
    program = CTL

    def command(self, *arguments):
        return [self.program, "--bundle", self.bundle, *arguments]

    def run_ctl(self, *arguments, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        return subprocess.run(self.command(*arguments), env=self.environment, capture_output=True, timeout=PATIENCE,
                              check=False, text=True, **options)

    def ctl(self, *arguments, status=DONE, **options):
        """Runs keldanectl and returns its output."""
        result = self.run_ctl(*arguments, **options)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        if status == DONE:
            self.assertEqual(result.stderr, "")
        return result.stdout

    def refusal(self, *arguments, status=NOT_TAKEN, **options):
        """Runs keldanectl and returns the sentence with which it refuses."""
        result = self.run_ctl(*arguments, **options)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertRegex(result.stderr, r"\Akeldanectl: .*\.\n\Z")
        return result.stderr

    def json(self, *arguments, status=DONE):
        return json.loads(self.ctl(*arguments, "--json", status=status))

    def as_another_user(self):
        """Has the test run a copy of the program with its libraries, which lie where other users can reach them. Returns the
        options with which another user runs it."""
        programs = os.path.join(self.place, "programs")
        os.mkdir(programs)
        listed = subprocess.run(["ldd", CTL], capture_output=True, check=True, text=True).stdout
        for path in [CTL, *re.findall(r"=> (/\S+)", listed)]:
            if not path.startswith(("/lib", "/usr/lib")):
                shutil.copy(path, programs)
        self.program = os.path.join(programs, os.path.basename(CTL))
        self.environment["LD_LIBRARY_PATH"] = programs
        return {"user": NOBODY, "group": NOBODY, "extra_groups": []}

    def terminal(self, *arguments, columns=100, **environment):
        terminal = Terminal(self.command(*arguments),
                            {"TERM": "xterm-256color", **self.environment, **environment}, columns)
        self.addCleanup(terminal.kill)
        return terminal

    def backed_up(self, *paths):
        self.ctl("add", *paths)
        self.ctl("watch", "--until-done")
