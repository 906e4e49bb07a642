"""The data that must survive the end of the daemon."""

from __future__ import annotations

import os
import signal
import socket
import struct
import subprocess
import time

from .. import reference
from ..frames import Gone, Link, Silent
from ..report import Failure, Skip, expect
from .context import CHECKS, OWN_EXCLUDE, OWN_INCLUDE, DaemonContext

EXCLUDE = reference.protocol()["typeToggles"]["exclude"]


def process_of(link: Link) -> int:
    """The ID of the process at the other end."""
    credentials = link.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
    return int(struct.unpack("iII", credentials)[0])


def start(context: DaemonContext) -> None:
    """Starts the daemon by the command line's `restart`, and waits until it answers. It goes on when the kit has ended."""
    assert context.restart
    with subprocess.Popen(context.restart, start_new_session=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL) as process:
        process.returncode = 0  # the user who gave the command ends the daemon
    end = time.monotonic() + 30
    while time.monotonic() < end:
        try:
            with context.link() as link:
                link.ask("getFileTypeToggle:", ".x")
                return
        except (Gone, Silent):
            time.sleep(0.1)
    raise Failure("the daemon did not answer within 30 seconds of its start")


def kill(context: DaemonContext, link: Link) -> None:
    """Kills the daemon that a link leads to."""
    process = process_of(link)
    if process in (0, os.getpid(), os.getppid()):
        raise Skip("the daemon's process is not known")
    os.kill(process, signal.SIGKILL)
    expect(link.ended(context.seconds), "the daemon was killed, and its connection stays")


@CHECKS.check("survival/kill", "What an answer has shown survives the death of the daemon at any moment.", "rules.md",
              profile="keldanectl", destructive=True)
def survives_kill(context: DaemonContext) -> None:
    if not context.restart:
        raise Skip("--restart does not say how to start it again")
    included, excluded = context.file("kill/included"), context.file("kill/excluded")
    kind = ".keldane-conformance-kill"
    with context.link() as link:
        context.include(link, included)
        context.include(link, excluded, False)
        context.types.add(kind)
        link.call("setFileTypeToggle:toggle:", kind, EXCLUDE)
        expect(context.flags(link, included)[0] & OWN_INCLUDE, "the rule was not taken")
        expect(context.flags(link, excluded)[0] & OWN_EXCLUDE, "the rule was not taken")
        expect(link.ask("getFileTypeToggle:", kind) == EXCLUDE, "the rule for the type was not taken")
        kill(context, link)
    start(context)
    with context.link() as link:
        expect(context.flags(link, included)[0] & OWN_INCLUDE, "the rule that includes a file was lost")
        expect(context.flags(link, excluded)[0] & OWN_EXCLUDE, "the rule that excludes a file was lost")
        expect(link.ask("getFileTypeToggle:", kind) == EXCLUDE, "the rule for a type was lost")


@CHECKS.check("survival/terminate", "A daemon that is told to end does, and closes its connections.", "methods.md",
              profile="keldanectl", destructive=True)
def terminates(context: DaemonContext) -> None:
    if not context.restart:
        raise Skip("--restart does not say how to start it again")
    context.folder("terminate")
    with context.link() as link, context.link() as other:
        link.call("terminate")
        expect(other.ended(30), "the daemon was told to end, and a connection stays")
    start(context)


