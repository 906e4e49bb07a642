"""A daemon that is played for a client. It records the messages that come, and answers as a check wants it."""

from __future__ import annotations

import contextlib
import os
import socket
import struct
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

from ..frames import HEADER, MARKER, REQUEST, Frame, frame, plist, request_value, response
from .world import World

# In seconds. A client that has ended has closed its connection, and its messages are read by then or soon after.
PATIENCE = 5.0

Twist = Callable[["Turn"], list[bytes] | None]


@dataclass
class Turn:
    """One request that is to be answered. A twist returns the pieces that are sent, each in one write; None hangs up."""

    selector: str
    arguments: list[Any]
    value: Any
    number: int  # number of the answer on this connection, counted from 0
    wants_answer: bool

    def answer(self) -> bytes:
        """The answer of a daemon without faults."""
        return response(self.value) if self.wants_answer else b""


def plainly(turn: Turn) -> list[bytes] | None:
    """Answers as a daemon should."""
    return [turn.answer()]


@dataclass
class Received:
    """The messages that came on one connection."""

    frames: list[Frame] = field(default_factory=list)
    problems: list[str] = field(default_factory=list)
    left: bool = False


class PlayedDaemon:
    """Listens from its construction until `stop`. Each connection has a thread."""

    def __init__(self, path: str, world: World, twist: Twist = plainly, greeting: bytes = b"", hangs_up: bool = False) -> None:
        self.path, self.world, self.twist, self.greeting, self.hangs_up = path, world, twist, greeting, hangs_up
        self.connections: list[Received] = []
        self._changed = threading.Condition()
        self._peers: list[socket.socket] = []
        self._threads: list[threading.Thread] = []
        self._stopping = False
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(16)
        self._start(self._accept)

    def __enter__(self) -> PlayedDaemon:
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    def stop(self) -> None:
        """Closes everything and removes the socket."""
        self._stopping = True
        for each in (self._listener, *self._peers):
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
            each.close()
        for thread in self._threads:
            thread.join(5)
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self.path)

    # --- The messages that came ---

    @property
    def frames(self) -> list[Frame]:
        """All messages that came, connection by connection. Waits for those that clients sent before they left."""
        self.wait(lambda: all(received.left for received in self.connections), PATIENCE)
        with self._changed:
            return [each for received in self.connections for each in received.frames]

    @property
    def problems(self) -> list[str]:
        """The problems of the messages that came."""
        with self._changed:
            return [each for received in self.connections for each in received.problems]

    def calls(self) -> list[tuple[str, list[Any]]]:
        """The selector and arguments of each request."""
        return [(each.value[2], each.value[5::2]) for each in self.frames if isinstance(each.value, list)]

    def wait(self, condition: Callable[[], bool], seconds: float) -> bool:
        """Waits until the condition holds for the messages that came."""
        with self._changed:
            return self._changed.wait_for(condition, seconds)

    def selectors(self) -> list[str]:
        """The selectors alone. It may be called within `wait`."""
        return [each.value[2] for received in self.connections for each in received.frames]

    # --- Threads ---

    def _start(self, work: Callable[..., None], *arguments: Any) -> None:
        thread = threading.Thread(target=work, args=arguments, daemon=True)
        self._threads.append(thread)
        thread.start()

    def _accept(self) -> None:
        while not self._stopping:
            try:
                peer, _ = self._listener.accept()
            except OSError:
                return
            received = Received()
            with self._changed:
                self.connections.append(received)
                self._peers.append(peer)
                self._changed.notify_all()
            self._start(self._serve, peer, received)

    def _serve(self, peer: socket.socket, received: Received) -> None:
        with contextlib.suppress(OSError, EOFError):
            if self.hangs_up:
                return self._leave(peer, received)
            peer.sendall(self.greeting)
            number = 0
            while True:
                message = self._read(peer)
                problem = problem_of(message)
                with self._changed:
                    (received.frames.append(message) if problem is None else received.problems.append(problem))
                    self._changed.notify_all()
                if problem is not None:
                    return self._leave(peer, received)
                value = message.value
                turn = Turn(value[2], value[5::2], self.world.perform(value[2], value[5::2]), number, value[0] != 0)
                if turn.selector == "setStateHandler":
                    self._start(self._tell_state, peer)
                if turn.selector == "terminate" and not self.world.refuses:
                    return self._leave(peer, received)
                pieces = self.twist(turn)
                if pieces is None:
                    return self._leave(peer, received)
                for piece in filter(None, pieces):  # an empty write would fail too when the client has left
                    peer.sendall(piece)
                number += turn.wants_answer
        return self._leave(peer, received)

    def _tell_state(self, peer: socket.socket) -> None:
        with contextlib.suppress(OSError):
            while not self._stopping:
                peer.sendall(callback("stateChanged:", self.world.state()))
                time.sleep(1)

    def _leave(self, peer: socket.socket, received: Received) -> None:
        with contextlib.suppress(OSError):
            peer.shutdown(socket.SHUT_RDWR)
        with self._changed:
            received.left = True
            self._changed.notify_all()

    @staticmethod
    def _read(peer: socket.socket) -> Frame:
        def exactly(count: int) -> bytes:
            data = b""
            while len(data) < count:
                block = peer.recv(min(count - len(data), 1 << 20))
                if not block:
                    raise EOFError
                data += block
            return data
        header = exactly(HEADER)
        kind, length = struct.unpack("<iI", header[-8:])
        return Frame(header[:len(MARKER)], kind, exactly(min(length, 1 << 26)) if header.startswith(MARKER) else b"")


def problem_of(message: Frame) -> str | None:
    """The problem of a request, in a sentence; None when there is none."""
    if message.marker != MARKER:
        return f"A message begins with {message.marker!r} and not with the marker."
    if message.kind != REQUEST:
        return f"A message has type {message.kind} and not {REQUEST}."
    if not message.payload.startswith(b"bplist00"):
        return f"A payload begins with {message.payload[:8]!r} and is no binary property list."
    try:
        value = message.value
    except ValueError as error:
        return str(error)
    if not isinstance(value, list) or len(value) < 4:
        return f"A request is no array of at least four elements, but {value!r:.80}."
    if not isinstance(value[2], str) or not isinstance(value[3], int) or len(value) != 4 + 2 * value[3]:
        return f"A request of {len(value)} elements says that it has {value[3]!r} arguments."
    return None


def callback(selector: str, *arguments: Any) -> bytes:
    """The bytes of a call that a daemon makes."""
    return frame(REQUEST, plist(request_value(selector, *arguments, codes="@" * len(arguments), returns="v")))
