"""Checks manual pages and completion against the programs and with the shells.

    pages_test.py PAGES PROGRAM...

PAGES is where the build has written them. Exit status 77 if a shell or man is
missing.
"""

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys


def fail(text):
    sys.exit(f'pages_test.py: {text}')


def output(*command, **options):
    ended = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False, **options)
    if ended.returncode != 0:
        fail(f'{command} ended with {ended.returncode}:\n{ended.stdout}')
    return ended.stdout


def flags(text):
    return set(re.findall(r'(?<![\w-])--[a-z][a-z-]*', text))


def check_manual(page, program, wanted):
    text = output('man', '--warnings=all', '-l', page, env=dict(
        os.environ, LC_ALL='C.UTF-8', MANWIDTH='400', MANPAGER='cat'))
    if 'warning' in text.split('\n', 1)[0]:
        fail(f'{page}: {text.splitlines()[0]}')
    for flag in wanted - flags(text):
        fail(f'{page} lacks {flag}')
    for heading in ('NAME', 'SYNOPSIS', 'FLAGS', 'EXIT STATUS'):
        if not re.search(rf'^{heading}$', text, re.MULTILINE):
            fail(f'{page} has no {heading}')
    if program not in text:
        fail(f'{page} is not about {program}')


def completed_by_fish(script, words):
    said = output('fish', '--no-config', '-c', f'source {script}; complete -C "{" ".join(words)}"')
    # Newer releases also offer words that only contain what was typed.
    offered = [line.split('\t')[0] for line in said.splitlines()]
    return [word for word in offered if word.startswith(words[-1])]


def completed_at_a_terminal(shell, setup, words):
    """What the last word becomes in an interactive shell when the tabulator key is pressed.

    setup has the shell say 'ready', and print the line in '<<' and '>>' for the key ^T.
    """
    child, terminal = pty.fork()
    if child == 0:
        os.execvp(shell[0], shell)
    seen = b''

    def read_until(pattern):
        nonlocal seen
        while not re.search(pattern, seen):
            if not select.select([terminal], [], [], 60)[0]:
                fail(f'{shell[0]} says no more than {seen!r}')
            seen += os.read(terminal, 4096)

    os.write(terminal, setup.encode())
    read_until(rb'\nready')
    os.write(terminal, f'{" ".join(words)}\t\x14'.encode())
    read_until(rb'<<.*>>')
    os.close(terminal)
    os.waitpid(child, 0)
    return re.search(rb'<<(.*)>>', seen)[1].decode().split()[-1:]


def completed_by_bash(script, words):
    return completed_at_a_terminal(
        ['bash', '--noprofile', '--norc', '-i'],
        f"bind 'set enable-bracketed-paste off'; source {script}; "
        'show() { echo "<""<$READLINE_LINE>"">"; exit; }; '
        "bind -x '\"\\C-t\": show'; PS1='\\nrea''dy\\n'\n", words)


def completed_by_zsh(script, words):
    # The line is handed on as it stands after the completion.
    return completed_at_a_terminal(
        ['zsh', '-f', '-i'],
        f"PS1=; fpath=({script.parent} $fpath); autoload -Uz compinit; compinit -u -D; "
        'show() { print -r -- "<""<$BUFFER>"">"; BUFFER=exit; zle accept-line }; zle -N show; '
        "bindkey '^T' show; print -r -- 'rea''dy'\n", words)


def check_completion(pages, program, words, wanted):
    for shell, complete, name in (('bash', completed_by_bash, program),
                                  ('fish', completed_by_fish, f'{program}.fish'),
                                  ('zsh', completed_by_zsh, f'_{program}')):
        seen = complete(pages / shell / name, [program, *words])
        if seen != [wanted]:
            fail(f'{shell} completes {" ".join([program, *words])} by {seen} instead of {wanted}')


def main():
    pages = pathlib.Path(sys.argv[1])
    programs = {pathlib.Path(path).name: path for path in sys.argv[2:]}
    if missing := [tool for tool in ('man', 'bash', 'fish', 'zsh') if not shutil.which(tool)]:
        print(f'missing: {", ".join(missing)}')
        sys.exit(77)
    for program, path in programs.items():
        wanted = flags(output(path, '--help'))
        if not {'--help', '--version'} <= wanted:
            fail(f'{program} --help has no flags')
        check_manual(pages / 'man1' / f'{program}.1', program, wanted)
        for shell, name in (('bash', program), ('zsh', f'_{program}'), ('fish', f'{program}.fish')):
            text = (pages / shell / name).read_text()
            known = set('--' + flag for flag in re.findall(r' -l ([a-z-]+)', text)) | flags(text)
            # Flags of another program may be named in a text.
            for flag in wanted - known - flags(output('sh', '-c', f'{path} --help | grep "\'[a-z]* .*\'" || true')):
                fail(f'{shell} does not complete {flag} of {program}')
        check_completion(pages, program, ['--vers'], '--version')
    check_completion(pages, 'windowctl', ['ans'], 'answer')
    check_completion(pages, 'windowctl', ['watch', '--reco'], '--reconnect')
    check_completion(pages, 'windowctl', ['--timeout', '3', 'status', '--js'], '--json')
    # A value that is a file.
    check_completion(pages, 'windowctl', ['--socket', '/etc/host.con'], '/etc/host.conf')
    # A folder, to be gone on in.
    check_completion(pages, 'windowctl', ['--socket', '/usr/shar'], '/usr/share/')
    # Flags whose values stand behind a sign.
    for words, wanted in ((['--timeout=3', 'ans'], 'answer'),
                          (['--socket=/usr/shar'], '--socket=/usr/share/')):
        check_completion(pages, 'windowctl', words, wanted)


main()
