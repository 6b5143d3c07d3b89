#!/usr/bin/env python3
"""What bash completes, asked as bash asks."""
import os
import pathlib
import re
import shlex
import subprocess
import unittest

from command_fixture import COMMAND, PATIENCE, CommandTestCase

COMPLETION = pathlib.Path(__file__).parent.parent / "contrib/completions/zel-thumbnail-cache"
VERBS = "save watch devices list check stats sheet".split()
CASES = {  # by the line up to the cursor: what it can go on with
    "": VERBS + ["--help", "--version"], "s": ["save", "stats", "sheet"], "d": ["devices"],
    "--v": ["--version"], "x": [], "list --": ["--json", "--bytes", "--help"],
    "check i --r": ["--repair"], "sheet i --e": ["--embed"], "save --ca": ["--cache", "--camera"],
    "save --device ": ["D1", "STICK"], "save --device S": ["STICK"], "save --device =": ["D1", "STICK"],
    "save --device = D": ["D1"], "save --index ": [], "save --cache ta": ["table"], "list ": [],
    "devices --device X": []}


class CompletionTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.attach("D1", "STICK")
        command = self.folder / "zel-thumbnail-cache"
        command.write_text(f'#!/bin/sh\nexec {shlex.join(COMMAND)} "$@"\n')
        command.chmod(0o755)
        self.settings["env"]["PATH"] = f"{self.folder}:{os.environ['PATH']}"

    def complete(self, line):
        script = ('source "$1"; COMP_WORDS=(zel-thumbnail-cache "${@:2}"); '
                  'COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zel_thumbnail_cache; '
                  '[[ ${#COMPREPLY[@]} -eq 0 ]] || printf "%s\\n" "${COMPREPLY[@]}"')
        run = subprocess.run(["bash", "-uc", script, "bash", COMPLETION, *line.split(" ")],
                             check=True, capture_output=True, timeout=PATIENCE, **self.settings)
        self.assertEqual(run.stderr, "")
        return run.stdout.splitlines()

    def test_completions(self):
        for line, words in CASES.items():
            with self.subTest(line):
                self.assertEqual(self.complete(line), words)

    def test_nothing_is_said_where_the_devices_cannot_be_listed(self):
        (self.folder / "table/now").unlink()
        self.assertEqual(self.complete("save --device "), [])

    def test_every_option_of_every_verb_is_known(self):
        for verb in VERBS:
            with self.subTest(verb):
                options = re.findall(r"(?m)^ +(--[a-z]+)", self.run_command(f"{verb} --help").stdout)
                self.assertIn("--help", options)
                self.assertLessEqual(set(options), set(self.complete(f"{verb} --")))

    def test_bash_finds_it_by_the_name_of_the_command(self):
        run = subprocess.run(["bash", "-c", f'source "{COMPLETION}"; complete -p zel-thumbnail-cache'],
                             check=True, capture_output=True, timeout=PATIENCE, **self.settings)
        self.assertIn("-F _zel_thumbnail_cache zel-thumbnail-cache", run.stdout)


if __name__ == "__main__":
    unittest.main()
