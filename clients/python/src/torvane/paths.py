"""Where a host listens, and whether that place is this user's."""

import os
from typing import Optional

from torvane.errors import Code, RpcError


def default_socket_path() -> str:
    """${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock"""
    folder = os.environ.get("XDG_RUNTIME_DIR") or f"/tmp/torvane-{os.getuid()}"
    return f"{folder}/window_host.sock"


def check_folder(socket_path: str) -> None:
    """Raises PERMISSION_DENIED if the socket's folder belongs to another user.

    That user could put a socket of theirs there. A folder that does not exist
    passes: connecting will fail and say so.
    """
    folder = os.path.dirname(socket_path) or "."
    owner = _owner(folder)
    if owner not in (None, os.getuid(), 0):
        raise RpcError(
            Code.PERMISSION_DENIED,
            f"The folder {folder} belongs to another user: choose a socket elsewhere.",
        )


def _owner(folder: str) -> Optional[int]:
    try:
        return os.stat(folder).st_uid
    except OSError:
        return None
