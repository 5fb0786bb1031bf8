"""Runs every benchmark several times, and keeps the figures of each run.

A sample is a number of nanoseconds (or bytes; of attacks, milliseconds). The
programs run round by round, peer after peer, so that what slows the machine down
for a while affects all of them.
"""

import json
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile

MODES = ("unary", "pipelined", "question", "fanout")
PEERS = ("epoll", "rpc", "grpc", "capnp")
ATTACKS = ("flood", "leave", "stop")
GATEWAY_MODES = ("unary-grpc", "unary-relay", "unary-gateway", "events-grpc",
                 "events-gateway", "python-native", "python-grpc",
                 "python-gateway")

# Debian's, which python3-protobuf belongs to.
PYTHON = "/usr/bin/python3"

MICRO_BENCHMARKS = (
    "proto/rpc/browser/browser_window_benchmark",
    "stream/message_comparator_benchmark",
    "stream/event_stream_benchmark",
    "stream/callback_stream_benchmark",
    "generator/rpc_generator_benchmark",
)
MICRO_SECONDS = 0.05

# A run that got less than this share of its core's time has not had the core to
# itself.
BUSY = 0.9


class Series:
    """The samples of one figure, one for each round."""

    def __init__(self):
        self.samples = []

    @property
    def median(self):
        return statistics.median(self.samples)

    @property
    def low(self):
        return min(self.samples)

    @property
    def high(self):
        return max(self.samples)


class Measurements:
    """All figures by name: "unary.grpc.cpu", "Publish/1000"."""

    def __init__(self):
        self.series = {}
        self.busy_runs = 0
        self.runs = 0

    def add(self, name, value):
        self.series.setdefault(name, Series()).samples.append(value)

    def note_whether_busy(self, result):
        """Of a run on one core: whether it had to wait for that."""
        self.runs += 1
        self.busy_runs += result["cpu"] < BUSY * result["mean"]

    def __getitem__(self, name):
        return self.series[name]

    def save(self, path):
        content = {name: series.samples for name, series in self.series.items()}
        path.write_text(json.dumps(content, indent=1, sort_keys=True) + "\n")


def run(command):
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, timeout=120)
    except (OSError, subprocess.TimeoutExpired) as error:
        sys.exit(f"bench: {' '.join(map(str, command))}: {error}")
    if done.returncode != 0:
        sys.exit(f"bench: {' '.join(map(str, command))} failed")
    return json.loads(done.stdout)


def run_micro(build, measurements):
    folder = build / "src/core/common/rpc"
    for benchmark in MICRO_BENCHMARKS:
        report = run([folder / benchmark, "--benchmark_format=json",
                      f"--benchmark_min_time={MICRO_SECONDS}"])
        for result in report["benchmarks"]:
            if result.get("error_occurred"):
                sys.exit(f"bench: {result['name']}: {result['error_message']}")
            unit = {"ns": 1, "us": 1e3, "ms": 1e6}[result["time_unit"]]
            prefix = pathlib.Path(benchmark).name.removesuffix("_benchmark")
            measurements.add(f"{prefix}.{result['name']}",
                             result["cpu_time"] * unit)


def run_pair(program, name, mode, measurements, *flags):
    result = run([program, mode, *flags])
    for figure, value in result.items():
        measurements.add(f"{name}.{figure}", value)
    if "cpu" in result and not flags:
        measurements.note_whether_busy(result)
        measurements.add(f"{name}.tail", result["p99"] / result["p50"])


def run_gateway(build, measurements):
    """Measures gRPC's clients with and without the gateway, and Python's."""
    program = pathlib.Path(__file__).parent / "end_to_end/gateway.py"
    for mode in GATEWAY_MODES:
        result = run([PYTHON, "-B", program, mode, build])
        for figure, value in result.items():
            measurements.add(f"{mode}.{figure}", value)
        measurements.note_whether_busy(result)


def run_attacks(build, measurements):
    """Measures the host while clients attack it, in milliseconds."""
    program = pathlib.Path(__file__).parent / "end_to_end/attacks.py"
    for attack in ATTACKS:
        figures = run([PYTHON, "-B", program, attack, build])
        for figure, milliseconds in figures.items():
            measurements.add(f"attacks.{attack}.{figure}", milliseconds)


def run_protoc(build, measurements):
    """Measures whole runs of protoc: with the plugin, and for messages alone."""
    protos = pathlib.Path(__file__).parent.parent / "src/core/common/rpc/proto"
    plugin = build / "src/core/common/rpc/generator/protoc-gen-rpc"
    outputs = {
        "rpc": [f"--plugin=protoc-gen-rpc={plugin}", "--rpc_out"],
        "cpp": ["--cpp_out"],
    }
    for name, (*flags, output) in outputs.items():
        with tempfile.TemporaryDirectory() as folder:
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            subprocess.run(["protoc", f"-I{protos}", *flags,
                            f"{output}={folder}",
                            "rpc/browser/browser_window.proto"], check=True)
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
        seconds = (after.ru_utime - before.ru_utime + after.ru_stime -
                   before.ru_stime)
        measurements.add(f"protoc.{name}", seconds * 1e9)


def run_round(build, measurements):
    """Runs everything once; programs that are compared run one after the other."""
    folder = build / "bench"
    for mode in MODES:
        for peer in PEERS:
            run_pair(folder / f"{peer}_bench", f"{mode}.{peer}", mode,
                     measurements)
    run_pair(folder / "rpc_bench", "timed-question.rpc", "timed-question",
             measurements)
    run_pair(folder / "rpc_bench", "traced-unary.rpc", "traced-unary",
             measurements)
    for peer in PEERS:
        run_pair(folder / f"{peer}_bench", f"pipelined-all-cores.{peer}",
                 "pipelined", measurements, "--all-cores")
    run_gateway(build, measurements)
    run_pair(folder / "host_memory", "memory", "memory", measurements)
    run_attacks(build, measurements)
    run_protoc(build, measurements)
    run_micro(build, measurements)


def measure(build, rounds):
    measurements = Measurements()
    # Programs that fail leave files behind, which are removed with this folder.
    with tempfile.TemporaryDirectory() as folder:
        os.environ["TMPDIR"] = folder
        for number in range(1, rounds + 1):
            print(f"round {number} of {rounds}", file=sys.stderr, flush=True)
            run_round(build, measurements)
        del os.environ["TMPDIR"]
    return measurements
