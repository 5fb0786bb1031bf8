"""That the scripts find the sources, however they are called: with a CDPATH that leads
elsewhere, and through a link of another name, from a folder that has nothing of them.

    scripts_test.py SOURCE
"""

import os
import pathlib
import subprocess
import sys
import tempfile


def fail(text):
    sys.exit(f'scripts_test.py: {text}')


def help_of(script, folder, **environment):
    """What the script says of itself, and nothing else."""
    ended = subprocess.run([script, '--help'], cwd=folder, env=os.environ | environment,
                           capture_output=True, text=True, check=False)
    if ended.returncode != 0 or ended.stderr:
        fail(f'{script} --help has ended with {ended.returncode}: {ended.stderr}')
    return ended.stdout


def expect_help(script, wanted, folder, **environment):
    if (seen := help_of(script, folder, **environment)) != wanted:
        fail(f'{script} --help in {folder} with {environment} says {seen!r}')


def main():
    source = pathlib.Path(sys.argv[1])
    scripts = [script for script in sorted((source / 'scripts').iterdir())
               if script.read_text().startswith('#!/usr/bin/env bash')]
    if not scripts:
        fail('there are no scripts')
    with tempfile.TemporaryDirectory() as work:
        folder = pathlib.Path(work)
        (folder / 'scripts').mkdir()
        for script in scripts:
            wanted = help_of(script, source)
            if f'scripts/{script.name}' not in wanted:
                fail(f'{script} --help says {wanted!r}')
            expect_help(f'scripts/{script.name}', wanted, source, CDPATH=work)
            link = folder / f'link_to_{script.name}'
            link.symlink_to(script)
            expect_help(link, wanted, folder)


main()
