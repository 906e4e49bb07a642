"""What the scripted daemon answers, and what it may answer wrong: one fault at a time."""

from __future__ import annotations

import errno
import os
import pwd
import sys
import threading
from typing import Any

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path[:0] = [os.path.join(SOURCE, "examples"), os.path.join(SOURCE, "conformance")]

import minimum_daemon as example  # noqa: E402
from keldane_conformance import reference  # noqa: E402

POLICY = ["/proc"]
SWITCHES = {"enabled": 1, "automaticMode": 1, "recoverMode": 0, "lowerPriorityMode": 0, "delayShutdown": 0,
            "includeRequired": 0, "serviceState": 1, "backupControl": 0, "pausedMinutes": 0}


class FaultyRules(example.Rules):
    """The example's rules with other precedence, and later."""

    def __init__(self, fault: str | None) -> None:
        super().__init__()
        self.fault = fault

    def extension(self, path: str) -> str:
        """A file's type without its point."""
        name = os.path.basename(path)
        if self.fault == "takes a type from the first point":
            return name.partition(".")[2]
        kind = example.file_extension(path)
        return kind.lower() if self.fault == "does not see the case of types" else kind

    def above(self, path: str) -> list[str]:
        """The folders with a rule above a path, the nearest first."""
        found = [each for each in self.paths if path.startswith(each.rstrip("/") + "/")
                 or self.fault == "takes the beginning of a name for the whole" and path.startswith(each) and path != each]
        return sorted(found, key=len, reverse=self.fault != "prefers the farthest folder")

    def selected(self, path: str, is_folder: bool) -> bool:
        own = [self.paths[path]] if path in self.paths else []
        has_type = not is_folder or self.fault == "gives folders a type"
        toggle = self.types.get("." + self.extension(path), 0) if has_type else 0
        of_type = [toggle == example.TYPE_BACK_UP] if toggle in (example.TYPE_BACK_UP, example.TYPE_EXCLUDE) else []
        folders = [self.paths[each] for each in self.above(path)]
        if self.fault == "prefers the folder's rule to the item's":
            order = folders[:1] + own + of_type
        elif self.fault == "prefers the folder's rule to the type's":
            order = own + folders + of_type
        else:
            order = own + of_type + folders
        return (order + [False])[0]


