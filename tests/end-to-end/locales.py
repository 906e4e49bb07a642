"""Makes locales for a test, of languages that the computer may lack."""

import os
import subprocess

SOURCES = "/usr/share/i18n/locales"
TERRITORIES = {"de": "DE", "es": "ES", "fr": "FR", "it": "IT", "nl": "NL", "pl": "PL", "pt": "PT"}


def can_be_made():
    """Whether the system has the sources from which locales are made."""
    return os.path.isdir(SOURCES)


def made(folder, language):
    """The environment variables with which programs use the language. The locale is made in the folder."""
    name = f"{language}_{TERRITORIES[language]}"
    path = os.path.join(folder, name + ".UTF-8")
    if not os.path.exists(path):
        # localedef warns of missing parts in the system's own sources.
        subprocess.run(["localedef", "--inputfile", name, "--charmap", "UTF-8", "--force", path], check=False,
                       capture_output=True)
    return {"LOCPATH": folder, "LC_ALL": name + ".UTF-8"}
