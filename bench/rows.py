"""Which figures are compared with which, and the goal of each comparison."""

from dataclasses import dataclass


def duration(nanoseconds):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


@dataclass(frozen=True)
class Row:
    """The ratio of two figures, ours and a peer's, by the names of their series.

    Or a figure by itself: a ratio already, or one with a unit.
    """

    name: str
    what: str
    ours: str
    theirs: str  # Empty if `ours` stands by itself.
    reach: float = 0  # 0: no goal.
    # The series are times, but the ratio is one of rates: more is better.
    at_least: bool = False
    # Of a figure that is compared with its goal alone, such as "ms".
    unit: str = ""

    def ratio_of(self, ours, theirs):
        return theirs / ours if self.at_least else ours / theirs

    def ratio(self, measurements):
        ours = measurements[self.ours].median
        theirs = measurements[self.theirs].median if self.theirs else 1
        return self.ratio_of(ours, theirs)

    def range(self, measurements):
        """The lowest and the highest ratio of any round."""
        ours = measurements[self.ours].samples
        theirs = measurements[self.theirs].samples if self.theirs else [1] * len(
            ours)
        ratios = [self.ratio_of(a, b) for a, b in zip(ours, theirs)]
        return min(ratios), max(ratios)

    def show(self, value):
        """Formats one of our figures."""
        if self.theirs:
            return duration(value)
        return f"{value:.1f} {self.unit}" if self.unit else f"{value:.2f}"

    def goal(self):
        if not self.reach:
            return ""
        unit = f" {self.unit}" if self.unit else ""
        return f"{'>=' if self.at_least else '<='} {self.reach:g}{unit}"

    def met(self, measurements):
        ratio = self.ratio(measurements)
        return ratio >= self.reach if self.at_least else ratio <= self.reach


WINDOW = "browser_window."
COMPARATOR = "message_comparator."
EVENTS = "event_stream."
GENERATOR = "rpc_generator."


def lookup(kind, keys):
    return f"{COMPARATOR}{kind}/keys:{keys}/learnable:0"


