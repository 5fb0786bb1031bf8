"""One of two hosts that are compared: a client of it, and all that it can ask."""

import asyncio
from typing import Any, Dict, List, Tuple

import torvane
from operations import BUTTONS, Operation
from torvane.contract import MethodKind

# The empty id: all windows.
ALL = 0

# "OK" and the response, or the code of an error and its text.
Outcome = Tuple[str, Any]


class Side:
    """Made by connect()."""

    def __init__(self, client: Any) -> None:
        self.windows = client.windows
        # What the host has asked and told on its own: whether a window may close, and
        # which ones have opened and closed.
        self.told: List[Any] = []
        self.unary_methods = [
            method.python_name
            for method in client.contract.service("rpc.BrowserWindow").methods
            if method.kind is MethodKind.UNARY
        ]
        self.getters = [name for name in self.unary_methods if name.startswith(("is_", "get_"))]
        self._client = client
        self._allowed = True
        self._directory = client.service("rpc.directory.WindowDirectory")
        self._opened = self._directory.when_window_opened(ALL)
        self._closed = client.windows.closed(ALL)
        self._answers = client.windows.on_close_window(handler=self._answer)

    @classmethod
    async def connect(cls, socket: str) -> "Side":
        side = cls(await torvane.connect(socket))
        for window in await side.open_windows():
            side._answers.subscribe(window)
        return side

    async def close(self) -> None:
        await self._client.aclose()

    async def perform(self, operation: Operation) -> Outcome:
        try:
            if operation.method == "open_window":
                return "OK", await self._open(operation)
            if operation.method == "close":
                return "OK", await self._close(operation)
            method = getattr(self.windows, operation.method)
            return "OK", await method(operation.window, **operation.fields)
        except torvane.RpcError as error:
            return error.code.name, error.text

    async def look(self) -> Dict[str, Any]:
        """All that can be asked, by what was asked."""
        listed = {info.browser_id.value: info for info in await self._list()}
        asked: Dict[str, Any] = {}
        for window in listed:
            for name in self.getters:
                getter = getattr(self.windows, name)
                if name == "is_window_button_visible":
                    asked.update(
                        {f"{name}({window}, {kind})": getter(window, kind=kind) for kind in BUTTONS}
                    )
                else:
                    asked[f"{name}({window})"] = getter(window)
        seen: Dict[str, Any] = {f"window {window}": info for window, info in listed.items()}
        seen.update(zip(asked, await asyncio.gather(*asked.values())))
        return seen

    async def open_windows(self) -> List[int]:
        return [info.browser_id.value for info in await self._list()]

    async def active(self) -> int:
        """The window that is; 0 for none."""
        return sum(info.browser_id.value for info in await self._list() if info.active)

    async def bounds(self, window: int) -> Dict[str, int]:
        rect = await self.windows.get_bounds(window)
        return {"x": rect.x, "y": rect.y, "width": rect.width, "height": rect.height}

    async def _open(self, operation: Operation) -> Any:
        info = await self._directory.open_window(**operation.fields)
        self._answers.subscribe(info.browser_id.value)
        event = await self._opened.__anext__()
        # The rest of it, and of the response, is compared by looking.
        self.told.append(("opened", event.window.browser_id.value))
        return info.browser_id.value

    async def _close(self, operation: Operation) -> Any:
        self._allowed = operation.allowed
        closed = await self.windows.close(operation.window)
        if closed:
            event = await self._closed.__anext__()
            self.told.append(("closed", event.browser_id.value, event.reason))
        return closed

    def _answer(self, asked: Any) -> bool:
        self.told.append(("asked", asked.message))
        return self._allowed

    async def _list(self) -> List[Any]:
        whole: List[Any] = []
        more = True
        while more:
            after = whole[-1].browser_id if whole else None
            part = await self._directory.list_windows(after=after)
            whole += part.windows
            more = part.more
        return whole
