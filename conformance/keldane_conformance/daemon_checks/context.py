"""The context of every check of a daemon."""

from __future__ import annotations

import contextlib
import os
import shutil
import tempfile
import time
from collections.abc import Callable, Iterator
from typing import Any

from .. import reference
from ..frames import Gone, Link, Silent
from ..meaning import kind
from ..report import Checks, Failure, Skip, expect

CHECKS = Checks()

# These exist on every computer. A daemon answers for them whether or not its policy excludes them.
SOME_FOLDER, SOME_FILE, NO_FILE = "/etc", "/etc/passwd", "/keldane-conformance/nothing-is-here"

LOOK_UP = "dictionaryForPath:withDirSizes:"

ENABLED, CHECKED, GRAYED = (reference.flag("Backup_Simple_" + name) for name in ("Enabled", "Checked", "Grayed"))
SELECTED, OWN_EXCLUDE, OWN_INCLUDE = (reference.flag("Backup_" + name) for name in ("Backup", "Exclude", "Include"))


class DaemonContext:
    """The daemon that is judged, and the scratch folder if there is one."""

    def __init__(self, path: str, seconds: float, scratch: str | None = None, restart: list[str] | None = None) -> None:
        self.path = path
        self.seconds = seconds
        self.restart = restart
        self.files = ""
        self.types: set[str] = set()
        self._ruled: list[str] = []
        if scratch:
            self.files = tempfile.mkdtemp(prefix="keldane-conformance-", dir=os.path.realpath(scratch))

    def close(self) -> None:
        """Takes back the rules that were set, and removes the files."""
        if not self.files:
            return
        with contextlib.suppress(Gone, Silent):
            with self.link() as link:
                for kind in self.types:
                    link.call("setFileTypeToggle:toggle:", kind, 0)  # some daemons take this as the end of the rule
                for path in [*self._ruled, self.files]:
                    link.call("unexcludeFileFromBackup:", path)
                link.seconds = 2
                for _ in [*self._ruled, self.files]:
                    link.answer()
        shutil.rmtree(self.files, ignore_errors=True)

    def link(self) -> Link:
        """A new connection."""
        return Link(self.path, self.seconds)

    # --- Files ---

    def _place(self, name: str) -> str:
        if not self.files:
            raise Skip("there is no scratch folder")
        path = os.path.join(self.files, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return path

    def file(self, name: str, size: int = 10) -> str:
        """Makes a file in the scratch folder, and returns its path."""
        path = self._place(name)
        with open(path, "wb") as stream:
            stream.write(b"x" * size)
        return path

    def folder(self, name: str) -> str:
        """Makes a folder in the scratch folder, and returns its path."""
        path = self._place(name)
        os.makedirs(path, exist_ok=True)
        return path

    def own(self, path: str) -> str:
        """Notes a path whose rule is to be taken back at the end."""
        self._ruled.append(path)
        return path

    # --- Questions ---

    def node(self, link: Link, path: str) -> dict[str, Any]:
        """The node of a path, which must be there."""
        value = link.ask(LOOK_UP, path, 0)
        expect(isinstance(value, dict), f"{path} is there and may be asked about, and the answer is {kind(value)}")
        return value

    def flags(self, link: Link, path: str) -> tuple[int, int]:
        """The backup flags and simple flags of a path."""
        node = self.node(link, path)
        return node.get("backupFlags", 0), node.get("simpleFlags", 0)

    def include(self, link: Link, path: str, included: bool = True) -> None:
        """Sends a rule for a path."""
        link.call("addFileToBackup:" if included else "removeFileFromBackup:", self.own(path))

    def expect_in_backup(self, link: Link, path: str, selected: bool, because: str) -> None:
        """Fails unless a path's simple flags tell that it is, or is not, in the backup."""
        checked = bool(self.flags(link, path)[1] & CHECKED)
        expect(checked == selected, f"{because}: {os.path.basename(path)} is {'' if checked else 'not '}in the backup")

    @contextlib.contextmanager
    def resting(self, link: Link) -> Iterator[None]:
        """While this lasts, a daemon that knows pauses stores nothing."""
        before = link.ask("pausedMinutes")
        link.call("setPausedMinutes:", 30)
        try:
            yield
        finally:
            link.call("setPausedMinutes:", before)

    def eventually(self, condition: Callable[[], object], sentence: str) -> None:
        """Waits until something holds, and fails with a sentence when the time is over."""
        end = time.monotonic() + self.seconds
        while not condition():
            if time.monotonic() > end:
                raise Failure(sentence)
            time.sleep(0.05)


def expect_kind(value: Any, wanted: str, what: str) -> None:
    """Fails unless a value is of the wanted kind."""
    expect(kind(value) == wanted, f"{what} is {kind(value)} and not {wanted}")


def expect_schema(value: Any, table: str, what: str) -> None:
    """Fails unless a dictionary has the keys of a table, each with a value of its kind."""
    expect_kind(value, "dictionary", what)
    for row in reference.protocol()[table]:
        key = row["key"]
        if key in value:
            expect_kind(value[key], row["kind"], f'"{key}" of {what}')
        else:
            expect(not row["required"], f'{what} lacks "{key}"')


def expect_in_step(context: DaemonContext, link: Link, after: str) -> None:
    """Fails unless the connection answers the next question with its own answer."""
    try:
        node = link.ask(LOOK_UP, SOME_FOLDER, 0)
    except Gone as error:
        raise Failure(f"{after}: the daemon hung up") from error
    except Silent as error:
        raise Failure(f"{after}: the next question has no answer") from error
    expect(isinstance(node, dict) and node.get("path") == SOME_FOLDER,
           f"{after}: the next question has another question's answer")
    try:
        extra = link.answer(0.3)
    except (Silent, Gone):
        return
    raise Failure(f"{after}: one answer too many came, {extra.payload[:20]!r}")
