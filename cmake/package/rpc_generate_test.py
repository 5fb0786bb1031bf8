"""What rpc_generate() does again in a build where nothing has changed: nothing.

    rpc_generate_test.py SOURCE PLUGIN COMPILER

In a folder whose name has a space, with files whose names differ in nothing but signs
that are no letters, and with an imported file. Nothing is compiled.
"""

import pathlib
import subprocess
import sys
import tempfile

PROTOS = ('a/b', 'a_b', 'a-b')
PROJECT = '''cmake_minimum_required(VERSION 3.25)
project(generates CXX)
find_package(Protobuf REQUIRED)
add_executable(torvane::protoc-gen-rpc IMPORTED)
set_target_properties(torvane::protoc-gen-rpc PROPERTIES IMPORTED_LOCATION "{plugin}")
add_library(torvane::service INTERFACE IMPORTED)
include({source}/cmake/RpcGenerate.cmake)
rpc_generate(TARGET talks IMPORT_ROOT proto SERVICES {services} MESSAGES imported.proto)
add_custom_target(generated DEPENDS {outputs})
'''
PROTO = '''syntax = "proto3";
package p{number};
import "imported.proto";
service Talks {{ rpc Talk(Imported) returns (Imported); }}
'''


def fail(text):
    sys.exit(f'rpc_generate_test.py: {text}')


def run(*command):
    ended = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False)
    if ended.returncode != 0:
        fail(f'{command} ended with {ended.returncode}:\n{ended.stdout}')
    return ended.stdout


def write_imported(proto, field):
    (proto / 'imported.proto').write_text(
        f'syntax = "proto3";\nmessage Imported {{ bool {field} = 1; }}\n')


def write_project(folder, source, plugin):
    proto = folder / 'proto'
    (proto / 'a').mkdir(parents=True)
    write_imported(proto, 'before')
    for number, name in enumerate(PROTOS):
        (proto / f'{name}.proto').write_text(PROTO.format(number=number))
    (folder / 'CMakeLists.txt').write_text(PROJECT.format(
        source=source, plugin=plugin, services=' '.join(f'"{name}.proto"' for name in PROTOS),
        outputs=' '.join(f'"${{PROJECT_BINARY_DIR}}/gen/proto/{name}.rpc.cc"' for name in PROTOS)))
    return proto


def main():
    source, plugin, compiler = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix='with a space ') as work:
        folder = pathlib.Path(work)
        proto = write_project(folder, source, plugin)
        build = folder / 'build'
        run('cmake', '-S', folder, '-B', build, '-G', 'Ninja', f'-DCMAKE_CXX_COMPILER={compiler}')

        def steps():
            said = run('cmake', '--build', build, '--target', 'generated', '--verbose')
            return said.count('--rpc_out=')

        for what, wanted in ('the first build', len(PROTOS)), ('a build without a change', 0):
            if (seen := steps()) != wanted:
                fail(f'{what} generates {seen} files instead of {wanted}')
        write_imported(proto, 'after')
        if (seen := steps()) != len(PROTOS):
            fail(f'{seen} files are generated anew for an import that has changed')


main()
