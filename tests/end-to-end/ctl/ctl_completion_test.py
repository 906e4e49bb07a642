"""The scripts that keldanectl prints for the shells to complete its command lines."""

import os
import subprocess
import unittest

from ctl_harness import CTL, CtlCase


class Completion(CtlCase):
    def test_bash_completes(self):
        script = self.file("completion", self.ctl("completion", "bash"))
        self.file("some file")

        def complete(*words):
            probe = (f"source '{script}'; compopt() {{ echo files; }}; COMP_WORDS=({' '.join(map(repr, words))}); "
                     f"COMP_CWORD={len(words) - 1}; _keldanectl; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
            return subprocess.run(["bash", "-c", probe], capture_output=True, check=True, text=True).stdout.split()
        self.assertEqual(complete("keldanectl", "st"), ["status", "stop"])
        self.assertEqual(complete("keldanectl", "status", "--j"), ["--json"])
        self.assertEqual(complete("keldanectl", "automatic", "o"), ["on", "off"])
        self.assertEqual(complete("keldanectl", "profile", "s"), ["set"])
        self.assertEqual(complete("keldanectl", "profile", "get", "--"), ["--help", "--json"])
        self.assertEqual(complete("keldanectl", "add", "so"), ["files"])
        self.assertEqual(complete("keldanectl", "ls", "--f"), ["files", "--flags"])
        self.assertEqual(complete("keldanectl", "--bundle", "x", "tree", "--d"), ["files", "--depth"])

    def test_fish_completes(self):
        script = self.file("completion.fish", self.ctl("completion", "fish"))

        def complete(line):
            result = subprocess.run(["fish", "-c", f"source '{script}'; complete -C '{line}'"], capture_output=True,
                                    env={**self.environment, "PATH": os.path.dirname(CTL) + ":" + os.environ["PATH"]},
                                    check=True, text=True, cwd=self.folder("."))
            return [row.split("\t")[0] for row in result.stdout.splitlines()]
        self.assertEqual(complete("keldanectl st"), ["status", "stop"])
        self.assertIn("--json", complete("keldanectl status --"))
        self.assertEqual(sorted(complete("keldanectl automatic o")), ["off", "on"])
        self.assertEqual(complete("keldanectl profile s"), ["set"])
        self.assertIn("completion.fish", complete("keldanectl add compl"))

    def test_zsh_completes(self):
        self.file("completion", self.ctl("completion", "zsh"))
        # compadd belongs to the completion system. A function that prints its arguments replaces it.
        def complete(*words):
            probe = ("compadd() { shift; print -l -- $@ }; _files() { print files }; "
                     f"words=({' '.join(map(repr, words))}); CURRENT={len(words)}; source ./completion")
            return subprocess.run(["zsh", "-f", "-c", probe], capture_output=True, check=True, text=True,
                                  cwd=self.folder(".")).stdout.split()
        self.assertIn("status", complete("keldanectl", ""))
        self.assertIn("--until-done", complete("keldanectl", "watch", ""))
        self.assertEqual(complete("keldanectl", "add", ""), ["files"])
        self.assertIn("get", complete("keldanectl", "profile", ""))


if __name__ == "__main__":
    unittest.main()
