"""The menu that belongs to a node, by the table of flags."""

from __future__ import annotations

import json
from typing import Any

from . import reference

BACK_UP, EXCLUDE = "Back This Up", "Don't Back This Up"
ASAP, PREFERENCES = "Back Up This File As Soon As Possible", "Open Keldane Preferences…"
COMMANDS = (BACK_UP, EXCLUDE, ASAP, PREFERENCES)

CHECKED, ENABLED, GRAYED = (reference.flag("Backup_Simple_" + name) for name in ("Checked", "Enabled", "Grayed"))
PRIORITY_CHECKED, PRIORITY_ENABLED, PRIORITY_VISIBLE = (
    reference.flag("Backup_Simple_Priority_" + name) for name in ("Checked", "Enabled", "Visible"))
PRIORITY_OFFER = PRIORITY_ENABLED | PRIORITY_VISIBLE


def expected(flags: int, is_folder: bool) -> list[str] | None:
    """The commands that a menu offers for one item with these simple flags; None when there is no menu."""
    if not flags & ENABLED:
        return None
    offers = []
    both = is_folder or (flags & GRAYED and not flags & CHECKED)
    if both or not flags & CHECKED:
        offers.append(BACK_UP)
    if both or flags & CHECKED:
        offers.append(EXCLUDE)
    if not is_folder and flags & PRIORITY_OFFER == PRIORITY_OFFER and not flags & PRIORITY_CHECKED:
        offers.append(ASAP)
    return [*offers, PREFERENCES]


def _titles(document: Any) -> list[str] | None:
    menu = document.get("menu") if isinstance(document, dict) else None
    return None if menu is None else [item["title"] for item in menu["items"]]


def shown(output: str) -> tuple[list[str] | None, str]:
    """The commands that a program has printed, and all its text. JSON with "menu", "items" and "title" is read as such.
    In any other text, each line that begins with a command's title counts."""
    try:
        titles = _titles(json.loads(output))
    except ValueError:
        titles = [line.strip() for line in output.splitlines()]
    if titles is None:
        return None, ""
    found = [command for title in titles for command in COMMANDS
             if title == command or title.startswith(command + " [")]
    return found or None, "\n".join(titles)
