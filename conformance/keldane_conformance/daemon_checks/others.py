"""Other users, and the second socket."""

from __future__ import annotations

import datetime
import os
import stat
import traceback
from collections.abc import Callable, Iterator

from .. import reference
from ..frames import Gone, Link, Silent, frame, plist, request_value, REQUEST
from ..meaning import kind
from ..report import Failure, Skip, expect
from .context import CHECKS, LOOK_UP, DaemonContext, expect_kind

NOBODY = 65534


def as_nobody(context: DaemonContext, work: Callable[[Link], str | None]) -> None:
    """Runs a function in a process of another user. Fails with the sentence that the function returns."""
    if os.geteuid() != 0:
        raise Skip("only root can be somebody else")
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        sentence: str | None = None
        try:
            os.close(reader)
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(NOBODY)
            with context.link() as link:
                sentence = work(link)
        except (Gone, PermissionError):
            sentence = "SKIP another user cannot reach the socket"
        except BaseException:  # pylint: disable=broad-exception-caught
            sentence = traceback.format_exc()
        os.write(writer, (sentence or "").encode()[:4000])
        os._exit(0)
    os.close(writer)
    with os.fdopen(reader, encoding="utf-8") as stream:
        answer = stream.read()
    os.waitpid(child, 0)
    if answer.startswith("SKIP "):
        raise Skip(answer[5:])
    if answer:
        raise Failure(answer)


@CHECKS.check("others/reading", "Nobody learns of a file from the daemon that this user could not read.", "methods.md",
              profile="full", destructive=True)
def reading(context: DaemonContext) -> None:
    secret = context.file("others/secret")
    os.chmod(secret, 0o600)
    for place in (context.files, os.path.dirname(secret)):
        os.chmod(place, 0o755)

    def work(link: Link) -> str | None:
        if link.ask(LOOK_UP, secret, 0) is not None:
            return "another user learns of a file of mode 0600"
        if link.ask("childrenDictionariesForPath:", os.path.dirname(secret)):
            return "another user is listed a file of mode 0600"
        if link.ask("backupColorsForFiles:", [secret]) != [0]:
            return "another user learns the colour of a file of mode 0600"
        return None

    as_nobody(context, work)


@CHECKS.check("others/changing", "Another user changes neither settings nor rules of what is not this user's.", "methods.md",
              profile="full", destructive=True)
def changing(context: DaemonContext) -> None:
    path = context.file("others/file")
    os.chmod(path, 0o644)
    os.chmod(context.files, 0o755)

    def work(link: Link) -> str | None:
        link.call("setPausedMinutes:", 77)
        link.call("setValueForProfileKey:withString:", "KeldaneConformanceStranger", "x")
        link.call("addFileToBackup:", path)
        if link.ask("pausedMinutes") > 70:
            return "another user has paused the backup"
        if link.ask("stringValueForProfileKey:", "KeldaneConformanceStranger"):
            return "another user has changed the profile"
        link.call("terminate")
        node = link.ask(LOOK_UP, path, 0)
        if kind(node) == "dictionary" and node["backupFlags"] & 0x80:
            return "another user has changed the rule of a file of root's"
        return None

    as_nobody(context, work)
    with context.link() as link:
        expect(isinstance(link.ask("daemonState"), dict), "another user has ended the daemon")


def owner_link(context: DaemonContext) -> Link:
    """A connection to the second socket."""
    path = context.path + ".owner"
    if not os.path.exists(path):
        raise Skip("there is no second socket")
    try:
        return Link(path, context.seconds)
    except Gone as error:
        raise Skip(f"the second socket is for its owner: {error}") from error


def owner_request(selector: str, argument: object) -> bytes:
    """A request of the second socket. It has one object as its argument and one as its answer."""
    return frame(REQUEST, plist(request_value(selector, argument, codes="@", returns="@")))


@CHECKS.check("owner/mode", "What is asked there is the owner's alone.", "methods.md", profile="full")
def owner_mode(context: DaemonContext) -> None:
    with owner_link(context):
        mode = stat.S_IMODE(os.stat(context.path + ".owner").st_mode)
        expect(mode & 0o077 == 0, f"others have rights on the second socket: {mode:o}")


@CHECKS.check("owner/answers", "Each question of the second socket is answered by a dictionary, one that cannot be "
              "understood by one with an \"error\".", "methods.md", profile="full")
def owner_answers(context: DaemonContext) -> None:
    with owner_link(context) as link:
        link.send(owner_request("repository:", {}))
        answer = link.answer().value
        expect_kind(answer, "dictionary", "the answer to repository:")
        for key in ("health", "location"):
            expect(key in answer or "error" in answer, f'the answer to repository: lacks "{key}"')
        for selector, argument in (("repository:", 5), ("find:", {}), ("find:", {"pattern": 5}),
                                   ("restoreReport:", {"job": "one"})):
            link.send(owner_request(selector, argument))
            answer = link.answer().value
            expect_kind(answer, "dictionary", f"the answer to {selector} {argument}")
            expect_kind(answer.get("error"), "string", f'"error" of the answer to {selector} {argument}')


# For each kind, a value of another kind.
OTHER_KIND = {"string": 5, "integer": "text", "boolean": "text", "dictionary": "text", "array": "text", "date": "text"}
RIGHT_KIND = {"string": "text", "integer": 1, "boolean": True, "dictionary": {}, "array": [{"path": "/"}],
              "date": datetime.datetime(2026, 11, 20)}


def wrong_requests() -> Iterator[tuple[str, object, str]]:
    """Requests that no daemon may carry out: the selector, the argument, and its fault."""
    for row in reference.protocol()["ownerMethods"]:
        keys = [text.split(" ") for text in row["request"]]
        right = {name.rstrip("*"): RIGHT_KIND[kind_] for name, kind_ in keys if name.endswith("*")}
        yield row["selector"], "no dictionary", "is a string"
        for name, kind_ in keys:
            key = name.rstrip("*")
            yield row["selector"], {**right, key: OTHER_KIND[kind_]}, f'has another kind of value for "{key}"'
            if name.endswith("*"):
                yield row["selector"], {each: value for each, value in right.items() if each != key}, f'lacks "{key}"'


@CHECKS.check("owner/requests", "A request that lacks a required key, or has a value of another kind, is refused as a whole.",
              "methods.md", profile="full", destructive=True)  # a daemon that does not refuse may carry out a request
def owner_requests(context: DaemonContext) -> None:
    context.folder("owner")
    with owner_link(context) as link:
        for selector, argument, what in wrong_requests():
            link.send(owner_request(selector, argument))
            answer = link.answer().value
            expect(isinstance(answer, dict) and isinstance(answer.get("error"), str),
                   f"the request of {selector} {what}, and the answer is {answer}")


@CHECKS.check("owner/unknown", "A question of tomorrow has no answer, and the connection goes on.", "versioning.md",
              profile="full")
def owner_unknown(context: DaemonContext) -> None:
    with owner_link(context) as link:
        link.send(owner_request("methodOfTomorrow:", {}))
        link.send(owner_request("repository:", {}))
        answer = link.answer().value
        expect(isinstance(answer, dict) and "error" not in answer, f"the answer is {answer}")
        try:
            link.answer(0.3)
        except (Silent, Gone):
            return
        raise Failure("a question that nobody knows was answered")
