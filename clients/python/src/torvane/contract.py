"""What services there are: their methods and message classes, from descriptors.

The classes live in a pool of their own. Nothing is registered with protobuf's
default pool, and no module is made, so a program may have generated code of the
same proto files beside this package.
"""

import dataclasses
import enum
import functools
import keyword
import re
from importlib import resources
from typing import Any, Callable, Dict, Optional, Tuple

from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

# A message class or a descriptor. Protobuf makes them at run time, so they have
# no better type.
MessageClass = Any
Descriptor = Any

WINDOW_ID = "BrowserId"
_EVENT_REQUEST = "rpc.EventSubscription"
# Messages that hold one value, which is what a call returns instead.
WRAPPERS = frozenset(
    f"google.protobuf.{kind}Value"
    for kind in (
        "Bool Bytes Double Float Int32 Int64 String UInt32 UInt64".split()
    )
)

# Where a word ends: "get|Title", "URL|Of".
_WORD_BOUNDARY = re.compile(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])")

# Field numbers in FileDescriptorProto and ServiceDescriptorProto, by which the
# comments of a proto file are found.
_SERVICE_OF_FILE = 6
_METHOD_OF_SERVICE = 2


class MethodKind(enum.Enum):
    """How a method is used."""

    UNARY = "unary"
    EVENTS = "events"
    QUESTIONS = "questions"
    # It streams in a way that this protocol does not define.
    OTHER = "other"


@dataclasses.dataclass(frozen=True)
class Method:
    """One method of a service.

    name is the name in the proto file, python_name that of the function here:
    "SetTitle" is set_title. doc is the comment in the proto file. plain turns a
    response into what a call returns.
    """

    service: str
    name: str
    full_name: str
    python_name: str
    kind: MethodKind
    request_class: MessageClass
    response_class: MessageClass
    plain: Callable[[Any], Any]
    doc: str


@dataclasses.dataclass(frozen=True)
class ServiceContract:
    """One service: its full name, its comment, and its methods in order."""

    full_name: str
    doc: str
    methods: Tuple[Method, ...]


class Contract:
    """A set of proto files, ready to be spoken.

    Immutable, and usable from any thread.
    """

    def __init__(self, descriptor_set: bytes) -> None:
        """Reads a serialised google.protobuf.FileDescriptorSet.

        It must contain what its files import, each before the files that import
        it, as "protoc --include_imports" writes it. Comments are used where it
        has them. Raises ValueError if it is none.
        """
        self._pool = descriptor_pool.DescriptorPool()
        self._comments: Dict[str, str] = {}
        # In the proto form of their descriptors: only that tells with all versions of
        # protobuf whether a method streams.
        self._services: Dict[str, Any] = {}
        for file in _parse(descriptor_set).file:
            self._add(file)

    @property
    def services(self) -> Tuple[str, ...]:
        """The full names of all services."""
        return tuple(self._services)

    def message(self, full_name: str) -> MessageClass:
        """The class of a message, such as "rpc.Rect".

        Raises KeyError where there is none.
        """
        try:
            return _class_of(self._pool.FindMessageTypeByName(full_name))
        except KeyError:
            raise KeyError(f"the contract has no message {full_name}") from None

    def service(self, full_name: str) -> ServiceContract:
        """A service by its full name. Raises KeyError where there is none."""
        service = self._services.get(full_name)
        if service is None:
            raise KeyError(
                f"the contract has no service {full_name}; it has "
                + ", ".join(self._services)
            )
        return ServiceContract(
            full_name=full_name,
            doc=self._comments.get(full_name, ""),
            methods=tuple(self._method(full_name, method) for method in service.method),
        )

    def _add(self, file: Any) -> None:
        prefix = f"{file.package}." if file.package else ""
        names = [prefix + service.name for service in file.service]
        self._services.update(zip(names, file.service))
        for location in file.source_code_info.location:
            path = location.path
            if not path or path[0] != _SERVICE_OF_FILE:
                continue
            comment = _tidy(location.leading_comments)
            if len(path) == 2:
                self._comments[names[path[1]]] = comment
            elif len(path) == 4 and path[2] == _METHOD_OF_SERVICE:
                method = file.service[path[1]].method[path[3]].name
                self._comments[f"{names[path[1]]}.{method}"] = comment
        file.ClearField("source_code_info")
        self._pool.AddSerializedFile(file.SerializeToString())

    def _method(self, service: str, method: Any) -> Method:
        # Types are written with a dot before the full name.
        request = self._pool.FindMessageTypeByName(method.input_type[1:])
        response = self._pool.FindMessageTypeByName(method.output_type[1:])
        full_name = f"{service}.{method.name}"
        return Method(
            service=service,
            name=method.name,
            full_name=full_name,
            python_name=snake_case(method.name),
            kind=_kind(method, request, response),
            request_class=_class_of(request),
            response_class=_class_of(response),
            plain=_plain_for(response.full_name),
            doc=self._comments.get(full_name, ""),
        )


@functools.lru_cache(maxsize=None)
def builtin_contract() -> Contract:
    """The contract that this package was built with."""
    return Contract((resources.files("torvane") / "contract.binpb").read_bytes())


def snake_case(name: str) -> str:
    """ "GetTitle" is get_title, "GetURLOf" is get_url_of, "Import" is import_."""
    snake = _WORD_BOUNDARY.sub("_", name).lower()
    return snake + "_" if keyword.iskeyword(snake) else snake


def _parse(descriptor_set: bytes) -> Any:
    try:
        return descriptor_pb2.FileDescriptorSet.FromString(descriptor_set)
    except Exception as error:  # protobuf's DecodeError, which is no ValueError
        raise ValueError(f"not a FileDescriptorSet: {error}") from None


def _class_of(descriptor: Descriptor) -> MessageClass:
    if hasattr(message_factory, "GetMessageClass"):
        return message_factory.GetMessageClass(descriptor)
    return _old_factory().GetPrototype(descriptor)


@functools.lru_cache(maxsize=None)
def _old_factory() -> Any:
    # It keeps the classes that it has made, so one factory serves all pools.
    return message_factory.MessageFactory()


def _tidy(comment: str) -> str:
    return "\n".join(line.strip() for line in comment.strip().splitlines())


def _kind(method: Any, request: Descriptor, response: Descriptor) -> MethodKind:
    if not method.client_streaming and not method.server_streaming:
        return MethodKind.UNARY
    if not (method.client_streaming and method.server_streaming):
        return MethodKind.OTHER
    if request.full_name == _EVENT_REQUEST:
        return MethodKind.EVENTS
    if request.full_name == response.full_name and _is_callback_message(request):
        return MethodKind.QUESTIONS
    return MethodKind.OTHER


def _is_callback_message(message: Descriptor) -> bool:
    body = message.oneofs_by_name.get("body")
    members = {field.name: field.number for field in body.fields} if body else {}
    return (
        names_window(message)
        and members.get("subscribe") == 2
        and members.get("response") == 4
    )


def names_window(message: Descriptor) -> bool:
    """Whether a message has a field browser_id that names a window."""
    field = message.fields_by_name.get("browser_id")
    return (
        field is not None
        and field.message_type is not None
        and field.message_type.full_name == WINDOW_ID
    )


def full_name_of(value: object) -> Optional[str]:
    """The full name of a message's type; None for what is no message."""
    return getattr(getattr(value, "DESCRIPTOR", None), "full_name", None)


def _plain_for(response: str) -> Callable[[Any], Any]:
    if response in WRAPPERS:
        return lambda message: message.value
    if response == "google.protobuf.Empty":
        return lambda message: None
    return lambda message: message
