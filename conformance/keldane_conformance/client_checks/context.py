"""The context of every check of a client."""

from __future__ import annotations

import os
import plistlib
import shutil
import signal
import subprocess
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

from ..report import Checks, Failure, Skip, expect
from .played import PlayedDaemon, Twist, plainly
from .world import World

CHECKS = Checks()

# The words after the command that make it ask about one item, by profile.
ASKING = {"menu": ["show", "{file}"], "keldanectl": ["ls", "{file}"]}


class ClientContext:
    """The client that is judged, and a folder with files for it to ask about."""

    def __init__(self, command: list[str], profile: str, seconds: float, bundle: str | None = None) -> None:
        self.profile, self.seconds = profile, seconds
        self.place = tempfile.mkdtemp(prefix="keldane-conformance-")
        self.socket = os.path.join(self.place, "daemon.sock")
        self.files = os.path.join(self.place, "files")
        os.mkdir(self.files)
        self.file, self.other, self.folder = self.make("letter.txt"), self.make("other.txt"), os.path.join(self.files, "folder")
        self.make("folder/inner.txt")
        self.places = {"socket": self.socket, "file": self.file, "folder": self.folder}
        if bundle:
            self.places["bundle"] = self._copy_bundle(bundle)
        self.command = command
        self.environment = {**os.environ, "HOME": self.place, "XDG_CONFIG_HOME": os.path.join(self.place, "config"),
                            "LC_ALL": "C.UTF-8", "KELDANE_SOCKET": self.socket}

    def make(self, name: str) -> str:
        """Makes a file to ask about, and returns its path."""
        path = os.path.join(self.files, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("content")
        return path

    def _copy_bundle(self, bundle: str) -> str:
        copy = os.path.join(self.place, os.path.basename(bundle.rstrip("/")))
        shutil.copytree(bundle, copy)
        info = os.path.join(copy, "Contents", "Info.plist")
        with open(info, "rb") as stream:
            content = plistlib.load(stream)
        content["DaemonPath"] = self.socket
        with open(info, "wb") as stream:
            plistlib.dump(content, stream)
        return copy

    def close(self) -> None:
        """Removes the files."""
        shutil.rmtree(self.place, ignore_errors=True)

    # --- The daemon ---

    @contextmanager
    def daemon(self, twist: Twist = plainly, greeting: bytes = b"", hangs_up: bool = False,
               **settings: Any) -> Iterator[PlayedDaemon]:
        """A played daemon on the client's socket."""
        with PlayedDaemon(self.socket, World(**settings), twist, greeting, hangs_up) as daemon:
            yield daemon

    # --- The client ---

    def words(self, *more: str) -> list[str]:
        """The command with words after it and the places filled in."""
        return [word.format(**self.places) if "{" in word else word for word in (*self.command, *more)]

    def asking(self) -> list[str]:
        """The words that make this client ask about one item."""
        return ASKING.get(self.profile, [])

    def start(self, *words: str) -> subprocess.Popen[str]:
        """Starts the client."""
        return subprocess.Popen(self.words(*words), env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def run(self, *words: str) -> subprocess.CompletedProcess[str]:
        """Runs the client to its end, which must not be a signal."""
        with self.start(*words) as process:
            try:
                output, errors = process.communicate(timeout=self.seconds)
            except subprocess.TimeoutExpired as error:
                process.kill()
                raise Failure(f"{' '.join(words)}: the client has not ended after {self.seconds:.0f} seconds") from error
        self.expect_no_crash(process.returncode, errors)
        return subprocess.CompletedProcess(words, process.returncode, output, errors)

    def ask(self) -> subprocess.CompletedProcess[str]:
        """Runs the client so that it asks about one item."""
        return self.run(*self.asking())

    @staticmethod
    def expect_no_crash(status: int, errors: str) -> None:
        """Fails for a client that a signal has ended."""
        if status < 0:
            raise Failure(f"the client was ended by {signal.Signals(-status).name}: {errors[-300:]}")

    def plain_output(self) -> str:
        """The client's output with a daemon without faults."""
        with self.daemon():
            return self.ask().stdout

    def following(self) -> list[str]:
        """The words that make this client follow the state."""
        if self.profile == "keldanectl":
            return ["watch"]
        if self.profile == "preferences":
            return []
        raise Skip("this client does not follow the state")

    @contextmanager
    def follower(self) -> Iterator[subprocess.Popen[str]]:
        """A client that follows the state. It must live as long as the check lasts, and end when it is told to."""
        process = self.start(*self.following())
        try:
            yield process
            expect(process.poll() is None, f"the client has ended with the status {process.poll()}")
            process.terminate()
            process.communicate(timeout=self.seconds)
        except subprocess.TimeoutExpired as error:
            raise Failure("the client does not end when it is told to") from error
        finally:
            if process.poll() is None:
                process.kill()
                process.communicate()
