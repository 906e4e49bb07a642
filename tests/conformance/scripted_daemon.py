"""A daemon with every method, made from the example, and what it may be made to do wrong: one fault at a time.

The kit must pass the daemon without a fault and catch each of the others. `FAULTS` says which check catches which."""

from __future__ import annotations

import errno
import os
import plistlib
import pwd
import select
import socket
import struct
import sys
import threading
import time
from typing import Any

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path[:0] = [os.path.join(SOURCE, "examples"), os.path.join(SOURCE, "conformance")]

import minimum_daemon as example  # noqa: E402
from keldane_conformance import reference  # noqa: E402
from keldane_conformance.client_checks.played import callback  # noqa: E402

POLICY = ["/proc"]
SWITCHES = {"enabled": 1, "automaticMode": 1, "recoverMode": 0, "lowerPriorityMode": 0, "delayShutdown": 0,
            "includeRequired": 0, "serviceState": 1, "backupControl": 0, "pausedMinutes": 0}

# Each fault, and the check that finds it.
FAULTS: dict[str, str] = {
    "answers calls that return nothing": "frame/no-answer-to-one-way",
    "does not answer what is absent": "frame/absent-answer",
    "answers an empty dictionary for what is absent": "frame/absent-answer",
    "answers what it does not know": "frame/unknown-selector",
    "hangs up after a wrong marker": "frame/wrong-marker",
    "hangs up after what is no request": "frame/no-request",
    "hangs up after what it cannot read": "frame/no-property-list",
    "answers frames of unknown types": "frame/unknown-type",
    "loses what came with the same read": "frame/joined-writes",
    "takes a short read for a message": "frame/split-writes",
    "answers in XML": "frame/binary-answer",
    "answers with a request frame": "frame/answer",
    "writes the marker in small letters": "frame/answer",
    "writes the length the wrong way round": "frame/answer",
    "serves one connection at a time": "frame/other-connections",
    "hangs up for an argument of another kind": "answer/wrong-kinds",
    "answers a boolean for a number": "answer/keldanectl",
    "has an empty text for a missing profile value": "answer/profile",
    "answers colours out of order": "answer/colours",
    "lacks a key of the node": "node/schema",
    "writes isDirectory as a number": "node/schema",
    "has flags with a sign": "node/unsigned",
    "names a file by its whole path": "node/names",
    "knows what does not exist": "node/missing",
    "lets what is barred be changed": "node/barred",
    "leaves an entry out of a listing": "children/all",
    "shows a rule late": "rules/read-after-write",
    "keeps rules for each connection": "rules/same-for-all",
    "takes the beginning of a name for the whole": "rules/whole-names",
    "prefers the folder's rule to the item's": "rules/own-rule-first",
    "prefers the farthest folder": "rules/nearest-folder",
    "prefers the folder's rule to the type's": "rules/types",
    "takes every number for a type's rule": "rules/types",
    "does not see the case of types": "rules/type-names",
    "takes a type from the first point": "rules/type-names",
    "gives folders a type": "rules/type-names",
    "ignores preferences": "rules/priority",
    "prefers what is excluded": "rules/priority-waits",
    "takes rules for what is barred": "rules/barred",
    "lacks a key of the state": "state/schema",
    "puts a key before the others": "state/order",
    "counts the state's values from 1": "state/numbered",
    "does not show a pause": "settings/pause",
    "does not switch": "settings/modes",
    "waits for an answer to its callbacks": "callbacks/state",
    "goes on telling the state": "callbacks/end",
    "tells everybody of restore windows": "callbacks/wizard",
    "reads a message of any length": "limits/too-long",
    "carries too long a list out": "limits/too-many-paths",
}


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

    def __init__(self, fault: str | None, server: Server) -> None:
        super().__init__(FaultyRules(fault))
        self.fault, self.server = fault, server
        self.settings = dict(SWITCHES)
        self.profile: dict[str, str] = {}

    def node(self, path: Any, sizes: Any = 0) -> dict[str, Any] | None:
        if self.fault == "hangs up for an argument of another kind" and not isinstance(path, str):
            raise ConnectionError
        node = super().node(path)
        if node is None and self.fault == "knows what does not exist" and example.usable(path):
            return {**super().node("/"), "path": path}
        if node is None:
            return None
        if sizes and node["isDirectory"]:
            files = [os.path.join(place, name) for place, _, names in os.walk(node["path"]) for name in names]
            node.update(size=sum(os.path.getsize(each) for each in files), totalCount=len(files))
        if self.barred(node["path"]):
            node.update(simpleFlags=node["simpleFlags"] if self.fault == "lets what is barred be changed" else 0,
                        backupFlags=0x240)
        elif node["isDirectory"] and any(each.startswith(node["path"].rstrip("/") + "/") for each in self.rules.paths):
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
        return node

    @staticmethod
    def barred(path: str) -> bool:
        """Whether the policy keeps a path out."""
        return any(path == each or path.startswith(each + "/") for each in POLICY)

    def set_rule(self, path: Any, included: bool | None) -> int:
        """Sets or removes a rule; an error number of the system."""
        usable = example.usable(path)
        if not usable:
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
            return None
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
            "addFilesToBackup:": lambda paths: [self.set_rule(path, True) for path in paths],
            "setPriorityBackup:": self.prefer, "setFileTypeToggle:toggle:": self.set_type,
            "getFileTypeToggle:": lambda kind: self.rules.types.get(str(kind), 0),
            "policyExcludeList": lambda: list(POLICY), "excludedFiles:": self.excluded,
            "backupColorsForFiles:": self.colours, "mappedUserAsString:": self.user,
            "longForState:": self.number, "longlongForState:": self.number,
            "stringForState:": lambda index: None if self.value(index) is None else str(self.value(index)),
            "stringValueForProfileKey:": lambda key: self.profile.get(
                key, "" if self.fault == "has an empty text for a missing profile value" else None),
            "setValueForProfileKey:withString:": self.profile.__setitem__, "computerNumber": lambda: 1,
            "showRestoreWizard": self.server.show_wizard, "terminate": lambda: None,
        }
        if selector in known:
            return known[selector](*arguments)
        label = selector.rstrip(":")
        if label.startswith("set") and label[3:4].lower() + label[4:] in self.settings:
            if self.fault != "does not switch":
                self.settings[label[3:4].lower() + label[4:]] = arguments[0]
            return None
        if label in self.settings:
            return self.settings[label]
        return {"I": 0, "c": 0, "q": 0, "Q": 0, "@": ""}.get(reference.signatures()[selector][0])


