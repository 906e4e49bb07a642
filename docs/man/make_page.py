"""Makes a manual page: make_page.py SCDOC SOURCE OUTPUT [PROGRAM].

The line "@reference" of the source becomes what the program's own help says of its options and commands, those below its
commands included.
"""

import os
import re
import subprocess
import sys

HEADING = re.compile(r"^\s*(Options|Positionals|Subcommands):$", re.IGNORECASE)
ENTRY = re.compile(r"^( +)(\S.*?)(?:  +(\S.*))?$")
DESCRIPTION_COLUMN = 20  # whatever begins further right goes on with a description


def help_of(program, path):
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "LANGUAGE": "", "COLUMNS": "1000"}
    return subprocess.run([program, *path, "--help"], env=environment, check=True, capture_output=True, text=True).stdout


def parse(text):
    """The usage, and per heading the entries with their descriptions."""
    usage, sections, heading = "", {}, None
    columns = [match.start(3) for match in map(ENTRY.match, text.splitlines()) if match and match[3]]
    usual = max(set(columns), key=columns.count, default=0)
    for line in text.splitlines():
        if line.lower().startswith("usage:"):
            usage = line.split(":", 1)[1].strip()
        elif match := HEADING.match(line):
            heading = match[1].lower()
        elif not line.strip() or not line.startswith(" "):
            heading = None if not line.startswith(" ") else heading
        elif heading and (match := ENTRY.match(line)):
            entries = sections.setdefault(heading, [])
            if not match[3] and len(match[1]) < usual < len(line) and line[usual - 1] == " ":
                line = line[:usual] + " " + line[usual:]  # a name that fills its column has one blank after it
                match = ENTRY.match(line)
            if len(match[1]) >= DESCRIPTION_COLUMN:
                entries[-1][1] = " ".join(filter(None, (entries[-1][1], line.strip())))
            elif not match[2].startswith("["):
                entries.append([match[2], match[3] or ""])
    return usage, sections


def escaped(text):
    return re.sub(r"([\\*_])", r"\\\1", text)


def entry_lines(name, description):
    # The library's words for what is checked are no help to a reader.
    name = re.sub(r":(POSITIVE|NONNEGATIVE|FLOAT in|UINT in|INT in)( \[[^]]*\])?", "", name)
    name = re.sub(r" (TEXT|REQUIRED|Excludes:.*|Needs:.*)(?= |$)", "", name)
    return [f"*{escaped(name)}*", f"\t{escaped(description)}", ""]


def reference(program, path=()):
    usage, sections = parse(help_of(program, path))
    lines = []
    if path:
        lines += [f"## {escaped(' '.join((os.path.basename(program), *path)))}", "", escaped(help_of(program, path).split(chr(10))[0]), ""]
    if usage:
        lines += [f"*Usage:* {escaped(usage)}", ""]
    for heading in ("positionals", "options"):
        for name, description in sections.get(heading, []):
            if not (path and name.startswith("-h,")):
                lines += entry_lines(name, description)
    for name, _ in sections.get("subcommands", []):
        lines += reference(program, (*path, name))
    return lines


def main(scdoc, source, output, program=None):
    with open(source, encoding="utf-8") as stream:
        lines = stream.read().splitlines()
    page = []
    for line in lines:
        page += reference(program) if line == "@reference" else [line]
    made = subprocess.run([scdoc], input="\n".join(page) + "\n", capture_output=True, text=True, check=False)
    if made.returncode != 0:
        sys.exit(f"{source}: {made.stderr.strip()}")
    with open(output, "w", encoding="utf-8") as stream:
        stream.write(made.stdout)


if __name__ == "__main__":
    main(*sys.argv[1:])
