"""The example client with one fault: faulty_client.py FAULT SOCKET PATH. `FAULTS` says which check finds which."""

from __future__ import annotations

import os
import plistlib
import signal
import socket
import sys
import time
from typing import Any

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(SOURCE, "examples"))

import file_status as example  # noqa: E402

FAULTS: dict[str, str] = {
    "writes XML": "request/frames",
    "writes the marker in small letters": "request/frames",
    "miscounts its arguments": "request/frames",
    "calls what does not exist": "request/table",
    "writes other type codes": "request/table",
    "writes another width": "request/table",
    "writes a boolean for a number": "request/booleans",
    "connects twice": "request/one-at-a-time",
    "cuts names at a blank": "request/names",
    "takes a read for an answer": "client/split-answers",
    "does not look at the marker": "client/wrong-marker",
    "takes a call for an answer": "client/callbacks",
    "shows all keys": "client/unknown-keys",
    "dies of what is missing": "client/missing-keys",
    "dies of other types": "client/wrong-types",
    "dies of nothing": "client/absent-answers",
    "dies of what it cannot read": "client/no-property-list",
    "waits for the daemon to come back": "client/hang-up",
    "takes memory for what is announced": "client/huge-length",
    "cannot be told to end": "client/silence",
    "waits for a daemon": "client/no-daemon",
}


class Faulty:
    """What is put into the example in place of its own."""

    def __init__(self, fault: str) -> None:
        self.fault = fault
        self.read, self.dumps, self.ask = example.read, plistlib.dumps, example.ask

    def faulty_read(self, link: socket.socket, count: int) -> bytes:
        """Bytes of an answer."""
        if self.fault == "takes a read for an answer":
            return link.recv(count)
        if self.fault == "takes memory for what is announced" and count > 1 << 30:
            block = b"x" * (count // 3)
            time.sleep(2)
            return block
        try:
            data = self.read(link, count)
        except ConnectionError:
            if self.fault == "waits for the daemon to come back":
                time.sleep(1000)
            raise
        return example.MARKER if self.fault == "does not look at the marker" and count == 36 else data

    def faulty_dumps(self, request: list[Any], **_: Any) -> bytes:
        """A request as bytes."""
        fault = self.fault
        changes = {"miscounts its arguments": (3, 3), "calls what does not exist": (2, "nodeForPath:size:"),
                   "writes other type codes": (6, "i"), "writes another width": (0, 4),
                   "writes a boolean for a number": (7, False), "cuts names at a blank": (5, request[5].split(" ")[0])}
        if fault in changes:
            position, value = changes[fault]
            request[position] = value
        return self.dumps(request, fmt=plistlib.FMT_XML if fault == "writes XML" else plistlib.FMT_BINARY)

    def faulty_ask(self, link: socket.socket, *words: Any) -> Any:
        """A question."""
        node = self.ask(link, *words)
        if self.fault == "shows all keys":
            print(sorted(node))
        needs = {"dies of what is missing": lambda: node["state"], "dies of other types": lambda: node.get("state", "") + "",
                 "dies of nothing": lambda: len(node)}
        try:
            needs.get(self.fault, lambda: None)()
        except (KeyError, TypeError, AttributeError):
            os.abort()
        return node

    def loads(self, payload: bytes) -> Any:
        """An answer from bytes."""
        try:
            return original_loads(payload)
        except Exception:
            if self.fault == "dies of what it cannot read":
                os.abort()
            raise


original_loads = plistlib.loads


def main(fault: str, path: str, *words: str) -> int:
    """The example with a fault."""
    faulty = Faulty(fault)
    example.read, example.ask = faulty.faulty_read, faulty.faulty_ask
    plistlib.dumps, plistlib.loads = faulty.faulty_dumps, faulty.loads
    example.LONGEST_ANSWER = 1 << 32
    if fault == "writes the marker in small letters":
        example.MARKER = example.MARKER.lower()
    if fault == "takes a call for an answer":
        example.RESPONSE = example.REQUEST
    if fault == "cannot be told to end":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    if fault == "connects twice":
        example.main([path, *words])
    while fault == "waits for a daemon" and not os.path.exists(path):
        time.sleep(0.1)
    return example.main([path, *words])


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
