"""The played daemon's data: nodes, a state, rules and settings that are kept while a client is judged."""

from __future__ import annotations

import datetime
import errno
import os
from collections.abc import Callable
from typing import Any

from .. import reference
from ..menu import CHECKED, ENABLED, PRIORITY_CHECKED, PRIORITY_OFFER

DATE = datetime.datetime(2026, 11, 20, 14, 0, 0)
INCLUDE, EXCLUDE, SELECTED = (reference.flag("Backup_" + name) for name in ("Include", "Exclude", "Backup"))

Answer = Callable[..., Any]


class World:
    """Answers every method of the table. A check may put other answers into `answers`, by selector: a value, or a
    function of the arguments."""

    def __init__(self, **settings: Any) -> None:
        self.flags = ENABLED | PRIORITY_OFFER
        self.refuses = False
        self.rules: dict[str, bool] = {}
        self.preferred: set[str] = set()
        self.types: dict[str, int] = {}
        self.settings: dict[str, int] = {"AutomaticMode": 1, "PausedMinutes": 0, "RecoverMode": 0, "LowerPriorityMode": 0}
        self.profile: dict[str, str] = {"SkinId": "plain"}
        self.answers: dict[str, Any] = {}
        self.__dict__.update(settings)

    def node(self, path: str) -> dict[str, Any] | None:
        """The node of a path; None for a path that does not exist."""
        if not os.path.lexists(path):
            return None
        rule, is_folder = self.rules.get(path), os.path.isdir(path)
        simple, backup = self.flags, 0
        if rule is not None:
            simple = simple & ~CHECKED | (CHECKED if rule else 0)
            backup = INCLUDE | SELECTED if rule else EXCLUDE
        if path in self.preferred:
            simple |= PRIORITY_CHECKED
        name = os.path.basename(path)
        return {"fileName": name, "displayName": name, "path": path, "isDirectory": is_folder, "state": "Played",
                "backupFlags": backup, "simpleFlags": simple, "backupColor": 2, "backupDate": DATE, "version": 17,
                "totalCount": 1, "size": 0 if is_folder else 4096, "uid": 1000, "gid": 1000}

    def state(self) -> dict[str, Any]:
        """The state, with the examples of the reference."""
        state = {}
        for row in reference.protocol()["state"]:
            example = row["example"]
            state[row["key"]] = {"integer": lambda text: int(text or 0), "boolean": lambda text: text == "true",
                                 "string": str, "date": lambda _: DATE}[row["kind"]](example)
        state.update(pendingFileCount=0, pendingFileSize=0, isBackupNeeded=False, backupState=0,
                     paused=self.settings["PausedMinutes"] > 0, recoverMode=self.settings["RecoverMode"] != 0,
                     lowerPriorityMode=self.settings["LowerPriorityMode"] != 0)
        return state

    def perform(self, selector: str, arguments: list[Any]) -> Any:
        """Carries out a call, and returns its answer."""
        if selector in self.answers:
            answer = self.answers[selector]
            return answer(*arguments) if callable(answer) else answer
        if selector in _METHODS:
            return _METHODS[selector](self, *arguments)
        label = selector.rstrip(":")
        if label.startswith("set") and label[3:] in self.settings:
            if not self.refuses:
                self.settings[label[3:]] = arguments[0]
            return None
        if label[:1].upper() + label[1:] in self.settings:
            return self.settings[label[:1].upper() + label[1:]]
        return 0 if reference.signatures().get(selector, ("@",))[0] in "cIqQ" else None

    def rule(self, path: str, included: bool | None) -> int:
        """Keeps a rule, or removes it, unless this daemon refuses. Returns an error number of the system."""
        if self.refuses:
            return errno.EACCES
        if included is None:
            self.rules.pop(path, None)
        else:
            self.rules[path] = included
        return 0

    def prefer(self, path: str) -> None:
        """Keeps a preference."""
        if not self.refuses:
            self.preferred.add(path)

    def set_type(self, kind: str, toggle: int) -> None:
        """Keeps the rule for a type."""
        if not self.refuses:
            self.types[kind] = toggle

    def set_profile(self, key: str, text: str) -> None:
        """Keeps a profile value."""
        if not self.refuses:
            self.profile[key] = text

    def children(self, folder: str) -> list[dict[str, Any]] | None:
        """The listing of a folder."""
        if not os.path.isdir(folder):
            return None
        nodes = [self.node(os.path.join(folder, name)) for name in sorted(os.listdir(folder))]
        return [node for node in nodes if node is not None]

    def versions(self, path: str) -> dict[str, Any] | None:
        """The node of a path with its versions."""
        node = self.node(path)
        if node is not None and not node["isDirectory"]:
            node["versions"] = [{"version": 17, "backupDate": DATE, "size": 4096}]
        return node


_METHODS: dict[str, Answer] = {
    "dictionaryForPath:withDirSizes:": lambda world, path, _: world.node(path),
    "dictionaryForPath:": World.versions,
    "childrenDictionariesForPath:": World.children,
    "daemonState": World.state,
    "addFileToBackup:": lambda world, path: world.rule(path, True),
    "removeFileFromBackup:": lambda world, path: world.rule(path, False),
    "excludeFileFromBackup:": lambda world, path: world.rule(path, False),
    "unexcludeFileFromBackup:": lambda world, path: world.rule(path, None),
    "setPriorityBackup:": World.prefer,
    "setFileTypeToggle:toggle:": World.set_type,
    "getFileTypeToggle:": lambda world, kind: world.types.get(kind, 0),
    "stringValueForProfileKey:": lambda world, key: world.profile.get(key),
    "setValueForProfileKey:withString:": World.set_profile,
    "serverURL": lambda world: "https://backup.example.org", "userEmail": lambda world: "ann@example.org",
    "computerNumber": lambda world: 4711, "marketingMessage": lambda world: "",
}