class Connection(example.Connection):
    """One client, with the faults of frames."""

    server: Server

    def setup(self) -> None:
        super().setup()
        self.sending = threading.Lock()
        self.wants_state = self.wants_alerts = False
        self.told: Any = None
        with self.server.lock:
            self.server.connections.append(self)

    def finish(self) -> None:
        with self.server.lock:
            self.server.connections.remove(self)
        super().finish()

    def handle(self) -> None:
        fault = self.server.fault
        if fault == "keeps rules for each connection":
            self.methods = Methods(fault, self.server)
        else:
            self.methods = self.server.methods
        if fault == "serves one connection at a time":
            with self.server.one_at_a_time:
                return super().handle()
        if fault in ("loses what came with the same read", "takes a short read for a message"):
            return self.handle_by_reads(fault)
        while len(marker := self.rfile.read(36)) == 36:
            if marker != example.MARKER:
                if fault == "hangs up after a wrong marker":
                    return None
                continue
            kind, length = struct.unpack("<iI", self.rfile.read(8))
            if length > example.LONGEST_REQUEST and fault != "reads a message of any length":
                return None
            payload = self.rfile.read(length)
            if kind == example.REQUEST or fault == "answers frames of unknown types":
                self.answer(payload)
        return None

    def handle_by_reads(self, fault: str) -> None:
        """One message a read."""
        while data := self.request.recv(1 << 16):
            while fault == "loses what came with the same read" and len(data) < 44 + self.length_in(data):
                if not (more := self.request.recv(1 << 16)):
                    return
                data += more
            if data[:36] == example.MARKER and len(data) >= 44:
                self.answer(data[44:44 + self.length_in(data)])

    @staticmethod
    def length_in(data: bytes) -> int:
        """The length that a header gives, 0 for half a header."""
        return struct.unpack("<I", data[40:44])[0] if len(data) >= 44 else 0

    def answer(self, payload: bytes) -> None:
        fault = self.server.fault
        try:
            value = plistlib.loads(payload)
        except Exception as error:
            if fault == "hangs up after what it cannot read":
                raise ConnectionError from error
            return
        if not isinstance(value, list) or len(value) < 4:
            if fault == "hangs up after what is no request":
                raise ConnectionError
            return
        width, selector, count = value[0], value[2], value[3]
        if selector not in reference.signatures():
            if fault == "answers what it does not know" and width:
                self.respond(None)
            return
        self.subscribe(selector)
        try:
            answer = self.methods.perform(selector, value[5:5 + 2 * count:2])
        except ConnectionError:
            raise
        except Exception:  # an argument of another kind: nothing happens
            answer = None
        if reference.signatures()[selector][0] != "v" or fault == "answers calls that return nothing":
            self.respond(answer)

    def respond(self, value: Any) -> None:
        """Writes a response, with the fault of this daemon."""
        fault = self.server.fault
        if value is None and fault == "does not answer what is absent":
            return
        if value is None and fault == "answers an empty dictionary for what is absent":
            value = {}
        form = plistlib.FMT_XML if fault == "answers in XML" else plistlib.FMT_BINARY
        payload = b"" if value is None else plistlib.dumps(value, fmt=form, sort_keys=False)
        marker = example.MARKER.lower() if fault == "writes the marker in small letters" else example.MARKER
        kind = example.REQUEST if fault == "answers with a request frame" else example.RESPONSE
        length = struct.pack(">I" if fault == "writes the length the wrong way round" else "<I", len(payload))
        self.write(marker + struct.pack("<i", kind) + length + payload)

    def write(self, data: bytes) -> None:
        """Sends a whole frame."""
        with self.sending:
            self.request.sendall(data)

    # --- Callbacks ---

    def subscribe(self, selector: str) -> None:
        """Keeps what this client wants to be told."""
        ends = self.server.fault != "goes on telling the state"
        if selector in ("setStateHandler", "endStateHandler"):
            self.wants_state = selector.startswith("set") or not ends
            self.told = None if selector.startswith("set") else self.told
        elif selector in ("setAlertHandler", "endAlertHandler"):
            self.wants_alerts = selector.startswith("set")

    def tell(self, selector: str, value: Any) -> None:
        """Calls the client, unless it does not read."""
        data = callback(selector, value)
        if self.server.fault == "waits for an answer to its callbacks":
            array = plistlib.loads(data[44:])
            array[:2] = [8, "@"]
            data = data[:40] + struct.pack("<I", len(payload := plistlib.dumps(array, fmt=plistlib.FMT_BINARY))) + payload
        if select.select([], [self.request], [], 0)[1]:
            self.write(data)


