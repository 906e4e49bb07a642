"""Frames and connections. This module shares no code with the system."""

from __future__ import annotations

import plistlib
import select
import socket
import struct
import time
from dataclasses import dataclass
from typing import Any

from . import reference

MARKER: bytes = reference.protocol()["frame"]["marker"].encode()
REQUEST, RESPONSE = 1, 2
HEADER = len(MARKER) + 8


class Gone(Exception):
    """Raised when the other end has hung up."""


class Silent(Exception):
    """Raised when the other end sends nothing in time."""


@dataclass(frozen=True)
class Frame:
    """One message as it was received."""

    marker: bytes
    kind: int
    payload: bytes

    @property
    def value(self) -> Any:
        """The value in the payload; None without a payload. Raises ValueError when the payload is no property list."""
        if not self.payload:
            return None
        try:
            return plistlib.loads(self.payload)
        except Exception as error:  # plistlib raises many kinds of exceptions
            raise ValueError(f"The payload is no property list: {error}") from error


def frame(kind: int, payload: bytes) -> bytes:
    """The bytes of a message."""
    return MARKER + struct.pack("<iI", kind, len(payload)) + payload


def plist(value: Any, xml: bool = False) -> bytes:
    """The bytes of a value as a property list; no bytes for None."""
    form = plistlib.FMT_XML if xml else plistlib.FMT_BINARY
    return b"" if value is None else plistlib.dumps(value, fmt=form, sort_keys=False)


def request_value(selector: str, *arguments: Any, codes: str = "", returns: str = "") -> list[Any]:
    """The array of a request. Codes that are not given are taken from the table."""
    known = reference.signatures().get(selector, ("@", "@" * len(arguments)))
    returns, codes = returns or known[0], codes or known[1]
    value: list[Any] = [reference.widths()[returns], returns, selector, len(arguments)]
    for code, argument in zip(codes, arguments):
        value += [code, argument]
    return value


def request(selector: str, *arguments: Any, codes: str = "", returns: str = "") -> bytes:
    """The bytes of a request."""
    return frame(REQUEST, plist(request_value(selector, *arguments, codes=codes, returns=returns)))


def response(value: Any, xml: bool = False) -> bytes:
    """The bytes of an answer. None is answered without a payload."""
    return frame(RESPONSE, plist(value, xml))


class Link:
    """A connection to a daemon. The daemon's own requests that come meanwhile are kept in `callbacks`."""

    def __init__(self, path: str, seconds: float) -> None:
        self.seconds = seconds
        self.callbacks: list[Frame] = []
        self._pending = b""
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(seconds)
        try:
            self._connect(path, time.monotonic() + seconds)
        except OSError as error:
            self.socket.close()
            raise Gone(f"Nobody can be reached at {path}: {error}") from error

    def _connect(self, path: str, end: float) -> None:
        while True:
            try:
                return self.socket.connect(path)
            except BlockingIOError:  # too many clients wait to connect at this moment
                if time.monotonic() > end:
                    raise
                time.sleep(0.01)

    def __enter__(self) -> Link:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Hangs up."""
        self.socket.close()

    def send(self, data: bytes) -> None:
        """Sends bytes unchanged. Raises Gone, or Silent when they are not taken in time."""
        try:
            self.socket.sendall(data)
        except socket.timeout as error:
            raise Silent("The daemon does not read") from error
        except OSError as error:
            raise Gone(f"The daemon has hung up: {error}") from error

    def call(self, selector: str, *arguments: Any, codes: str = "", returns: str = "") -> None:
        """Sends a request without waiting for its answer."""
        self.send(request(selector, *arguments, codes=codes, returns=returns))

    def ask(self, selector: str, *arguments: Any, codes: str = "", returns: str = "") -> Any:
        """Sends a request and waits for its answer. Returns None for an absent one."""
        self.call(selector, *arguments, codes=codes, returns=returns)
        return self.answer().value

    def receive(self, seconds: float | None = None) -> Frame:
        """Receives the next message. Raises Gone or Silent."""
        end = time.monotonic() + (self.seconds if seconds is None else seconds)
        header = self._peek(HEADER, end)
        kind, length = struct.unpack("<iI", header[-8:])
        whole = self._peek(HEADER + length, end)
        self._pending = self._pending[len(whole):]
        return Frame(whole[:len(MARKER)], kind, whole[HEADER:])

    def answer(self, seconds: float | None = None) -> Frame:
        """The next answer. Requests that come meanwhile are kept."""
        end = time.monotonic() + (self.seconds if seconds is None else seconds)
        while True:
            message = self.receive(max(0.0, end - time.monotonic()))
            if message.kind != REQUEST:
                return message
            self.callbacks.append(message)

    def callback(self, seconds: float) -> Frame:
        """The next request of the daemon."""
        if self.callbacks:
            return self.callbacks.pop(0)
        message = self.receive(seconds)
        if message.kind != REQUEST:
            raise AssertionError("an answer came that nobody had asked for")
        return message

    def ended(self, seconds: float) -> bool:
        """Whether the daemon hangs up within this time. Everything that it sends before that is dropped."""
        end = time.monotonic() + seconds
        try:
            while time.monotonic() < end:
                self._pending = b""
                self._peek(1, end)
        except Gone:
            return True
        except Silent:
            pass
        return False

    def _peek(self, count: int, end: float) -> bytes:
        while len(self._pending) < count:
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.socket], [], [], left)[0]:
                raise Silent(f"Only {len(self._pending)} of {count} bytes came in time")
            try:
                block = self.socket.recv(1 << 18)
            except OSError as error:
                raise Gone(f"The link broke: {error}") from error
            if not block:
                raise Gone("The daemon has hung up")
            self._pending += block
        return self._pending[:count]
