"""A daemon for the tests that shares no code with the system: sockets, frames and property lists use Python's own library.

It records every frame and gives prepared answers. `fault` makes it misbehave."""

import os
import plistlib
import socket
import struct
import threading
import time

MARKER = b"8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04"
REQUEST, RESPONSE = 1, 2

# Simple flags of a node, which say what a person may choose.
CHECKED, ENABLED, GRAYED = 1, 2, 4
PRIORITY_CHECKED, PRIORITY_ENABLED, PRIORITY_VISIBLE = 0x10000, 0x20000, 0x40000
PRIORITY_OFFER = PRIORITY_ENABLED | PRIORITY_VISIBLE


class Frame:
    def __init__(self, marker, kind, payload):
        self.marker, self.kind, self.payload = marker, kind, payload
        self.value = plistlib.loads(payload) if payload else None

    @property
    def selector(self):
        return self.value[2]

    @property
    def arguments(self):
        return self.value[5::2]


def node(path, flags=ENABLED, directory=False, state="Not selected for backup", **more):
    return {"fileName": os.path.basename(path), "path": path, "isDirectory": directory, "simpleFlags": flags,
            "state": state, **more}


class Encoded(bytes):
    """An answer that is encoded in advance, for a daemon that must be quick."""

    @classmethod
    def of(cls, value):
        return cls(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))


class RecordingDaemon:
    """Listens from its construction on. `answers` maps a selector to a value or to a function of the arguments. When a
    selector has no answer and the caller expects a value, the response is empty."""

    def __init__(self, path, answers=None, fault=None):
        self.path = path
        self.answers = dict(answers or {})
        self.fault = fault
        self.frames = []
        self.connections = self.ended = 0
        self._changed = threading.Condition()
        self._stopping = False
        self._peers = []
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(16)
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        self._stopping = True
        for each in [self._listener, *self._peers]:
            try:
                each.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            each.close()
        self._thread.join(10)

    def selectors(self):
        with self._changed:
            return [frame.selector for frame in self.frames]

    def wait_for(self, count):
        with self._changed:
            if not self._changed.wait_for(lambda: len(self.frames) >= count, 20):
                raise AssertionError(f"{len(self.frames)} frames came, not {count}")
            return list(self.frames)

    def _accept(self):
        while not self._stopping:
            try:
                peer, _ = self._listener.accept()
            except OSError:
                return
            self.connections += 1
            self._peers.append(peer)
            threading.Thread(target=self._serve, args=(peer,), daemon=True).start()

    def _serve(self, peer):
        try:
            if self.fault == "closes at once":
                peer.close()
                return
            while True:
                header = self._read(peer, 44)
                kind, length = struct.unpack("<iI", header[36:])
                frame = Frame(header[:36], kind, self._read(peer, length))
                with self._changed:
                    self.frames.append(frame)
                    self._changed.notify_all()
                if frame.value[0] != 0:
                    self._respond(peer, frame)
        except (OSError, EOFError):
            pass
        finally:
            with self._changed:
                self.ended += 1
                self._changed.notify_all()

    def wait_until_left(self):
        """Waits until every client that connected has gone, and everything that it sent has arrived."""
        with self._changed:
            if not self._changed.wait_for(lambda: self.ended == self.connections, 20):
                raise AssertionError("a client is still connected")
            return list(self.frames)

    def _respond(self, peer, frame):
        answer = self.answers.get(frame.selector)
        value = answer(*frame.arguments) if callable(answer) else answer
        payload = b"" if value is None else value if isinstance(value, Encoded) else Encoded.of(value)
        response = MARKER + struct.pack("<iI", RESPONSE, len(payload)) + payload
        if self.fault == "garbage":
            response = MARKER + struct.pack("<iI", RESPONSE, 20) + b"bplist00 no such ..."
        elif self.fault == "noise":
            response = b"?" * 36 + response
        elif self.fault == "late":
            time.sleep(0.1)
        elif self.fault == "byte by byte":
            for byte in response:
                peer.sendall(bytes([byte]))
            return
        elif self.fault == "twice":
            response += response
        elif self.fault == "never":
            return
        elif self.fault == "dies":
            peer.close()
            return
        elif self.fault == "huge length":
            response = MARKER + struct.pack("<iI", RESPONSE, 0xFFFFFFFF) + b"few"
            peer.sendall(response)
            peer.close()
            return
        elif self.fault == "xml" and value is not None:
            payload = plistlib.dumps(value, fmt=plistlib.FMT_XML)
            response = MARKER + struct.pack("<iI", RESPONSE, len(payload)) + payload
        peer.sendall(response)

    @staticmethod
    def _read(peer, count):
        data = b""
        while len(data) < count:
            block = peer.recv(count - len(data))
            if not block:
                raise EOFError
            data += block
        return data