class Server(example.Server):
    """The daemon. Serves in a thread of its own until `close`."""

    request_queue_size = 128

    def __init__(self, path: str, fault: str | None = None) -> None:
        self.fault = fault
        self.lock = threading.Lock()
        self.one_at_a_time = threading.Lock()
        self.connections: list[Connection] = []
        self.methods = Methods(fault, self)
        self.ended = threading.Event()
        super().__init__(path, Connection)
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()
        threading.Thread(target=self.tell_states, daemon=True).start()

    def close(self) -> None:
        """Ends it."""
        self.ended.set()
        self.shutdown()
        with self.lock:
            for connection in self.connections:
                connection.request.shutdown(socket.SHUT_RDWR)
        self.server_close()

    def tell_states(self) -> None:
        """Tells a changed state, at most once a second."""
        while not self.ended.wait(1):
            with self.lock:
                connections = [each for each in self.connections if each.wants_state]
            state = self.methods.state()
            for each in connections:
                if each.told != state:
                    try:
                        each.tell("stateChanged:", state)
                        each.told = state
                    except OSError:
                        pass

    def show_wizard(self) -> None:
        """Asks those who handle alerts to open their restore window."""
        with self.lock:
            connections = [each for each in self.connections
                           if each.wants_alerts or self.fault == "tells everybody of restore windows"]
        for each in connections:
            try:
                each.tell("showRestoreWizard:", {"user": os.getuid()})
            except OSError:
                pass


if __name__ == "__main__":
    served = Server(sys.argv[1], " ".join(sys.argv[2:]) or None)
    while True:
        time.sleep(1)
