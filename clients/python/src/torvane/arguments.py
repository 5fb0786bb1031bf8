"""Makes requests of the arguments of a Python function.

What does not fit is a TypeError or a ValueError that names the method and the
field, before anything is sent.
"""

import inspect
from typing import Any, Dict, List, Mapping, Tuple

from torvane.contract import (
    WINDOW_ID,
    Descriptor,
    MessageClass,
    Method,
    full_name_of,
    names_window,
)

# The argument of every function that is not a field.
TIMEOUT = "timeout"

_SCALARS = {
    "CPPTYPE_BOOL": "bool",
    "CPPTYPE_STRING": "str",
    "CPPTYPE_FLOAT": "float",
    "CPPTYPE_DOUBLE": "float",
    "CPPTYPE_ENUM": "int | str",
}


def request_of(method: Method, args: Tuple[Any, ...], fields: Dict[str, Any]) -> Any:
    """The request that the arguments describe.

    args is empty, or holds the whole request, or the window that it is about.
    """
    cls = method.request_class
    what = f"{method.python_name}()"
    if len(args) > 1:
        raise TypeError(f"{what} takes one positional argument, not {len(args)}")
    if not args:
        return make_message(cls, fields, what)
    given = args[0]
    if full_name_of(given) == cls.DESCRIPTOR.full_name:
        if fields:
            raise TypeError(f"{what} takes a whole request, or fields, but not both")
        return given
    return make_message(cls, {**_window_field(cls, given, fields, what), **fields}, what)


def _window_field(
    cls: MessageClass, given: Any, fields: Mapping[str, Any], what: str
) -> Dict[str, Any]:
    if cls.DESCRIPTOR.full_name == WINDOW_ID:
        field = "value"
    elif names_window(cls.DESCRIPTOR):
        field = "browser_id"
    else:
        raise TypeError(
            f"{what} is about no window: its positional argument is a whole "
            f"{cls.DESCRIPTOR.full_name}, not {type(given).__name__}"
        )
    if field in fields:
        raise TypeError(f"{what} got the window twice: also as '{field}'")
    number = window_number(given, what)
    return {field: number if field == "value" else {"value": number}}


def window_number(window: Any, what: str) -> int:
    """The number of a window that is given as such, or as a BrowserId.

    `what` is the function that it is given to. Raises TypeError for anything
    else, ValueError for a number that has more than 64 bits.
    """
    if full_name_of(window) == WINDOW_ID:
        return int(window.value)
    if not isinstance(window, int) or isinstance(window, bool):
        raise TypeError(f"{what}: a window is an int, not {type(window).__name__}")
    if not -(1 << 63) <= window < 1 << 63:
        raise ValueError(f"{what}: {window} is no window, it has more than 64 bits")
    return window


def make_message(cls: MessageClass, fields: Mapping[str, Any], what: str) -> Any:
    """A message with these fields; None leaves a field absent."""
    known = cls.DESCRIPTOR.fields_by_name
    for name in fields:
        if name not in known:
            raise TypeError(
                f"{what} has no field '{name}'; its fields: " + ", ".join(known)
            )
    try:
        return cls(**fields)
    except (TypeError, ValueError, AttributeError):
        for name, value in fields.items():
            _check_field(cls, name, value, what)
        raise


def _check_field(cls: MessageClass, name: str, value: Any, what: str) -> None:
    try:
        cls(**{name: value})
    except ValueError as error:
        raise ValueError(f"{what}: field '{name}': {error}") from None
    except (TypeError, AttributeError) as error:
        raise TypeError(f"{what}: field '{name}': {error}") from None


def signature_of(method: Method) -> inspect.Signature:
    """The signature of a unary method's function."""
    cls = method.request_class
    parameters: List[inspect.Parameter] = []
    fields = list(cls.DESCRIPTOR.fields)
    if cls.DESCRIPTOR.full_name == WINDOW_ID:
        parameters.append(_parameter("window", inspect.Parameter.POSITIONAL_ONLY, "int"))
        fields = []
    elif names_window(cls.DESCRIPTOR):
        parameters.append(_parameter("window", inspect.Parameter.POSITIONAL_ONLY, "int"))
        fields = [field for field in fields if field.name != "browser_id"]
    keyword_only = inspect.Parameter.KEYWORD_ONLY
    for field in fields:
        if field.name != TIMEOUT:
            parameters.append(_parameter(field.name, keyword_only, _type_of(field), None))
    parameters.append(_parameter(TIMEOUT, keyword_only, "float | None", ...))
    return inspect.Signature(parameters)


def _parameter(
    name: str, kind: Any, annotation: str, default: Any = inspect.Parameter.empty
) -> inspect.Parameter:
    return inspect.Parameter(name, kind, annotation=annotation, default=default)


def _type_of(field: Descriptor) -> str:
    element = _element_type_of(field)
    return f"list[{element}]" if is_repeated(field) else element


def is_repeated(field: Descriptor) -> bool:
    """Whether a field is a list."""
    # Newer versions of protobuf have the first of the two, older ones the second.
    if hasattr(field, "is_repeated"):
        return bool(field.is_repeated)
    return bool(field.label == field.LABEL_REPEATED)


def _element_type_of(field: Descriptor) -> str:
    if field.message_type is not None:
        return f"{field.message_type.name} | dict"
    if field.type == field.TYPE_BYTES:
        return "bytes"
    for cpp_type, name in _SCALARS.items():
        if field.cpp_type == getattr(field, cpp_type):
            return name
    return "int"
