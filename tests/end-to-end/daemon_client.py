"""A client of the daemon for the tests that shares no code with the system."""

import plistlib
import socket
import struct

from recording_daemon import MARKER, REQUEST, RESPONSE

WIDTHS = {"v": 0, "c": 1, "I": 4, "@": 8}


class Gone(Exception):
    """The daemon has closed the connection, or does not answer in time."""


def request(selector, *arguments, returns="v"):
    """The bytes of a call. An argument is an object, or a pair of its type code and its value."""
    elements = [WIDTHS[returns], returns, selector, len(arguments)]
    for argument in arguments:
        elements += list(argument) if isinstance(argument, tuple) else ["@", argument]
    payload = plistlib.dumps(elements, fmt=plistlib.FMT_BINARY)
    return MARKER + struct.pack("<iI", REQUEST, len(payload)) + payload


def listens(path):
    """Whether a client can connect. The socket's file alone does not tell, because it is there a moment earlier."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as peer:
        return peer.connect_ex(path) == 0


class DaemonClient:
    def __init__(self, path, timeout=30):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(timeout)
        try:
            self._socket.connect(path)
        except OSError as error:
            self._socket.close()
            raise Gone(str(error)) from error

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._socket.close()

    def send(self, selector, *arguments, returns="v"):
        """Sends a call without waiting for its answer."""
        try:
            self._socket.sendall(request(selector, *arguments, returns=returns))
        except OSError as error:
            raise Gone(str(error)) from error

    def send_what_goes(self, data):
        """Sends the part of the data that is accepted at once."""
        self._socket.setblocking(False)
        try:
            self._socket.send(data)
        except BlockingIOError:
            pass

    def answer(self):
        """Reads the next answer; None when it is absent."""
        marker, kind, length = self._read(36), *struct.unpack("<iI", self._read(8))
        assert (marker, kind) == (MARKER, RESPONSE), (marker, kind)
        payload = self._read(length)
        return plistlib.loads(payload) if payload else None

    def ask(self, selector, *arguments, returns="@"):
        self.send(selector, *arguments, returns=returns)
        return self.answer()

    def _read(self, count):
        data = b""
        while len(data) < count:
            try:
                block = self._socket.recv(count - len(data))
            except OSError as error:
                raise Gone(str(error)) from error
            if not block:
                raise Gone("the end of the stream")
            data += block
        return data
