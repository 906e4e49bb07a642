#!/usr/bin/env python3
"""The least that a backup daemon must do for the menus of file managers. Written to be copied.

    minimum_daemon.py SOCKET

It keeps which files and folders are to be backed up, in memory, and stores nothing. docs/protocol/ tells what each
message means; docs/protocol/minimum-daemon.md tells what to add for other clients."""

import os
import plistlib
import socketserver
import struct
import sys
import threading
from typing import Any

MARKER = b"8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04"
REQUEST, RESPONSE = 1, 2
LONGEST_REQUEST = 8 << 20

# Simple flags: they decide what a menu offers.
CHECKED, ENABLED = 0x1, 0x2
TYPE_CHECKED, TYPE_ENABLED, TYPE_VISIBLE = 0x100, 0x200, 0x400
PRIORITY_CHECKED, PRIORITY_ENABLED, PRIORITY_VISIBLE = 0x10000, 0x20000, 0x40000

# Backup flags: they tell what is known, and by which rule.
BACKUP, EXCLUDE, INCLUDE, FOLDER = 0x10, 0x40, 0x80, 0x800

TYPE_BACK_UP, TYPE_EXCLUDE = 6, 7


class Rules:
    """What is to be backed up. One lock, because each connection has a thread."""

    def __init__(self) -> None:
        self.lock = threading.Lock()
        self.paths: dict[str, bool] = {}  # True: included, False: excluded
        self.types: dict[str, int] = {}
        self.preferred: set[str] = set()

    def selected(self, path: str, is_folder: bool) -> bool:
        """The first of these that exists decides: the item's own rule, its type's, the nearest folder's."""
        if path in self.paths:
            return self.paths[path]
        toggle = 0 if is_folder else self.types.get("." + file_extension(path), 0)
        if toggle:
            return toggle == TYPE_BACK_UP
        while path != "/":
            path = os.path.dirname(path)
            if path in self.paths:
                return self.paths[path]
        return False


def file_extension(path: str) -> str:
    """What follows the last point of the name; nothing for a name that only begins with one."""
    return os.path.splitext(path)[1][1:]


def usable(path: Any) -> str | None:
    """The path in its one spelling; None for what is no absolute path."""
    if not isinstance(path, str) or not path.startswith("/") or "\0" in path:
        return None
    return os.path.normpath("/" + path.lstrip("/"))


class Methods:
    """The methods that menus call. Whatever a client sends, nothing here may raise."""

    def __init__(self, rules: Rules) -> None:
        self.rules = rules

    def node(self, path: Any, _sizes: Any = 0) -> dict[str, Any] | None:
        """What is known of one item; None for what is not there."""
        path = usable(path)
        try:
            status = os.lstat(path) if path else None
        except OSError:
            status = None
        if status is None:
            return None
        is_folder = os.path.isdir(path) and not os.path.islink(path)
        own, selected = self.rules.paths.get(path), self.rules.selected(path, is_folder)
        preferred = path in self.rules.preferred
        backup = (BACKUP if selected else 0) | (FOLDER if is_folder else 0) | int(preferred)
        backup |= {None: 0, True: INCLUDE, False: EXCLUDE}[own]
        simple = ENABLED | (CHECKED if selected else 0)
        if not is_folder:
            toggle = self.rules.types.get("." + file_extension(path), 0)
            simple |= TYPE_ENABLED | TYPE_VISIBLE | (TYPE_CHECKED if toggle == TYPE_BACK_UP else 0)
            simple |= PRIORITY_ENABLED | PRIORITY_VISIBLE | (PRIORITY_CHECKED if preferred else 0)
        return {"fileName": os.path.basename(path) or "/", "path": path, "isDirectory": is_folder,
                "state": "Waiting to be backed up" if selected else "Not selected for backup",
                "backupFlags": backup, "simpleFlags": simple, "backupColor": 3 if selected else 1,
                "totalCount": 0 if is_folder else 1, "size": 0 if is_folder else status.st_size,
                "uid": status.st_uid, "gid": status.st_gid}

    def set_rule(self, path: Any, included: bool) -> None:
        """Includes or excludes an item by a rule of its own."""
        path = usable(path)
        if path:
            self.rules.paths[path] = included

    def prefer(self, path: Any) -> None:
        """Prefers a file that is to be backed up."""
        path = usable(path)
        if path and os.path.isfile(path) and self.rules.selected(path, False):
            self.rules.preferred.add(path)

    def set_type(self, kind: Any, toggle: Any) -> None:
        """Sets the rule for a file type."""
        if isinstance(kind, str) and toggle in (TYPE_BACK_UP, TYPE_EXCLUDE):
            self.rules.types[kind] = toggle

    def perform(self, selector: str, arguments: list[Any]) -> Any:
        """The answer of a method. KeyError for one that this daemon does not know."""
        method, count = {
            "dictionaryForPath:withDirSizes:": (self.node, 2),
            "getFileTypeToggle:": (lambda kind: self.rules.types.get(str(kind), 0), 1),
            "addFileToBackup:": (lambda path: self.set_rule(path, True), 1),
            "removeFileFromBackup:": (lambda path: self.set_rule(path, False), 1),
            "setPriorityBackup:": (self.prefer, 1),
            "setFileTypeToggle:toggle:": (self.set_type, 2),
        }[selector]
        arguments = (arguments + [None] * count)[:count]  # what is missing reads as absent
        with self.rules.lock:
            return method(*arguments)


class Connection(socketserver.StreamRequestHandler):
    """One client. Requests are answered in their order."""

    def handle(self) -> None:
        """Reads frames until the client leaves."""
        while (marker := self.rfile.read(len(MARKER))) and len(marker) == len(MARKER):
            if marker != MARKER:
                continue  # out of step: the next 36 bytes may be a marker
            kind, length = struct.unpack("<iI", self.rfile.read(8))
            if length > LONGEST_REQUEST:
                return
            payload = self.rfile.read(length)
            if kind == REQUEST:
                self.answer(payload)

    def answer(self, payload: bytes) -> None:
        """Performs one request."""
        try:
            width, _, selector, count, *pairs = plistlib.loads(payload)
            value = self.server.methods.perform(selector, pairs[1:2 * count:2])
        except Exception:  # no request, or none that is known here: it has no answer
            return
        if width != 0:  # a call that returns nothing has no answer either
            answer = b"" if value is None else plistlib.dumps(value, fmt=plistlib.FMT_BINARY)
            self.wfile.write(MARKER + struct.pack("<iI", RESPONSE, len(answer)) + answer)


class Server(socketserver.ThreadingUnixStreamServer):
    """Listens, with a thread for each client."""

    daemon_threads = True
    methods = Methods(Rules())

    def handle_error(self, request: Any, client_address: Any) -> None:
        """A client that left within a message is no error."""


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: minimum_daemon.py SOCKET")
    if os.path.exists(sys.argv[1]):
        os.unlink(sys.argv[1])
    with Server(sys.argv[1], Connection) as server:
        server.serve_forever()
