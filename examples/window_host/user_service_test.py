"""Has systemd verify the unit of window_host.

    user_service_test.py SYSTEMD_ANALYZE WINDOW_HOST UNIT
"""

import os
import pathlib
import subprocess
import sys
import tempfile


def verify(systemd_analyze, unit):
    """What systemd has to say about a unit; nothing if it is well."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / 'window_host.service'
        path.write_text(unit)
        result = subprocess.run(
            [systemd_analyze, '--user', '--man=no', 'verify', path],
            env=os.environ | {'XDG_RUNTIME_DIR': folder},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False)
    # It may also say that there is no system bus, which the unit does not need.
    faults = [line for line in result.stdout.splitlines() if path.name in line]
    if result.returncode != 0 and not faults:
        return f'systemd-analyze ended with {result.returncode}: {result.stdout}'
    return '\n'.join(faults)


def main():
    systemd_analyze, window_host, path = sys.argv[1:]
    # The program need not be installed for the test.
    unit = pathlib.Path(path).read_text().replace('/usr/bin/window_host', window_host)
    if said := verify(systemd_analyze, unit):
        sys.exit(said)
    for old, new in ((f'ExecStart={window_host}', f'ExecStart={window_host}.missing'),
                     ('NoNewPrivileges', 'NoNewPriviliges')):
        wrong = unit.replace(old, new)
        if wrong == unit or not verify(systemd_analyze, wrong):
            sys.exit(f'A unit with {new} is not noticed.')


if __name__ == '__main__':
    main()