class Methods(example.Methods):
    """All methods of the table."""

    def __init__(self, fault: str | None, server: Any) -> None:
        super().__init__(FaultyRules(fault))
        self.fault, self.server = fault, server
        self.settings = dict(SWITCHES)
        self.profile: dict[str, str] = {}

    def node(self, path: Any, sizes: Any = 0) -> dict[str, Any] | None:
        if self.fault == "hangs up for an argument of another kind" and not isinstance(path, str):
            raise ConnectionError
        if self.fault == "takes a percent sign for more than it is" and isinstance(path, str):
            path = path.replace("%41", "A")
        node = super().node(path)
        if node is None and self.fault == "knows what does not exist" and example.usable(path):
            return {**super().node("/"), "path": path}
        if node is None:
            return None
        if sizes and node["isDirectory"] and self.fault != "does not measure folders":
            files = [os.path.join(place, name) for place, _, names in os.walk(node["path"]) for name in names]
            node.update(size=sum(os.path.getsize(each) for each in files), totalCount=len(files))
        if self.barred(node["path"]):
            node.update(simpleFlags=node["simpleFlags"] if self.fault == "lets what is barred be changed" else 0,
                        backupFlags=0x240)
        elif node["isDirectory"] and self.fault != "does not show rules below a folder" and any(each.startswith(node["path"].rstrip("/") + "/") for each in self.rules.paths):
            node["simpleFlags"] |= 0x4
        return self.spoilt(node)

    def spoilt(self, node: dict[str, Any]) -> dict[str, Any]:
        """A node with the fault of this daemon."""
        if self.fault == "lacks a key of the node":
            del node["uid"]
        elif self.fault == "writes isDirectory as a number":
            node["isDirectory"] = int(node["isDirectory"])
        elif self.fault == "has flags with a sign":
            node["backupFlags"] -= 1 << 31
        elif self.fault == "names a file by its whole path":
            node["fileName"] = node["path"]
        elif self.fault == "takes folders for files":
            node["isDirectory"] = False
        elif self.fault == "tells no sizes":
            node["size"] = 0
        elif self.fault == "does not show whose rule it is":
            node["backupFlags"] &= ~(example.INCLUDE | example.EXCLUDE)
        return node

    @staticmethod
    def barred(path: str) -> bool:
        """Whether the policy keeps a path out."""
        return any(path == each or path.startswith(each + "/") for each in POLICY)

    def set_rule(self, path: Any, included: bool | None) -> int:
        """Sets or removes a rule; an error number of the system."""
        usable = path if self.fault == "takes paths as they are written" and isinstance(path, str) else example.usable(path)
        if self.fault == "takes an exclusion for the end of a rule" and included is False:
            included = None
        if not usable and self.fault != "answers 0 whatever happens":
            return errno.EACCES if isinstance(path, str) else errno.EINVAL
        if self.barred(usable) and self.fault != "takes rules for what is barred":
            return errno.EPERM
        if self.fault == "shows a rule late":
            threading.Timer(0.3, self.rules.paths.__setitem__, (usable, included)).start()
        elif included is None:
            self.rules.paths.pop(usable, None)
        else:
            self.rules.paths[usable] = included
        return 0

    def set_rules(self, paths: Any) -> None:
        """Includes each of a list."""
        for path in paths[:1] if self.fault == "takes the first path of a list" else paths:
            self.set_rule(path, True)

    def set_profile(self, key: Any, text: Any) -> None:
        """Keeps a profile value."""
        self.profile[key] = text[:100] if self.fault == "cuts values short" else text

    def prefer(self, path: Any) -> None:
        if self.fault == "prefers what is excluded":
            self.rules.preferred.add(path)
        elif self.fault != "ignores preferences":
            super().prefer(path)

    def set_type(self, kind: Any, toggle: Any) -> None:
        if self.fault == "takes every number for a type's rule":
            self.rules.types[kind] = toggle
        else:
            super().set_type(kind, toggle)

    def state(self) -> dict[str, Any]:
        """The state dictionary."""
        settings = self.settings
        kinds = {"integer": 0, "boolean": False, "string": ""}
        state = {row["key"]: kinds[row["kind"]] for row in reference.protocol()["state"] if row["kind"] in kinds}
        state.update(paused=settings["pausedMinutes"] > 0 and self.fault != "does not show a pause", health="ready",
                     lowerPriorityMode=bool(settings["lowerPriorityMode"]), recoverMode=bool(settings["recoverMode"]),
                     serviceState=settings["serviceState"], backupControlFlags=settings["backupControl"],
                     statusString="Up to date")
        if self.fault == "lacks a key of the state":
            del state["quotaMB"]
        return {"first": 1, **state} if self.fault == "puts a key before the others" else state

    def value(self, index: Any) -> Any:
        """A value of the state by its number."""
        values = list(self.state().values())
        index = index - 1 if self.fault == "counts the state's values from 1" else index
        return values[index] if isinstance(index, int) and 0 <= index < len(values) else None

    def children(self, path: Any) -> list[Any] | None:
        """A listing."""
        folder = example.usable(path)
        if not folder or not os.path.isdir(folder):
            return [] if self.fault == "lists a file" else None
        nodes = [self.node(os.path.join(folder, name)) for name in sorted(os.listdir(folder))]
        return nodes[1:] if self.fault == "leaves an entry out of a listing" else nodes

    def colours(self, paths: Any) -> list[int] | None:
        """The colour of each path."""
        if not isinstance(paths, list) or len(paths) > 100_000 and self.fault != "carries too long a list out":
            return None
        colours = [(self.node(path) or {"backupColor": 0})["backupColor"] for path in paths]
        return sorted(colours) if self.fault == "answers colours out of order" else colours

    def number(self, index: Any) -> int:
        """A value of the state as a number."""
        value = self.value(index)
        return int(value) if isinstance(value, (int, bool)) else 0

    def user(self, user: Any) -> str | None:
        """The name of a user."""
        if self.fault == "gives users no names":
            return str(user)
        try:
            return user if isinstance(user, str) else pwd.getpwuid(user).pw_name
        except (KeyError, TypeError):
            return None

    def excluded(self, path: Any) -> list[str]:
        """What a rule of its own excludes at or below a path."""
        return [each for each, included in sorted(self.rules.paths.items())
                if not included and (each == path or each.startswith(path + "/"))]

    def perform(self, selector: str, arguments: list[Any]) -> Any:
        returns, codes = reference.signatures()[selector]
        arguments = (arguments + [None] * len(codes))[:len(codes)]
        with self.rules.lock:
            answer = self.own(selector, arguments)
        if self.fault == "answers a boolean for a number" and returns == "c":
            return bool(answer)
        if self.fault == "answers nothing for a number" and returns in "cI":
            return None
        return answer

    def own(self, selector: str, arguments: list[Any]) -> Any:
        """The answer of a method."""
        known = {
            "dictionaryForPath:": self.node, "dictionaryForPath:withDirSizes:": self.node,
            "childrenDictionariesForPath:": self.children, "daemonState": self.state,
            "addFileToBackup:": lambda path: self.set_rule(path, True),
            "removeFileFromBackup:": lambda path: self.set_rule(path, False),
            "excludeFileFromBackup:": lambda path: self.set_rule(path, False),
            "unexcludeFileFromBackup:": lambda path: self.set_rule(path, None),
            "addFilesToBackup:": self.set_rules,
            "setPriorityBackup:": self.prefer, "setFileTypeToggle:toggle:": self.set_type,
            "getFileTypeToggle:": lambda kind: self.rules.types.get(str(kind), 0),
            "policyExcludeList": lambda: list(POLICY), "excludedFiles:": self.excluded,
            "backupColorsForFiles:": self.colours, "mappedUserAsString:": self.user,
            "longForState:": self.number, "longlongForState:": self.number,
            "stringForState:": lambda index: None if self.value(index) is None else str(self.value(index)),
            "stringValueForProfileKey:": lambda key: self.profile.get(
                key, "" if self.fault == "has an empty text for a missing profile value" else None),
            "setValueForProfileKey:withString:": self.set_profile, "computerNumber": lambda: 1,
            "showRestoreWizard": self.server.show_wizard, "terminate": lambda: None,
        }
        if selector in known:
            return known[selector](*arguments)
        label = selector.rstrip(":")
        if label.startswith("set") and label[3:4].lower() + label[4:] in self.settings:
            kept = label in ("setPausedMinutes", "setAutomaticMode", "setLowerPriorityMode", "setRecoverMode")
            if self.fault != "does not switch" and (kept or self.fault != "keeps no other setting"):
                self.settings[label[3:4].lower() + label[4:]] = arguments[0]
            return None
        if label in self.settings:
            return self.settings[label]
        return {"I": 0, "c": 0, "q": 0, "Q": 0, "@": ""}.get(reference.signatures()[selector][0])