ROWS = (
    Row("dispatch_fixed_vs_virtual",
        "CallMethod, one method / direct virtual call",
        WINDOW + "DispatchFixed<Ours>", WINDOW + "DirectVirtualCall", 2.4),
    Row("dispatch_random_vs_protobuf",
        "CallMethod, random methods / protobuf's generic service",
        WINDOW + "DispatchRandom<Ours>", WINDOW + "DispatchRandom<Protobufs>",
        1.0),
    Row("prototype_vs_protobuf",
        "prototypes, random methods / protobuf's generic service",
        WINDOW + "PrototypesRandom<Ours>",
        WINDOW + "PrototypesRandom<Protobufs>", 1.0),
    Row("lookup_1k_vs_naive", "look-up among 1,000 windows / naive comparator",
        lookup("Windows<MessageComparator>", 1000),
        lookup("Windows<NaiveComparator>", 1000), 0.13),
    Row("lookup_1k_vs_int_map", "the same / `std::map<int64_t, ...>`",
        lookup("Windows<MessageComparator>", 1000), lookup("Integers", 1000),
        4),
    Row("lookup_100k_vs_int_map", "the same among 100,000",
        lookup("Windows<MessageComparator>", 100000),
        lookup("Integers", 100000), 2.5),
    Row("publish_1k_per_stream_vs_copy",
        "publish to 1,000 streams in process / copying the payload",
        EVENTS + "Publish/1000", EVENTS + "CopyPayload/1000", 4),
    Row("unary_mean_vs_epoll", "unary round trip / raw epoll echo",
        "unary.rpc.cpu", "unary.epoll.cpu", 1.12),
    Row("unary_mean_vs_grpc", "the same / gRPC, completion queues",
        "unary.rpc.cpu", "unary.grpc.cpu", 0.25),
    Row("unary_p99_vs_p50", "unary round trip: 99th percentile / median",
        "unary.rpc.tail", "", 1.3),
    Row("pipelined_vs_grpc", "unary calls per second, 64 in flight / gRPC",
        "pipelined.rpc.cpu", "pipelined.grpc.cpu", 35, at_least=True),
    Row("question_mean_vs_epoll", "question and answer / raw epoll echo",
        "question.rpc.cpu", "question.epoll.cpu", 1.25),
    Row("question_mean_vs_grpc", "the same / gRPC, bidirectional stream",
        "question.rpc.cpu", "question.grpc.cpu", 0.4),
    Row("fanout_vs_grpc",
        "events per second to 1,000 streams on 10 connections / gRPC",
        "fanout.rpc.cpu", "fanout.grpc.cpu", 40, at_least=True),
    Row("fanout_vs_epoll", "one event to 1,000 streams / raw epoll",
        "fanout.rpc.cpu", "fanout.epoll.cpu", 4.5),
    Row("generator_vs_protoc",
        "generating the service's code / protoc's C++ code for the file",
        GENERATOR + "Generate<RpcGenerator>",
        GENERATOR + "Generate<ProtocsCpp>", 1.0),
    Row("innocent_p99_under_flood",
        "a call while 16 clients flood the host, 99th percentile",
        "attacks.flood.p99", "", 10, unit="ms"),
    Row("leave_stall_ms",
        "the longest call while a client with all its streams leaves",
        "attacks.leave.longest", "", 50, unit="ms"),
    Row("stop_ms", "from SIGTERM to the host's end, with 4 such clients",
        "attacks.stop.time", "", 1000, unit="ms"),
    Row("traced_vs_untraced", "unary round trip of a server that is traced / not",
        "traced-unary.rpc.cpu", "unary.rpc.cpu", 1.1),
    Row("gateway_unary_vs_grpc",
        "unary call through the gateway / of a bare gRPC server",
        "unary-gateway.cpu", "unary-grpc.cpu", 1.5),
    Row("python_vs_python_grpc",
        "unary call of the Python client / of gRPC's, through the gateway",
        "python-native.cpu", "python-gateway.cpu", 0.5),
    # These have no goal.
    Row("gateway_relay_vs_grpc",
        "unary call through the least that a gateway must do / of a bare gRPC server",
        "unary-relay.cpu", "unary-grpc.cpu"),
    Row("gateway_event_vs_grpc",
        "an event to 100 gRPC streams through the gateway / of a bare gRPC server",
        "events-gateway.cpu", "events-grpc.cpu"),
    Row("python_vs_bare_python_grpc",
        "unary call of the Python client / of gRPC's, of a bare gRPC server",
        "python-native.cpu", "python-grpc.cpu"),
    Row("protoc_run_vs_protoc",
        "a whole run of protoc with the plugin / for messages",
        "protoc.rpc", "protoc.cpp"),
    Row("unary_mean_vs_capnp", "unary round trip / Cap'n Proto",
        "unary.rpc.cpu", "unary.capnp.cpu"),
    Row("unary_epoll_vs_grpc", "raw epoll echo / gRPC, completion queues",
        "unary.epoll.cpu", "unary.grpc.cpu"),
    Row("unary_epoll_p99_vs_p50",
        "raw epoll echo: 99th percentile / median", "unary.epoll.tail", ""),
    Row("question_epoll_vs_grpc", "raw epoll echo / gRPC, bidirectional stream",
        "question.epoll.cpu", "question.grpc.cpu"),
    Row("question_mean_vs_capnp", "question and answer / Cap'n Proto",
        "question.rpc.cpu", "question.capnp.cpu"),
    Row("timed_question_vs_epoll", "question with a deadline / raw epoll echo",
        "timed-question.rpc.cpu", "question.epoll.cpu"),
    Row("pipelined_vs_capnp",
        "unary calls per second, 64 in flight / Cap'n Proto",
        "pipelined.rpc.cpu", "pipelined.capnp.cpu", at_least=True),
    Row("pipelined_all_cores_vs_grpc", "the same / gRPC, on all cores, by time",
        "pipelined-all-cores.rpc.mean", "pipelined-all-cores.grpc.mean",
        at_least=True),
    Row("fanout_vs_capnp", "events per second to 1,000 streams / Cap'n Proto",
        "fanout.rpc.cpu", "fanout.capnp.cpu", at_least=True),
)

GOALS = tuple(row for row in ROWS if row.reach)
