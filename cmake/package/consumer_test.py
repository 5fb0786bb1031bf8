"""Uses this project from outside, as docs/own-program.md says, and runs what comes out.

    consumer_test.py installed BUILD SOURCE COMPILER
    consumer_test.py subdirectory BUILD SOURCE COMPILER [CMAKE ARGUMENT...]

"installed" installs BUILD and moves the prefix before it uses it. "subdirectory"
takes SOURCE in as a folder, with run-time type information, and looks at what a
build of SOURCE with that would install. Both leave nothing behind.
"""

import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
CONSUMER = HERE / 'testdata' / 'consumer'


def fail(text):
    sys.exit(f'consumer_test.py: {text}')


def run(*command, status=0, **options):
    """Runs a command to its end and returns its output; fails if it ends otherwise."""
    ended = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False, **options)
    if (ended.returncode == 0) != (status == 0):
        fail(f'{command} ended with {ended.returncode}:\n{ended.stdout}')
    return ended.stdout


def expect(what, seen, wanted):
    if seen != wanted:
        fail(f'{what}: {seen!r} instead of {wanted!r}')


def blocks(source, language, page='docs/own-program.md'):
    """The page's programs in this language."""
    text = (source / page).read_text()
    return re.findall(rf'\n```{language}\n(.*?)\n```\n', text, re.DOTALL)


def check_readme(source, project, subdirectory):
    """The README shows both ways, as the page does."""
    (both,) = blocks(source, 'cmake', 'README.md')
    installed, in_tree = (line.partition('#')[0].strip() for line in both.splitlines())
    expect('the README', (installed in project, in_tree), (True, subdirectory))


def write_project(source, folder, in_tree):
    """Writes the page's project: its program, and the service of its own."""
    folder.mkdir()
    (program,) = blocks(source, 'cpp')
    project, subdirectory, generate = blocks(source, 'cmake')
    check_readme(source, project, subdirectory)
    if in_tree:
        project = re.sub(r'find_package\(torvane [^)]*\)', subdirectory, project)
        (folder / 'torvane').symlink_to(source)
    (folder / 'main.cc').write_text(program + '\n')
    shutil.copytree(CONSUMER / 'proto', folder / 'proto')
    lists = [project, generate, f'include({CONSUMER}/use.cmake)']
    if in_tree:
        lists.append(f'include({CONSUMER}/check_names.cmake)')
    (folder / 'CMakeLists.txt').write_text('\n'.join(lists) + '\n')


def configure(folder, compiler, *arguments):
    build = folder / 'build'
    run('cmake', '-S', folder, '-B', build, '-G', 'Ninja', f'-DCMAKE_CXX_COMPILER={compiler}',
        f'-DFILES={CONSUMER}', *arguments)
    return build


def check_consumer(build, wanted):
    expect('consumer', run(build / 'consumer'), wanted)
    # The record names the generated source as on every machine.
    said = run(build / 'consumer', 'fail', status=1)
    if not re.search(r"Streaming method can't be called with this call\.", said):
        fail(f'consumer fail said: {said}')


def check_server_and_caller(server, caller, work):
    """The page's program serves, and another one calls it."""
    path = work / 'socket'
    process = subprocess.Popen([server, path])
    try:
        wait_for_server(path, process)
        expect('caller', run(caller, path), 'Home\nclosed\nfailure: No such window.\n')
    finally:
        process.terminate()
        process.wait()
        path.unlink(missing_ok=True)


def wait_for_server(path, process):
    """The program does not say when it listens, so it is tried."""
    while True:
        with socket.socket(socket.AF_UNIX) as attempt:
            if attempt.connect_ex(os.fspath(path)) == 0:
                return
        if process.poll() is not None:
            fail(f'the server has ended with {process.returncode}')
        os.sched_yield()


def private_abseil(build):
    """Where the build has its Abseil from, if that is not the system's."""
    (folder,) = re.findall(r'^absl_DIR:PATH=(.*)$', (build / 'CMakeCache.txt').read_text(),
                           re.MULTILINE)
    return folder.partition('/lib/cmake/absl')[0] if not folder.startswith('/usr/') else build


