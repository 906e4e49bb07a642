"""Bytes: messages that are cut, joined or out of step."""

from __future__ import annotations

import plistlib
import time

from .. import reference
from ..frames import MARKER, REQUEST, RESPONSE, Gone, Silent, frame, plist, request, request_value, response
from ..report import Failure, expect
from .context import CHECKS, LOOK_UP, NO_FILE, SOME_FILE, SOME_FOLDER, DaemonContext, expect_in_step


def look_up(path: str) -> bytes:
    """The request that a menu sends for each item."""
    return request(LOOK_UP, path, 0)


@CHECKS.check("frame/answer", "A client reads the marker, the type and the length before anything else.", "frame.md")
def answer_frame(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(look_up(SOME_FOLDER))
        message = link.receive()
        expect(message.marker == MARKER, f"the answer begins with {message.marker!r}")
        expect(message.kind == RESPONSE, f"the answer has type {message.kind} and not {RESPONSE}")
        expect(message.payload, "the answer has no payload, though the folder is there")


@CHECKS.check("frame/binary-answer", "Not every client reads other formats than the binary one.", "frame.md")
def binary_answer(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(look_up(SOME_FOLDER))
        payload = link.answer().payload
        expect(payload.startswith(b"bplist00"), f"the payload begins with {payload[:8]!r}")
        plistlib.loads(payload)


@CHECKS.check("frame/split-writes", "A stream has no borders: a message may come byte by byte.", "frame.md")
def split_writes(context: DaemonContext) -> None:
    with context.link() as link:
        for byte in look_up(SOME_FOLDER):
            link.send(bytes([byte]))
        expect(link.answer().value, "the answer is absent")
        expect_in_step(context, link, "After a request that came byte by byte")


@CHECKS.check("frame/pieces", "Clients write the marker, the type, the length and the payload one after the other.",
              "frame.md")
def pieces(context: DaemonContext) -> None:
    data = look_up(SOME_FOLDER)
    with context.link() as link:
        for piece in (data[:36], data[36:40], data[40:44], data[44:]):
            link.send(piece)
            time.sleep(0.02)
        expect(link.answer().value, "the answer is absent")


@CHECKS.check("frame/joined-writes", "Several messages may come with one read.", "frame.md")
def joined_writes(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(look_up(SOME_FOLDER) + look_up(SOME_FILE))
        paths = [(link.answer().value or {}).get("path") for _ in range(2)]
        expect(paths == [SOME_FOLDER, SOME_FILE], f"the answers are about {paths}")


@CHECKS.check("frame/pipelined", "Answers belong to requests by their order alone.", "connection.md")
def pipelined(context: DaemonContext) -> None:
    wanted = [SOME_FOLDER, SOME_FILE, NO_FILE] * 20
    with context.link() as link:
        for path in wanted:
            link.send(look_up(path))
        for number, path in enumerate(wanted, 1):
            value = link.answer().value
            told = value.get("path") if isinstance(value, dict) else NO_FILE
            expect(told == path, f"answer {number} is about {told} and not {path}")


@CHECKS.check("frame/no-answer-to-one-way", "A call that returns nothing has no answer: one more would be taken for the "
              "answer to the next question.", "connection.md")
def one_way(context: DaemonContext) -> None:
    with context.link() as link:
        link.call("endStateHandler")
        expect_in_step(context, link, "After a call that returns nothing")


@CHECKS.check("frame/absent-answer", "What is absent is answered by a message without a payload, not by silence.",
              "values.md")
def absent_answer(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(look_up(NO_FILE))
        message = link.answer()
        expect(message.payload == b"", "what does not exist has an answer with a payload")
        expect_in_step(context, link, "After an absent answer")


@CHECKS.check("frame/wrong-marker", "A reader steps over 36 bytes that are no marker, and goes on with the next 36.",
              "connection.md")
def wrong_marker(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(b"?" * 36 + MARKER.lower() + look_up(SOME_FOLDER))
        try:
            expect(link.answer().value, "the answer is absent")
        except (Gone, Silent) as error:
            raise Failure("the request after 72 bytes of noise has no answer") from error


@CHECKS.check("frame/no-request", "A request without a payload, or with fewer than four elements, is none: so ends a "
              "request that a client has begun and has no memory to write.", "connection.md")
def no_request(context: DaemonContext) -> None:
    for name, payload in (("an empty payload", b""), ("an empty array", plist([])), ("a string", plist("text")),
                          ("three elements", plist([8, "@", LOOK_UP])), ("a number", plist(5))):
        with context.link() as link:
            link.send(frame(REQUEST, payload))
            expect_in_step(context, link, f"After a request of {name}")


@CHECKS.check("frame/no-property-list", "What cannot be read is passed over; the frame's length says where the next begins.",
              "connection.md")
def no_property_list(context: DaemonContext) -> None:
    for payload in (b"bplist00", b"bplist00" + b"\xff" * 40, b"\0", b"<plist><array>"):
        with context.link() as link:
            link.send(frame(REQUEST, payload))
            expect_in_step(context, link, f"After the payload {payload[:12]!r}")


@CHECKS.check("frame/unknown-type", "A frame of a type that a daemon does not know asks for nothing.", "connection.md")
def unknown_type(context: DaemonContext) -> None:
    for kind in (0, 3, 7, -1, 0x7FFFFFFF):
        with context.link() as link:
            link.send(frame(kind, plist(request_value(LOOK_UP, SOME_FILE, 0))))
            expect_in_step(context, link, f"After a frame of type {kind}")


@CHECKS.check("frame/stray-answer", "An answer that nobody asked for is dropped.", "connection.md")
def stray_answer(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(response({"path": NO_FILE}) + response(None) + frame(RESPONSE, b"\xff"))
        expect_in_step(context, link, "After three answers that the daemon had not asked for")


@CHECKS.check("frame/unknown-selector", "A call that the daemon does not know has no answer, and the connection goes on: a "
              "client of tomorrow may try.", "connection.md")
def unknown_selector(context: DaemonContext) -> None:
    with context.link() as link:
        link.call("methodOfTomorrow:", SOME_FILE, codes="@", returns="@")
        expect_in_step(context, link, "After a call that nobody knows")
        link.call("dictionaryForpath:", SOME_FILE, codes="@", returns="@")  # case counts
        expect_in_step(context, link, "After a call in another case")


@CHECKS.check("frame/other-connections", "What one client does wrong is no other client's matter.", "connection.md")
def other_connections(context: DaemonContext) -> None:
    with context.link() as bad, context.link() as good:
        bad.send(MARKER + b"\1\0\0\0\0\4\0\0" + b"few")
        time.sleep(0.05)
        expect_in_step(context, good, "While another client has begun a message of 1024 bytes")
    with context.link() as good:
        expect_in_step(context, good, "After that client has left")


@CHECKS.check("frame/golden-requests", "The golden requests are understood as they are written down.", "frames/requests.json")
def golden_requests(context: DaemonContext) -> None:
    harmless = {"getFileTypeToggle:", "endStateHandler", LOOK_UP}
    for entry in reference.golden("requests"):
        if entry["meaning"][2] not in harmless:
            continue
        with context.link() as link:
            link.send(bytes.fromhex("".join(entry["bytes"])))
            if entry["meaning"][0]:
                try:
                    expect(link.answer().kind == RESPONSE, f"{entry['name']} has no answer")
                except (Gone, Silent) as error:
                    raise Failure(f"{entry['name']} has no answer") from error
            expect_in_step(context, link, f"After the golden request {entry['name']}")


@CHECKS.check("frame/golden-malformed", "What is no message is passed over or ends the connection, as it is written down.",
              "frames/malformed.json")
def golden_malformed(context: DaemonContext) -> None:
    for entry in reference.golden("malformed"):
        with context.link() as link:
            link.send(bytes.fromhex("".join(entry["bytes"])))
            if entry["endsTheConnection"]:
                expect(link.ended(context.seconds), f"the connection stays after {entry['name']}")
            else:
                expect_in_step(context, link, f"After {entry['name']}")


@CHECKS.check("frame/other-formats", "A reader takes every published form of property list, whatever it writes itself.",
              "frame.md", profile="full")
def other_formats(context: DaemonContext) -> None:
    with context.link() as link:
        link.send(frame(REQUEST, plist(request_value(LOOK_UP, SOME_FILE, 0), xml=True)))
        value = link.answer().value
        expect(isinstance(value, dict) and value.get("path") == SOME_FILE, "a request in XML was not understood")
