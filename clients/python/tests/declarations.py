"""Reads what the package declares for type checkers."""

import ast
import os
from typing import Any, Dict, List, NamedTuple

import torvane

PATH = os.path.join(os.path.dirname(torvane.__file__), "contract_types.pyi")


class Method(NamedTuple):
    """A method as it is declared: its parameters but self, its type, whether it is a
    coroutine function."""

    parameters: List[str]
    returns: str
    is_async: bool


def methods_of(name: str) -> Dict[str, Method]:
    """The methods that a class itself declares, by their names."""
    return {
        node.name: Method(
            parameters=[argument.arg for argument in _arguments(node.args)[1:]],
            returns=ast.unparse(node.returns),
            is_async=isinstance(node, ast.AsyncFunctionDef),
        )
        for node in _body_of(name)
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef))
    }


def fields_of(name: str) -> Dict[str, str]:
    """The types of the fields of a message, by their names."""
    return {
        node.target.id: ast.unparse(node.annotation)
        for node in _body_of(name)
        if isinstance(node, ast.AnnAssign)
    }


def type_name(value: Any) -> str:
    """How the type of a value is declared."""
    if value is None:
        return "None"
    descriptor = getattr(value, "DESCRIPTOR", None)
    return descriptor.name if descriptor else type(value).__name__


def _body_of(name: str) -> List[Any]:
    with open(PATH, encoding="utf-8") as file:
        module = ast.parse(file.read())
    (found,) = [
        node for node in module.body if isinstance(node, ast.ClassDef) and node.name == name
    ]
    return found.body


def _arguments(arguments: ast.arguments) -> List[ast.arg]:
    varargs = [arguments.vararg] if arguments.vararg else []
    return arguments.posonlyargs + arguments.args + varargs + arguments.kwonlyargs