def check_no_path(prefix, *paths):
    """No file of the prefix names a folder of the machine that it was built on."""
    needles = [os.fsencode(path) for path in paths]
    for file in sorted(prefix.rglob('*')):
        if file.is_file():
            data = file.read_bytes()
            for needle in needles:
                if (at := data.find(needle)) >= 0:
                    fail(f'{file.relative_to(prefix)} names a folder of the build: '
                         f'{data[max(0, at - 40):at + 80]!r}')


# The components that are not always built, and which public files are theirs.
OPTIONAL = {'glib': r'/glib_main_loop\.h$', 'grpc': '/grpc(_proto)?/'}


def has_component(prefix, name):
    return any(prefix.rglob(f'torvane-{name}.cmake'))


def check_public_files(prefix):
    """Headers and proto files are those of the list, which is kept by hand."""
    wanted = (HERE / 'public_files.txt').read_text().split('\n')
    left_out = [pattern for name, pattern in OPTIONAL.items() if not has_component(prefix, name)]
    wanted = sorted(line for line in wanted if line and not line.startswith('#')
                    and not any(re.search(pattern, line) for pattern in left_out))
    seen = []
    for root in (prefix / 'include', prefix / 'share' / 'torvane'):
        seen += [str(file.relative_to(prefix)) for file in root.rglob('*') if file.is_file()]
    for line in sorted(set(seen) ^ set(wanted)):
        print(f'{"not in the list" if line in seen else "not installed"}: {line}')
    if sorted(seen) != wanted:
        fail('what is public is not what cmake/package/public_files.txt says')


def check_documents(prefix):
    """What the pages link to is there."""
    folder = prefix / 'share' / 'doc' / 'torvane'
    for page in sorted([folder / 'README.md', *(folder / 'docs').glob('*.md')]):
        text = re.sub(r'^```.*?^```$', '', page.read_text(), flags=re.DOTALL | re.MULTILINE)
        for link in re.findall(r'\]\(([^)#]+)', text):
            if '://' not in link and not (page.parent / link).exists():
                fail(f'{page.relative_to(prefix)} links to {link}, which is not installed')


def check_versions(source, prefix):
    (version,) = re.findall(r'^project\(torvane VERSION (\S+)',
                            (source / 'CMakeLists.txt').read_text(), re.MULTILINE)
    for program in sorted((prefix / 'bin').iterdir()):
        expect('--version', run(program, '--version'), f'{program.name} {version}\n')


def build_without_cmake(prefix, folder, compiler):
    """Builds the page's program, and one on generated code, which it runs. Returns the
    page's."""
    environment = dict(os.environ, PKG_CONFIG_PATH=str(next(prefix.rglob('torvane.pc')).parent))

    def ask(*question):
        return run('pkg-config', *question, 'torvane', env=environment).split()

    def build(name, *sources):
        run(compiler, '-std=c++20', *ask('--variable=subclass_cflags'), *sources, f'-I{out}',
            '-o', folder / name, *ask('--cflags', '--libs'))
        return folder / name

    out = folder / 'generated'
    out.mkdir()
    (protos,), (plugin,) = ask('--variable=protodir'), ask('--variable=plugin')
    run('protoc', f'-I{folder}/proto', f'-I{protos}', f'--plugin=protoc-gen-rpc={plugin}',
        f'--cpp_out={out}', f'--rpc_out={out}', 'shop/shop.proto')
    consumer = build('consumer_without_cmake', CONSUMER / 'consumer.cc',
                     out / 'shop' / 'shop.pb.cc', out / 'shop' / 'shop.rpc.cc')
    expect('the consumer without CMake', run(consumer), '1 cents\n')
    return build('without_cmake', folder / 'main.cc')


def check_component(prefix, name, work, compiler, wanted):
    """A program on a component, if that was built."""
    if not has_component(prefix, name):
        return
    consumer = f'{name}_consumer'
    folder = work / consumer
    shutil.copytree(HERE / 'testdata' / consumer, folder)
    binaries = configure(folder, compiler, f'-DCMAKE_PREFIX_PATH={prefix}')
    run('cmake', '--build', binaries)
    expect(consumer, run(binaries / consumer), wanted)


