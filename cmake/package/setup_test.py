"""What scripts/setup says on a system that has no apt: which packages are missing.

    setup_test.py SOURCE

The system here has the programs that the script itself runs, and nothing else; of
header files it has those of this one.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

NEEDED = ('basename', 'bash', 'dirname', 'grep', 'paste', 'sed', 'sort')
MISSING = {'Debian': {'g++', 'cmake', 'ninja-build', 'protobuf-compiler', 'clang-format'},
           'Fedora': {'gcc-c++', 'cmake', 'ninja-build', 'protobuf-compiler', 'clang-tools-extra'}}


def fail(text):
    sys.exit(f'setup_test.py: {text}')


def main():
    setup = pathlib.Path(sys.argv[1]) / 'scripts' / 'setup'
    with tempfile.TemporaryDirectory() as folder:
        for name in NEEDED:
            os.symlink(shutil.which(name), os.path.join(folder, name))
        ended = subprocess.run([os.path.join(folder, 'bash'), setup, '--lint'], check=False,
                               env={'PATH': folder, 'HOME': folder}, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if ended.returncode != 1 or 'nothing is installed' not in ended.stdout:
        fail(f'setup has ended with {ended.returncode}: {ended.stdout}')
    for system, wanted in MISSING.items():
        (named,) = re.findall(rf"by {system}'s(?: names)?:\n(.*)\n", ended.stdout)
        if not wanted <= set(named.split()):
            fail(f'setup does not name {wanted - set(named.split())}: {ended.stdout}')


main()
