"""A daemon with every method, made from the example, and what it may be made to do wrong: one fault at a time.

The kit must pass the daemon without a fault and catch each of the others. `FAULTS` says which check catches which."""

from __future__ import annotations

import os
import plistlib
import select
import socket
import struct
import threading
from typing import Any

from scripted_methods import Methods, example, reference

from keldane_conformance.client_checks.played import callback

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
    "hangs up after an answer": "frame/stray-answer",
    "reads the binary format alone": "frame/other-formats",
    "wants its own type codes": "answer/senders-codes",
    "wants the right number of arguments": "answer/arguments",
    "answers nothing for a number": "answer/menu",
    "gives users no names": "answer/users",
    "takes folders for files": "node/folder",
    "tells no sizes": "node/size",
    "takes a percent sign for more than it is": "node/names-as-they-are",
    "does not measure folders": "node/folder-sizes",
    "lists a file": "children/schema",
    "does not show whose rule it is": "rules/add",
    "takes an exclusion for the end of a rule": "rules/remove",
    "does not show rules below a folder": "rules/partly",
    "answers 0 whatever happens": "rules/answers",
    "takes the first path of a list": "rules/lists",
    "takes paths as they are written": "rules/normalized",
    "cuts values short": "settings/profile",
    "keeps no other setting": "settings/full",
    "tells the state once": "callbacks/change",
    "takes short requests alone": "limits/many-paths",
    "waits for whoever does not read": "limits/slow-reader",
    "takes ten connections": "limits/connections",
}


class Connection(example.Connection):
    """One client, with the faults of frames."""

    server: Server

    def setup(self) -> None:
        super().setup()
        self.sending = threading.Lock()
        if len(self.server.connections) >= 10 and self.server.fault == "takes ten connections":
            self.request.shutdown(socket.SHUT_RDWR)
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
            if kind == example.RESPONSE and fault == "hangs up after an answer":
                return None
            if length > 100_000 and fault == "takes short requests alone":
                return None
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
        if fault == "reads the binary format alone" and not payload.startswith(b"bplist00"):
            return
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
        if not self.understands(value):
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

    def understands(self, value: list[Any]) -> bool:
        """Whether the arguments are as this daemon wants them. One that is right takes them all."""
        codes = reference.signatures()[value[2]][1]
        return not (self.server.fault == "wants its own type codes" and "".join(value[4::2]) != codes
                    or self.server.fault == "wants the right number of arguments" and value[3] != len(codes))

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
        waits = self.server.fault == "waits for whoever does not read"
        with self.server.one_at_a_time if waits else self.sending:
            self.request.sendall(data)

    # --- Callbacks ---

    def subscribe(self, selector: str) -> None:
        """Keeps what this client wants to be told."""
        ends = self.server.fault != "goes on telling the state"
        if selector in ("setStateHandler", "endStateHandler"):
            self.wants_state = selector.startswith("set") or not ends
            if self.server.fault != "tells the state once":
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
                if each.told != state and not (each.told and self.fault == "tells the state once"):
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

