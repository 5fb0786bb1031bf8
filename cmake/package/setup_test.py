"""What scripts/setup says on a system that has no apt: which packages are missing.

    setup_test.py SOURCE

The system here has the programs that the script itself runs, and nothing else; of
header files it has those of this one. A package that the script does not know how to
look for fails it.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

NEEDED = ('basename', 'bash', 'dirname', 'grep', 'paste', 'readlink', 'sed', 'sort')
# What each option asks for, among others: by Debian's name and by Fedora's.
MISSING = {
    '': {'g++': 'gcc-c++', 'cmake': 'cmake', 'ninja-build': 'ninja-build',
         'protobuf-compiler': 'protobuf-compiler', 'python3-protobuf': 'python3-protobuf'},
    '--lint': {'clang-format': 'clang-tools-extra', 'man-db': 'man-db', 'systemd': 'systemd'},
    '--sanitizers': {'clang': 'clang', 'clang-tidy': 'clang-tools-extra'},
    '--peers': {'capnproto': 'capnproto', 'python3-grpcio': 'python3-grpcio'},
    '--coverage': {'llvm': 'llvm'},
    '--browser': {'xvfb': 'xorg-x11-server-Xvfb', 'python3-xlib': 'python3-xlib'},
    '--grpc': {'protobuf-compiler-grpc': 'grpc-plugins', 'nginx-light': 'nginx'},
}
ONLY_ON_DEBIAN = {'dpkg-dev', 'ca-certificates', 'debian-archive-keyring', '-'}


def fail(text):
    sys.exit(f'setup_test.py: {text}')


def check(folder, setup, option, missing):
    ended = subprocess.run([os.path.join(folder, 'bash'), setup, *option.split()], check=False,
                           env={'PATH': folder, 'HOME': folder}, text=True,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if ended.returncode != 1 or 'nothing is installed' not in ended.stdout:
        fail(f'setup {option} has ended with {ended.returncode}: {ended.stdout}')
    for system, wanted in ('Debian', set(missing)), ('Fedora', set(missing.values())):
        (line,) = re.findall(rf"by {system}'s(?: names)?:\n(.*)\n", ended.stdout)
        named = set(line.split())
        if wanted - named or named & ONLY_ON_DEBIAN:
            fail(f'setup {option} should name {wanted} by {system}: {ended.stdout}')


def main():
    setup = pathlib.Path(sys.argv[1]) / 'scripts' / 'setup'
    with tempfile.TemporaryDirectory() as folder:
        for name in NEEDED:
            os.symlink(shutil.which(name), os.path.join(folder, name))
        for option, missing in MISSING.items():
            check(folder, setup, option, {**MISSING[''], **missing})


main()
