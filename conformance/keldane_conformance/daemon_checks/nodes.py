"""Node dictionaries and listings."""

from __future__ import annotations

import os
from typing import Any

from .. import reference
from ..report import Skip, expect
from .context import (CHECKS, ENABLED, LOOK_UP, NO_FILE, SOME_FILE, SOME_FOLDER, DaemonContext, expect_kind,
                      expect_schema)

FOLDER, SYSTEM = reference.flag("Backup_Folder"), reference.flag("Backup_System")


@CHECKS.check("node/schema", "A key that lacks, or has a value of another kind, reads as 0, false or absent, and the menu "
              "shows something else.", "node.md")
def schema(context: DaemonContext) -> None:
    with context.link() as link:
        for path in (SOME_FILE, SOME_FOLDER, "/"):
            expect_schema(context.node(link, path), "node", f"the node of {path}")


@CHECKS.check("node/unsigned", "Flags, counts, sizes and numbers of users are written without a sign.", "node.md")
def unsigned(context: DaemonContext) -> None:
    with context.link() as link:
        node = context.node(link, SOME_FILE)
        for key in ("backupFlags", "simpleFlags", "backupColor", "totalCount", "size", "uid", "gid"):
            most = 2**64 if key == "size" else 2**32
            expect(0 <= node.get(key, 0) < most, f'"{key}" is {node.get(key)}')
        expect(node.get("backupColor", 0) <= 5, f"the colour {node.get('backupColor')} has no name")


@CHECKS.check("node/names", "Clients find a child by its file name, and show its display name.", "node.md")
def names(context: DaemonContext) -> None:
    with context.link() as link:
        for path in (SOME_FILE, SOME_FOLDER):
            node = context.node(link, path)
            expect(node["fileName"] == os.path.basename(path), f"the file name of {path} is {node['fileName']!r}")
            expect(node["path"] == path, f"the path of {path} is {node['path']!r}")


@CHECKS.check("node/folder", "The menu offers a folder both commands, and a tree opens it.", "node.md")
def folder(context: DaemonContext) -> None:
    with context.link() as link:
        expect(context.node(link, SOME_FOLDER)["isDirectory"] is True, f"{SOME_FOLDER} is no folder")
        expect(context.node(link, SOME_FILE)["isDirectory"] is False, f"{SOME_FILE} is a folder")


@CHECKS.check("node/missing", "Of what is not there and was never stored, nothing is known.", "node.md")
def missing(context: DaemonContext) -> None:
    with context.link() as link:
        expect(link.ask(LOOK_UP, NO_FILE, 0) is None, "something is known of what does not exist")


@CHECKS.check("node/size", "Listings show a file's size.", "node.md", destructive=True)
def size(context: DaemonContext) -> None:
    path = context.file("size/file", 12345)
    with context.link() as link:
        node = context.node(link, path)
        expect(node["size"] == 12345, f"a file of 12345 bytes has the size {node['size']}")
        expect(node["uid"] == os.stat(path).st_uid, f"its owner is {node['uid']}")


@CHECKS.check("node/names-as-they-are", "A name is text; nothing in it is a sign for anything.", "node.md", destructive=True)
def odd_names(context: DaemonContext) -> None:
    with context.link() as link:
        for name in ("with blank", "50%", "a:b", "new\nline", "quote\"'", "emoji 😀", "ÄÖÜ", "x" * 200, "%41", "#?&", "..."):
            path = context.file("names/" + name)
            node = context.node(link, path)
            expect((node["fileName"], node["path"]) == (name, path), f"{name!r} came back as {node['fileName']!r}")


@CHECKS.check("node/barred", "What is barred has no simple flags, and so no menu offers what cannot be done.", "rules.md",
              profile="full")
def barred(context: DaemonContext) -> None:
    with context.link() as link:
        paths = [path for path in link.ask("policyExcludeList") or [] if os.path.isdir(path)]
        if not paths:
            raise Skip("the policy lists no folder that is there")
        for path in paths[:5]:
            node = link.ask(LOOK_UP, path, 0)
            if node is not None:
                expect(not node["simpleFlags"] & ENABLED, f"{path} is barred, and its check box can be used")
                expect(node["backupFlags"] & SYSTEM, f"{path} is barred, and its backup flags do not say so")


def expect_listing(context: DaemonContext, folder_path: str, children: Any) -> None:
    """Fails unless an answer lists what is in a folder."""
    expect_kind(children, "array", f"the listing of {folder_path}")
    for child in children:
        expect_schema(child, "node", f"an entry of {folder_path}")
        expect(os.path.dirname(child["path"]) == folder_path, f"{child['path']} is not in {folder_path}")
    told = [child["fileName"] for child in children]
    expect(len(set(told)) == len(told), "an entry is listed twice")


@CHECKS.check("children/schema", "A tree is made from listings.", "node.md", profile="preferences")
def children(context: DaemonContext) -> None:
    with context.link() as link:
        expect_listing(context, SOME_FOLDER, link.ask("childrenDictionariesForPath:", SOME_FOLDER))
        expect(link.ask("childrenDictionariesForPath:", SOME_FILE) is None, "a file has a listing")
        expect(link.ask("childrenDictionariesForPath:", NO_FILE) is None, "what does not exist has a listing")


@CHECKS.check("children/all", "keldanectl lists what is there, sorted by name.", "node.md", profile="keldanectl",
              destructive=True)
def all_children(context: DaemonContext) -> None:
    for name in ("b", "a", "c/d", "Z", "ä"):
        context.file("listing/" + name)
    place = context.folder("listing")
    with context.link() as link:
        answer = link.ask("childrenDictionariesForPath:", place)
        expect_listing(context, place, answer)
        told = [child["fileName"] for child in answer]
        expect(sorted(told) == sorted(os.listdir(place)), f"{told} are listed and not {sorted(os.listdir(place))}")
        flagged = [child["fileName"] for child in answer if child["isDirectory"]]
        expect(flagged == ["c"], f"{flagged} are said to be folders")
        expect(link.ask("childrenDictionariesForPath:", context.folder("none")) == [], "an empty folder has no empty listing")


@CHECKS.check("node/folder-sizes", "With the second argument, a folder's size and count include what lies below.", "node.md",
              profile="full", destructive=True)
def folder_sizes(context: DaemonContext) -> None:
    for number in range(5):
        context.file(f"sizes/{number}/file", 1000)
    place = context.folder("sizes")
    with context.link() as link:
        node = link.ask(LOOK_UP, place, 1)
        expect((node["size"], node["totalCount"]) == (5000, 5),
               f"five files of 1000 bytes come to {node['size']} bytes in {node['totalCount']} files")
        expect(node["backupFlags"] & FOLDER, "the backup flags do not say that it is a folder")


@CHECKS.check("node/versions", "A file that was stored has its versions, newest first.", "node.md", profile="keldanectl")
def versions(context: DaemonContext) -> None:
    with context.link() as link:
        node = link.ask("dictionaryForPath:", SOME_FILE)
        expect_schema(node, "node", f"the node of {SOME_FILE}")
        numbers = []
        for version in node.get("versions", []):
            expect_kind(version.get("version"), "integer", '"version" of a version')
            expect_kind(version.get("backupDate"), "date", '"backupDate" of a version')
            expect_kind(version.get("size"), "integer", '"size" of a version')
            numbers.append(version["version"])
        expect(numbers == sorted(numbers, reverse=True), f"the versions come in the order {numbers}")
        expect(link.ask("dictionaryForPath:", NO_FILE) is None, "something is known of what does not exist")
