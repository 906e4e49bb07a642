"""Rules: their order of precedence, and the values that must be read after a rule was sent."""

from __future__ import annotations

import errno
import os

from .. import reference
from ..frames import Link
from ..report import Skip, expect
from .context import CHECKED, CHECKS, GRAYED, OWN_EXCLUDE, OWN_INCLUDE, SELECTED, DaemonContext, expect_kind

EXCLUDE = reference.protocol()["typeToggles"]["exclude"]
PRIORITY_CHECKED = reference.flag("Backup_Simple_Priority_Checked")
BACKED_UP = reference.flag("Backup_BackedUp")

# No real file has this extension, so that a daemon's own rules are not changed.
EXTENSION = "keldane-conformance"


@CHECKS.check("rules/add", "Whoever has sent a rule asks for the item to see that it was taken.", "rules.md", destructive=True)
def add(context: DaemonContext) -> None:
    path, folder = context.file("add/file"), context.folder("add/folder")
    with context.link() as link:
        for item in (path, folder):
            context.include(link, item)
            backup, simple = context.flags(link, item)
            expect(backup & OWN_INCLUDE, f"{item} was included, and its backup flags do not say so")
            expect(backup & SELECTED, f"{item} was included, and does not belong into the backup")
            expect(simple & CHECKED, f"{item} was included, and its check box is empty")


@CHECKS.check("rules/remove", "Whoever has sent a rule asks for the item to see that it was taken.", "rules.md",
              destructive=True)
def remove(context: DaemonContext) -> None:
    path = context.file("remove/file")
    with context.link() as link:
        context.include(link, path)
        context.include(link, path, False)
        backup, simple = context.flags(link, path)
        expect(backup & OWN_EXCLUDE, "the file was excluded, and its backup flags do not say so")
        expect(not backup & OWN_INCLUDE, "the file was excluded, and is still included by a rule of its own")
        expect(not simple & CHECKED, "the file was excluded, and its check box is ticked")


@CHECKS.check("rules/read-after-write", "A rule is accepted once an answer shows it, and the next answer on the same "
              "connection does.", "rules.md", destructive=True)
def read_after_write(context: DaemonContext) -> None:
    path = context.file("often/file")
    with context.link() as link:
        for number in range(20):
            context.include(link, path, number % 2 == 0)
            context.expect_in_backup(link, path, number % 2 == 0, f"After {number + 1} rules")


@CHECKS.check("rules/nearest-folder", "Without a rule of its own, an item goes with the nearest folder that has one.",
              "rules.md", destructive=True)
def nearest_folder(context: DaemonContext) -> None:
    deep, outside = context.file("near/a/b/c/file"), context.file("near/file")
    with context.link() as link:
        context.include(link, context.folder("near/a"))
        context.expect_in_backup(link, deep, True, "A folder far above is included")
        context.expect_in_backup(link, outside, False, "Only a folder beside it is included")
        context.include(link, context.folder("near/a/b"), False)
        context.expect_in_backup(link, deep, False, "A nearer folder is excluded")
        context.include(link, context.folder("near/a/b/c"))
        context.expect_in_backup(link, deep, True, "The nearest folder is included")


@CHECKS.check("rules/whole-names", "A rule for a folder says nothing of a folder whose name only begins like it.", "rules.md",
              destructive=True)
def whole_names(context: DaemonContext) -> None:
    with context.link() as link:
        context.include(link, context.folder("name"))
        context.expect_in_backup(link, context.file("name2/file"), False, "The folder \"name\" is included, not \"name2\"")


@CHECKS.check("rules/own-rule-first", "The rule on the item itself comes before its folder's.", "rules.md", destructive=True)
def own_rule_first(context: DaemonContext) -> None:
    one, other = context.file("own/one"), context.file("own/other")
    with context.link() as link:
        context.include(link, context.folder("own"))
        context.include(link, one, False)
        context.expect_in_backup(link, one, False, "The file's own rule excludes it")
        context.expect_in_backup(link, other, True, "Only another file is excluded")


def exclude_type(context: DaemonContext, link: Link) -> None:
    """Sets a rule for a type that no other file has, because not every daemon can take a rule back."""
    kind = "." + EXTENSION
    context.types.add(kind)
    link.call("setFileTypeToggle:toggle:", kind, EXCLUDE)


@CHECKS.check("rules/types", "The rule for a file's type comes before its folder's, and after its own.", "rules.md",
              destructive=True)
def types(context: DaemonContext) -> None:
    included = context.file(f"types/in.{EXTENSION}")
    own = context.file(f"types/own.{EXTENSION}")
    with context.link() as link:
        context.include(link, context.folder("types"))
        context.include(link, own)
        exclude_type(context, link)
        toggle = link.ask("getFileTypeToggle:", "." + EXTENSION)
        expect(toggle == EXCLUDE, f"a type was excluded, and its rule is {toggle}")
        context.expect_in_backup(link, included, False, "The folder is included and the type excluded")
        context.expect_in_backup(link, own, True, "The type is excluded and the file itself included")
        link.call("setFileTypeToggle:toggle:", "." + EXTENSION, 5)
        toggle = link.ask("getFileTypeToggle:", "." + EXTENSION)
        expect(toggle == EXCLUDE, f"5 is no rule for a type, and has made it {toggle}")


@CHECKS.check("rules/type-names", "A type is a point and what follows the last point of the name; case counts, and a folder "
              "has none.", "rules.md", destructive=True)
