"""Checks that every #include points where the layers allow it to.

Run by "scripts/lint --layers", in the source root. Prints each that does not,
and then exits with 1.
"""

import pathlib
import re
import subprocess
import sys

RPC = 'src/core/common/rpc/'
# The stream framework, which knows no transport; and with the layers on it that
# any transport uses.
SYSTEM = 'base proto stream'
LIBRARY = SYSTEM + ' loop serving'
WIRE = LIBRARY + ' asio'
# Everything that a program may include.
PUBLIC = LIBRARY + ' status reflection trace transport'

# Name of the layer, prefix of its paths, the other layers that it may include.
# The first line whose prefix fits a path counts.
LAYERS = [
    ('base', 'src/base/', ''),
    ('proto', RPC + 'proto/', 'base stream'),
    ('stream', RPC + 'stream/', 'base proto'),
    ('generator', RPC + 'generator/', 'base stream'),
    ('asio', RPC + 'loop/asio.h', ''),
    ('loop', RPC + 'loop/', 'base asio'),
    ('serving', RPC + 'serving/', SYSTEM + ' loop'),
    ('status', RPC + 'status/', LIBRARY),
    ('reflection', RPC + 'reflection/', LIBRARY),
    ('trace', RPC + 'trace/', LIBRARY),
    ('wire', RPC + 'transport/wire/', WIRE),
    ('socket', RPC + 'transport/socket/', WIRE),
    ('server', RPC + 'transport/server/', WIRE + ' wire socket transport'),
    ('client', RPC + 'transport/client/', WIRE + ' wire socket transport'),
    ('transport', RPC + 'transport/', WIRE + ' wire socket server client'),
    ('grpc', RPC + 'grpc/', WIRE),
    ('testing', RPC + 'testing/', SYSTEM + ' loop'),
    ('conformance', RPC + 'conformance/', ''),
    ('cli', 'tools/cli/', PUBLIC),
    ('soak', 'tools/soak/', PUBLIC + ' cli'),
    ('mutate', 'tools/mutate/', ''),
    ('documents', 'tools/documents/', ''),
    ('rpcctl', 'tools/rpcctl/', PUBLIC + ' cli'),
    ('rpc_gateway', 'tools/rpc_gateway/', PUBLIC + ' cli grpc'),
    ('windowctl', 'tools/windowctl/', PUBLIC + ' cli rpcctl'),
    ('windows', 'examples/window_host/windows/', PUBLIC + ' cli'),
    ('service', 'examples/window_host/service/', PUBLIC + ' cli windows'),
    ('app', 'examples/window_host/app/', PUBLIC + ' cli windows service'),
    ('x11', 'examples/web_browser/x11/', 'base loop'),
    ('display', 'examples/web_browser/testing/', 'base loop x11'),
    ('frame', 'examples/web_browser/frame/', PUBLIC + ' cli windows x11'),
    ('desktop', 'examples/web_browser/desktop/', PUBLIC + ' cli windows x11 frame'),
    ('web_browser', 'examples/web_browser/app/', PUBLIC + ' cli windows service app x11 frame desktop'),
    ('bench', 'bench/', ''),
    ('browser_bench', 'examples/web_browser/bench/', ''),
    ('browser_tests', 'examples/web_browser/tests/', ''),
    ('prelude', 'cmake/prelude.h', ''),
    ('partition_alloc', 'cmake/partition_alloc/', 'base'),
]

# Tests and what only they use. They may include anything, and only tests may
# include them. The exception are the helpers that tests of all layers share:
# what they may include is in the table.
TEST = re.compile(r'(^|/)(bench|conformance|fuzzing|testdata|testing)/'
                  r'|_(unittest|benchmark|fuzzer|model|test_support)\.(h|cc)$')
SHARED_HELPERS = 'testing'

# What programs include. Asio takes seconds to compile, so none of these headers
# may bring it along, by whatever way.
PUBLIC_HEADER = re.compile(
    RPC + r'(loop/(glib_main_)?loop|(serving|status|reflection|trace|transport)/[^/]+)\.h$')

INCLUDE = re.compile(r'\s*#\s*include\s*["<]([^">]+)[">]')

