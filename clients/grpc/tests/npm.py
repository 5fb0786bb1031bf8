"""Installs what the tests in Node need, as package-lock.json says, in the build folder.

The registry is the one that npm is configured for. Where none can be reached, the
tests are skipped.
"""

import os
import re
import shutil
import subprocess
import unittest

LOCK_FILE = "package-lock.json"
NPM_SECONDS = 300
UNREACHABLE = re.compile(
    r"\b(ENOTFOUND|EAI_AGAIN|ECONNREFUSED|ECONNRESET|ETIMEDOUT|ENETUNREACH|EHOSTUNREACH"
    r"|ERR_SOCKET_TIMEOUT|E403|E407|E50\d)\b"
)


def install_packages() -> str:
    """The folder node_modules. Raises SkipTest where npm can reach no registry."""
    sources, folder = os.environ["NODE_PACKAGES"], os.environ["NODE_FOLDER"]
    modules = os.path.join(folder, "node_modules")
    wanted = read(os.path.join(sources, LOCK_FILE))
    done = os.path.join(folder, "installed.json")
    if os.path.exists(done) and read(done) == wanted:
        return modules
    # What a failure leaves is not to be taken for what this file says.
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    for name in "package.json", LOCK_FILE:
        shutil.copy(os.path.join(sources, name), folder)
    run_npm(folder)
    with open(done, "w", encoding="utf-8") as file:
        file.write(wanted)
    return modules


def run_npm(folder: str) -> None:
    command = [os.environ["NPM"], "ci", "--ignore-scripts", "--no-audit", "--no-fund"]
    try:
        ran = subprocess.run(
            [*command, "--fetch-retries=0"],
            cwd=folder,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=NPM_SECONDS,
        )
    except subprocess.TimeoutExpired:
        raise unittest.SkipTest(f"npm has reached no registry in {NPM_SECONDS} s") from None
    if ran.returncode == 0:
        return
    if UNREACHABLE.search(ran.stdout):
        raise unittest.SkipTest(f"npm can reach no registry:\n{ran.stdout}")
    raise AssertionError(f"npm ci has failed:\n{ran.stdout}")


def read(path: str) -> str:
    with open(path, encoding="utf-8") as file:
        return file.read()