def type_names(context: DaemonContext) -> None:
    place = context.folder("typenames")
    has, has_not = [f"a.{EXTENSION}", f"a.b.{EXTENSION}", f"a.txt.{EXTENSION}"], [
        f"a.{EXTENSION.upper()}", f"a.{EXTENSION}.txt", EXTENSION, f"{EXTENSION}.a"]
    for name in (*has, *has_not):
        context.file("typenames/" + name)
    folder = context.folder(f"typenames/folder.{EXTENSION}")
    with context.link() as link:
        context.include(link, place)
        exclude_type(context, link)
        for name in has:
            context.expect_in_backup(link, os.path.join(place, name), False, "It is of the excluded type")
        for name in has_not:
            context.expect_in_backup(link, os.path.join(place, name), True, "It is of another type")
        context.expect_in_backup(link, folder, True, "A folder has no type")


@CHECKS.check("rules/priority", "\"As soon as possible\" sends a rule and then the preference, and the menu does not offer "
              "it again.", "flags.md", destructive=True)
def priority(context: DaemonContext) -> None:
    path = context.file("priority/file")
    with context.link() as link:
        context.include(link, path)
        link.call("setPriorityBackup:", path)
        backup, simple = context.flags(link, path)
        expect(simple & PRIORITY_CHECKED or backup & BACKED_UP,
               "the file is preferred, and neither stored nor marked so")


@CHECKS.check("rules/priority-waits", "While the backup rests, what is preferred is marked so.", "flags.md",
              profile="keldanectl", destructive=True)
def priority_waits(context: DaemonContext) -> None:
    path, excluded = context.file("waits/file"), context.file("waits/excluded")
    with context.link() as link, context.resting(link):
        context.include(link, path)
        link.call("setPriorityBackup:", path)
        backup, simple = context.flags(link, path)
        expect(simple & PRIORITY_CHECKED, "the file is preferred, and its simple flags do not say so")
        expect(backup & 15 == 1, f"the file is preferred, and its priority is {backup & 15}")
        context.include(link, excluded, False)
        link.call("setPriorityBackup:", excluded)
        expect(not context.flags(link, excluded)[1] & PRIORITY_CHECKED, "a file was preferred that is excluded")


@CHECKS.check("rules/partly", "A folder that is not included and has rules below it is partly selected.", "flags.md",
              profile="preferences", destructive=True)
def partly(context: DaemonContext) -> None:
    place = context.folder("partly")
    with context.link() as link:
        before = context.flags(link, place)[1]
        expect(not before & GRAYED, "a folder without rules below it is partly selected")
        context.include(link, context.file("partly/file"))
        after = context.flags(link, place)[1]
        expect(after & GRAYED and not after & CHECKED, f"its simple flags are {after:#x}")


@CHECKS.check("rules/answers", "The two commands with an answer say whether they were taken.", "methods.md", profile="full",
              destructive=True)
def rule_answers(context: DaemonContext) -> None:
    path = context.own(context.file("answers/file"))
    with context.link() as link:
        expect(link.ask("excludeFileFromBackup:", path) == 0, "a file could not be excluded")
        expect(context.flags(link, path)[0] & OWN_EXCLUDE, "0 was answered, and the rule does not show")
        answer = link.ask("excludedFiles:", context.folder("answers"))
        expect(answer == [path], f"below the folder, {answer} are excluded")
        expect(link.ask("unexcludeFileFromBackup:", path) == 0, "the rule could not be taken back")
        expect(not context.flags(link, path)[0] & OWN_EXCLUDE, "0 was answered, and the rule still shows")
        expect(link.ask("excludedFiles:", context.folder("answers")) == [], "a rule is listed that was taken back")
        expect(link.ask("excludeFileFromBackup:", 5) == errno.EINVAL, "5 is no path, and the answer is not EINVAL")


@CHECKS.check("rules/lists", "One call may carry many paths.", "methods.md", profile="full", destructive=True)
def lists(context: DaemonContext) -> None:
    paths = [context.own(context.file(f"lists/{number}")) for number in range(50)]
    with context.link() as link:
        link.call("addFilesToBackup:", [*paths, 5, "relative"])
        for path in paths:
            context.expect_in_backup(link, path, True, "The file was in the list")


@CHECKS.check("rules/barred", "No rule brings into the backup what is barred.", "rules.md", profile="full", destructive=True)
def barred(context: DaemonContext) -> None:
    with context.link() as link:
        policy = link.ask("policyExcludeList")
        expect_kind(policy, "array", "the policy's list")
        paths = [path for path in policy if os.path.isdir(path)]
        if not paths:
            raise Skip("the policy lists no folder that is there")
        answer = link.ask("excludeFileFromBackup:", paths[0])
        expect(answer == errno.EPERM, f"a rule for {paths[0]}, which is barred, is answered {answer} and not EPERM")
        link.call("addFileToBackup:", paths[0])
        expect(not context.flags(link, paths[0])[1] & CHECKED, f"{paths[0]} is barred and in the backup")


@CHECKS.check("rules/same-for-all", "A rule is the daemon's, not a connection's.", "rules.md", destructive=True)
def same_for_all(context: DaemonContext) -> None:
    path = context.file("shared/file")
    with context.link() as one, context.link() as other:
        context.include(one, path)
        context.expect_in_backup(one, path, True, "It was included on this connection")
        context.expect_in_backup(other, path, True, "It was included on another connection")


@CHECKS.check("rules/normalized", "Paths are the same however they are written: links are not followed, dots are resolved "
              "as text.", "rules.md", profile="full", destructive=True)
def normalized(context: DaemonContext) -> None:
    path = context.file("normal/a/file")
    with context.link() as link:
        link.call("addFileToBackup:", context.files + "/normal/./b/../a//file")
        context.own(path)
        context.expect_in_backup(link, path, True, "It was included with dots in its path")
        node = context.node(link, context.files + "/normal/a/../a/file")
        expect(node["path"] == path, f"the node's path is {node['path']}")