# A made-up tree to test the rules on, and what they must say about includes in
# it.
TREE = [
    RPC + 'loop/asio.h',
    RPC + 'loop/loop.h',
    RPC + 'proto/rpc/window.proto',
    RPC + 'serving/call.h',
    RPC + 'stream/service.h',
    RPC + 'testing/choice.h',
    RPC + 'transport/server.h',
    RPC + 'transport/testing/lab.proto',
]
REFUSED = [
    (RPC + 'stream/x.h', 'core/common/rpc/serving/call.h'),
    (RPC + 'stream/x.h', 'core/common/rpc/loop/loop.h'),
    (RPC + 'loop/x.h', 'core/common/rpc/stream/service.h'),
    (RPC + 'loop/x.h', 'rpc/window.pb.h'),
    (RPC + 'serving/x.h', 'asio/write.hpp'),
    (RPC + 'serving/x.h', 'core/common/rpc/transport/server.h'),
    (RPC + 'status/x.h', 'core/common/rpc/transport/server.h'),
    (RPC + 'reflection/x.h', 'core/common/rpc/transport/server.h'),
    (RPC + 'grpc/x.h', 'core/common/rpc/transport/server.h'),
    (RPC + 'transport/wire/x.h', 'core/common/rpc/transport/server.h'),
    (RPC + 'transport/client/x.h', 'lab.pb.h'),
    (RPC + 'transport/client/x.h', 'core/common/rpc/testing/choice.h'),
    (RPC + 'testing/x.h', 'core/common/rpc/serving/call.h'),
    ('tools/cli/x.h', 'core/common/rpc/loop/asio.h'),
]
ALLOWED = [
    (RPC + 'stream/x.h', 'vector'),
    (RPC + 'stream/x.h', 'rpc/window.pb.h'),
    (RPC + 'stream/x_unittest.cc', 'core/common/rpc/testing/choice.h'),
    (RPC + 'loop/x.h', 'core/common/rpc/loop/asio.h'),
    (RPC + 'transport/socket/x.h', 'asio/write.hpp'),
    (RPC + 'transport/wire/x_unittest.cc', 'core/common/rpc/transport/server.h'),
    (RPC + 'transport/client/x_unittest.cc', 'lab.pb.h'),
    ('tools/cli/x.h', 'core/common/rpc/transport/server.h'),
]


class Tree:
    def __init__(self, files):
        self.files = set(files)

    def resolve(self, file, name):
        """The path of an included file in this tree; None if it is not in it."""
        if name.startswith('asio/') or name == 'asio.hpp':
            return RPC + 'loop/asio.h'
        folder = file.rpartition('/')[0]
        for path in ('src/' + name, name, folder + '/' + name):
            if path in self.files:
                return path
        # Generated code counts as the .proto file that it is made of.
        proto = re.sub(r'\.(pb|rpc)\.h$', '.proto', name)
        if proto != name:
            return next((path for path in sorted(self.files)
                         if ('/' + path).endswith('/' + proto) and '/testdata/' not in path), None)
        return None

    def check(self, file, name):
        """Says who may not include `name`; None if `file` may."""
        layer, may_include = layer_of(file)
        target = self.resolve(file, name)
        if target is None:
            return None
        if TEST.search(file):
            if layer != SHARED_HELPERS:
                return None
        elif TEST.search(target):
            return 'what is not a test'
        other, _ = layer_of(target)
        return None if other in [layer, *may_include.split()] else layer


def layer_of(path):
    for layer, prefix, may_include in LAYERS:
        if path.startswith(prefix):
            return layer, may_include
    return None, ''


def way_to_asio(file, includes, seen=None):
    """The headers through which `file` includes Asio; empty if it does not."""
    seen = set() if seen is None else seen
    for target in includes.get(file, []):
        if target == RPC + 'loop/asio.h':
            return [target]
        if target and target not in seen:
            seen.add(target)
            way = way_to_asio(target, includes, seen)
            if way:
                return [target, *way]
    return []


def test_the_rules():
    tree = Tree(TREE)
    for cases, wanted in ((REFUSED, True), (ALLOWED, False)):
        for file, name in cases:
            if (tree.check(file, name) is not None) != wanted:
                sys.exit(f'layers.py: {file} {"may" if wanted else "may not"} include {name}, '
                         'against what the rules are to say')


def main():
    test_the_rules()
    files = subprocess.run(
        ['git', 'ls-files', '--cached', '--others', '--exclude-standard'],
        check=True, capture_output=True, text=True).stdout.splitlines()
    tree = Tree(path for path in files if pathlib.Path(path).is_file())
    includes = {}
    faults = []
    for file in sorted(tree.files):
        if not file.endswith(('.h', '.cc', '.inc')) or '/testdata/' in file:
            continue
        if layer_of(file)[0] is None:
            faults.append(f'{file}:1: is in no layer: name its folder in scripts/layers.py')
            continue
        for number, line in enumerate(pathlib.Path(file).read_text().splitlines(), 1):
            include = INCLUDE.match(line)
            if not include:
                continue
            includes.setdefault(file, []).append(tree.resolve(file, include[1]))
            who = tree.check(file, include[1])
            if who:
                faults.append(f'{file}:{number}: includes {include[1]}, which {who} may not')
    for file in filter(PUBLIC_HEADER.match, sorted(tree.files)):
        way = way_to_asio(file, includes)
        if way:
            faults.append(f'{file}:1: brings Asio along, by way of {", ".join(way[:-1])}')
    print(*faults, sep='\n', end='\n' if faults else '')
    sys.exit(1 if faults else 0)


main()
