#!/usr/bin/env python3
"""Prints what the backup daemon knows of a file. Written to be copied.

    file_status.py SOCKET PATH

Exit status: 0 done, 1 the daemon knows nothing of the file, 2 usage, 3 the daemon cannot be reached or has hung up."""

import os
import plistlib
import socket
import struct
import sys
from typing import Any

MARKER = b"8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04"
REQUEST, RESPONSE = 1, 2
LONGEST_ANSWER = 64 << 20  # of one file; what claims more is no daemon
CHECKED, ENABLED = 0x1, 0x2


def read(link: socket.socket, count: int) -> bytes:
    """Exactly so many bytes."""
    data = bytearray()
    while len(data) < count:
        block = link.recv(min(count - len(data), 1 << 16))
        if not block:
            raise ConnectionError("the daemon has hung up")
        data += block
    return bytes(data)


def ask(link: socket.socket, selector: str, *arguments: tuple[str, Any], returns: str = "@", width: int = 8) -> Any:
    """Calls a method and waits for its answer; each argument is a pair of its type code and its value."""
    request: list[Any] = [width, returns, selector, len(arguments)]
    for code, value in arguments:
        request += [code, value]
    payload = plistlib.dumps(request, fmt=plistlib.FMT_BINARY)
    link.sendall(MARKER + struct.pack("<iI", REQUEST, len(payload)) + payload)
    while True:
        while read(link, len(MARKER)) != MARKER:
            pass  # out of step: the next 36 bytes may be a marker
        kind, length = struct.unpack("<iI", read(link, 8))
        if length > LONGEST_ANSWER:
            raise ConnectionError("the daemon's answer is too long")
        payload = read(link, length)
        if kind == RESPONSE:  # the daemon may also call, which needs no answer here
            try:
                return plistlib.loads(payload) if payload else None
            except Exception:  # what cannot be read is no answer
                return None


def value_of(node: dict[str, Any], key: str, kind: type, otherwise: Any) -> Any:
    """A value of the node; what is missing or of another kind reads as the default."""
    value = node.get(key)
    return value if isinstance(value, kind) else otherwise


def main(arguments: list[str]) -> int:
    """The program. Returns its exit status."""
    if len(arguments) != 2:
        print("usage: file_status.py SOCKET PATH", file=sys.stderr)
        return 2
    path = os.path.abspath(arguments[1])
    try:
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as link:
            link.connect(arguments[0])
            node = ask(link, "dictionaryForPath:withDirSizes:", ("@", path), ("c", 0))
    except OSError as error:
        print(f"file_status.py: The daemon cannot be asked: {error}.", file=sys.stderr)
        return 3
    if not isinstance(node, dict):
        print(f"file_status.py: The daemon knows nothing of {path}.", file=sys.stderr)
        return 1
    flags = value_of(node, "simpleFlags", int, 0)
    backed_up = value_of(node, "backupDate", object, None)
    print(f"{path}: {value_of(node, 'state', str, 'no status')}")
    print("  in the backup: " + ("never" if not flags & ENABLED else "yes" if flags & CHECKED else "no"))
    print(f"  last backup:   {backed_up or 'none'}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