def check_missing_component(prefix, work, compiler):
    """A project that needs a component which is not there is told which; one that can do
    without is not."""
    folder = work / 'needs_another'
    folder.mkdir()
    project = folder / 'CMakeLists.txt'
    project.write_text('cmake_minimum_required(VERSION 3.25)\nproject(needs_another CXX)\n'
                       'find_package(torvane REQUIRED COMPONENTS ${NEEDED}\n'
                       '             OPTIONAL_COMPONENTS another)\n')
    command = ('cmake', '-S', folder, '-B', folder / 'build', '-G', 'Ninja',
               f'-DCMAKE_CXX_COMPILER={compiler}', f'-DCMAKE_PREFIX_PATH={prefix}')
    run(*command, '-DNEEDED=stream')
    said = run(*command, '-DNEEDED=stream;missing', status=1)
    if "torvane has no component 'missing' here" not in ' '.join(said.split()):
        fail(f'find_package says of a missing component: {said}')


def test_installed(work, build, source, compiler):
    first = work / 'first'
    for component in ('dev', 'tools'):
        run('cmake', '--install', build, '--prefix', first, '--component', component)
    prefix = work / 'moved'
    first.rename(prefix)
    check_no_path(prefix, source, build, first, private_abseil(build))
    check_public_files(prefix)
    check_documents(prefix)
    check_versions(source, prefix)

    folder = work / 'my_browser'
    write_project(source, folder, in_tree=False)
    binaries = configure(folder, compiler, f'-DCMAKE_PREFIX_PATH={prefix}')
    run('cmake', '--build', binaries)
    check_consumer(binaries, '1 cents\n')
    check_server_and_caller(binaries / 'my_browser', binaries / 'caller', work)
    program = build_without_cmake(prefix, folder, compiler)
    check_server_and_caller(program, binaries / 'caller', work)
    check_component(prefix, 'glib', work, compiler, 'callback of GLib\ntask of the loop\n')
    check_component(prefix, 'grpc', work, compiler, 'listens\n')
    check_missing_component(prefix, work, compiler)


def check_warnings(build, said):
    """Warnings are errors in a build of our own, and not in another project's."""
    if not re.search(r'/src/core/.*: warning: ', said):
        fail('the other project has no warnings, so it does not show that they are allowed')
    expect('-Werror in a build of our own',
           '-Werror' in (build / 'compile_commands.json').read_text(), True)


def check_flags_of_install(source, build, compiler, rtti):
    """Whether those who install a build with this TORVANE_RTTI are told that subclasses
    have no type information. The files that say so are there before it is built."""
    run('cmake', '-S', source, '-B', build, '-G', 'Ninja', f'-DCMAKE_CXX_COMPILER={compiler}',
        '-DBUILD_TESTING=OFF', f'-DTORVANE_RTTI={rtti}')
    (targets,) = build.rglob('torvane-stream.cmake')
    (pc,) = build.rglob('torvane.pc')
    for file in targets, pc:
        expect(f'-fno-rtti in {file.name} with TORVANE_RTTI={rtti}',
               '-fno-rtti' in file.read_text(), rtti == 'OFF')


def test_subdirectory(work, build, source, compiler, arguments):
    folder = work / 'my_browser'
    write_project(source, folder, in_tree=True)
    # Its author wants to see more warnings than we do.
    binaries = configure(
        folder, compiler, '-DTORVANE_RTTI=ON', '-DCMAKE_CXX_FLAGS=-Wpadded',
        f'-DCMAKE_PROJECT_my_browser_INCLUDE={CONSUMER}/record_names.cmake', *arguments)
    said = run('cmake', '--build', binaries)
    check_warnings(build, said)
    check_consumer(binaries, '1 cents\ntype information: right\n')
    check_server_and_caller(binaries / 'my_browser', binaries / 'caller', work)
    for rtti in 'ON', 'OFF':
        check_flags_of_install(source, work / f'with_rtti_{rtti}', compiler, rtti)


def main():
    way, build, source, compiler, *arguments = sys.argv[1:]
    source = pathlib.Path(source)
    with tempfile.TemporaryDirectory() as work:
        if way == 'installed':
            test_installed(pathlib.Path(work), pathlib.Path(build), source, compiler)
        else:
            test_subdirectory(pathlib.Path(work), pathlib.Path(build), source, compiler, arguments)


main()
