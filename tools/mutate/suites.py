"""Which suites belong to which file, and what fraction of its mutants they are to
notice."""

from __future__ import annotations

import fnmatch
from dataclasses import dataclass

RPC = "src/core/common/rpc"

_EVENT_STREAM = ["event_stream_unittest", "event_stream_publish_unittest"]
_CALLBACK_STREAM = ["callback_stream_unittest", "callback_stream_calls_unittest",
                    "callback_messages_unittest"]
_STREAM = (["stream_base_unittest", "key_deletion_unittest"] + _EVENT_STREAM +
           _CALLBACK_STREAM + ["shared_registry_unittest", "stream_destruction_unittest",
                               "event_stream_model_unittest",
                               "callback_stream_model_unittest"])
_COMPARATOR = ["message_comparator_unittest", "message_comparator_maps_unittest",
               "message_comparator_allocation_unittest",
               "message_comparator_random_unittest"]
_GENERATOR = ["rpc_generator_unittest", "plugin_unittest"]
# Much of serving is only tested through the transport that uses it.
_SERVING = ["serving_unittest", "transport_server_unittest",
            "transport_reliability_unittest", "conformance_unittest",
            "teardown_unittest"]
_TRANSPORT = ["transport_wire_unittest", "transport_server_unittest",
              "transport_client_unittest", "transport_socket_unittest",
              "transport_reliability_unittest", "conformance_unittest",
              "teardown_unittest"]
_METHOD_KIND = ["method_kind_unittest"]

# The first pattern that fits a file says which suites run, in this order: the
# quick ones first.
_SUITES_OF_FILES = [
    (f"{RPC}/stream/message_comparator*", _COMPARATOR),
    (f"{RPC}/stream/event_stream.h", _EVENT_STREAM + [
        "key_deletion_unittest", "shared_registry_unittest",
        "event_stream_model_unittest"]),
    (f"{RPC}/stream/callback_stream.h", _CALLBACK_STREAM + [
        "key_deletion_unittest", "shared_registry_unittest",
        "callback_stream_model_unittest"]),
    (f"{RPC}/stream/method_kind.*", _METHOD_KIND + _GENERATOR + ["serving_unittest"]),
    (f"{RPC}/stream/*", _STREAM),
    (f"{RPC}/generator/*", _GENERATOR),
    (f"{RPC}/serving/*", _SERVING),
    (f"{RPC}/transport/*", _TRANSPORT),
]

# Sources that are tests, or that only tests use.
_NOT_MUTATED = ["*_unittest.cc", "*_benchmark.cc", "*_fuzzer.cc", "*_test_support.*",
                "*_model.h", "*/shared_registry_module.cc", "*/whole_code.*"]


@dataclass(frozen=True)
class Folder:
    name: str
    goal: int  # Per cent of its mutants.
    # Whether each mutant that is left needs a reason in equivalent.txt.
    explained: bool
    # Whether its golden files are made anew with each mutant.
    golden: bool = False
    # The folders within it that belong to it, too.
    parts: tuple[str, ...] = ()


FOLDERS = [
    Folder("stream", 90, explained=True),
    Folder("generator", 90, explained=True, golden=True),
    Folder("serving", 80, explained=False),
    Folder("transport", 80, explained=False,
           parts=("client", "server", "socket", "wire")),
]


def folder_of(path: str) -> Folder:
    return next(f for f in FOLDERS if path.startswith(f"{RPC}/{f.name}/"))


def suites_of(path: str) -> list[str]:
    return next(suites for pattern, suites in _SUITES_OF_FILES
                if fnmatch.fnmatch(path, pattern))


def all_suites() -> list[str]:
    return sorted({suite for _, suites in _SUITES_OF_FILES for suite in suites})


def _mutated_folders() -> list[str]:
    return [f"{RPC}/{part}" for folder in FOLDERS
            for part in (folder.name, *(f"{folder.name}/{p}" for p in folder.parts))]


def is_mutated(path: str) -> bool:
    """Whether the file, by its path below the source root, is one of those."""
    folder, _, name = path.rpartition("/")
    return (folder in _mutated_folders() and
            name.endswith((".h", ".cc")) and
            not any(fnmatch.fnmatch(path, pattern) for pattern in _NOT_MUTATED))
