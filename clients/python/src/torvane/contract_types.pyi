"""The methods and messages of the contract, for type checkers only: there is no such
module at run time, so import it under TYPE_CHECKING.

Made by make_types.py, not by hand.
"""

from typing import Any, Callable, Literal, Protocol, Sequence, TypedDict, Union, overload

from torvane import blocking
from torvane.contract import Contract
from torvane.events import EventStream
from torvane.questions import Answerer, Handler
from torvane.reconnecting import Missed, ReconnectingAnswerer, ReconnectingEvents
from torvane.service import Caller

class AnyMessage(Protocol):
    """A message of the contract, or of code that was generated of the same files."""

    def SerializeToString(self) -> bytes: ...

class Message:
    """A message of the contract."""

    DESCRIPTOR: Any
    def ClearField(self, field_name: str) -> None: ...
    def CopyFrom(self, other_msg: Any) -> None: ...
    def HasField(self, field_name: str) -> bool: ...
    def ListFields(self) -> Any: ...
    def MergeFrom(self, other_msg: Any) -> None: ...
    def SerializeToString(self) -> bytes: ...
    def WhichOneof(self, oneof_group: str) -> Any: ...

# The number of a window, or a message: its BrowserId, or the whole request.
Window = Union[int, AnyMessage]

class _Methods:
    def __init__(self, caller: Caller, contract: Contract) -> None: ...

class AsyncCalls(_Methods):
    async def show(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Shows the window, out of its minimized state where necessary, and activates
        it."""

    async def is_visible(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is shown and not minimized. It may still be covered by
        others."""

    async def hide(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Takes the window off the screen without closing it. When it was active, the
        next visible window in stacking order is activated."""

    async def activate(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Brings the window to the front and makes it the active one, out of its
        minimized state where necessary. Fails with FAILED_PRECONDITION when the
        window is hidden."""

    async def is_active(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is the active one."""

    async def deactivate(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Passes the activation on to the next visible window in stacking order. When
        there is none, no window is active. Does nothing to a window that is not
        active."""

    async def focus(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Activates the window, as Activate does, and gives its page the keyboard."""

    async def maximize(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Makes the window fill the work area of its display. Its bounds are
        remembered for Restore."""

    async def is_maximized(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is maximized; not while it is minimized or full screen."""

    async def minimize(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Reduces the window to its place in the task bar. When it was active, the
        next visible window in stacking order is activated."""

    async def is_minimized(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is minimized."""

    async def restore(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Goes one state back: from minimized to what the window was before, from
        full screen to maximized or normal, from maximized to normal. Does nothing
        to a normal window."""

    async def enter_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Makes the window fill its display, over the task bar and without frame."""

    async def exit_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Leaves full screen for the state that the window had before. Does nothing
        to a window that is not full screen."""

    async def is_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is full screen; not while it is minimized."""

    async def close(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Closes the window, if whoever answers OnCloseWindow for it allows that.
        Answers whether the window was closed; the call takes as long as the answer
        does. Giving the call up does not keep the window open."""

    async def set_position(
        self,
        window: Window,
        /,
        *,
        x: int | None = ...,
        y: int | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Moves the window, keeping its size. For windows that are not normal, see
        SetBounds."""

    async def set_size(
        self,
        window: Window,
        /,
        *,
        width: int | None = ...,
        height: int | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Resizes the window, keeping its top left corner. For windows that are not
        normal, see SetBounds."""

    async def set_bounds(
        self,
        window: Window,
        /,
        *,
        bounds: AnyMessage | RectDict | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Moves and resizes the window. A window that is not normal stays so: it gets
        the bounds when it becomes normal again."""

    async def get_bounds(self, window: Window, /, *, timeout: float | None = ...) -> Rect:
        """The window's place on the screen in its present state; of a minimized
        window, the place that it will come back to."""

    async def center_window(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Centres the window in the work area of its display. For windows that are
        not normal, see SetBounds."""

    async def set_title(
        self,
        window: Window,
        /,
        *,
        title: str | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets the text that the title bar and the task bar name the window by."""

    async def get_title(self, window: Window, /, *, timeout: float | None = ...) -> str:
        """The text that SetTitle sets."""

    async def set_window_title_visible(
        self,
        window: Window,
        /,
        *,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides the title within the title bar."""

    async def is_window_title_visible(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the title bar, where it is visible itself, shows the title."""

    async def set_window_titlebar_visible(
        self,
        window: Window,
        /,
        *,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides the title bar as a whole."""

    async def is_window_titlebar_visible(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the window has a visible title bar."""

    async def set_window_button_visible(
        self,
        window: Window,
        /,
        *,
        kind: WindowButtonKind | None = ...,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides one of the buttons in the title bar."""

    async def is_window_button_visible(
        self,
        window: Window,
        /,
        *,
        kind: WindowButtonKind | None = ...,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the title bar, where it is visible itself, shows the button."""

    async def set_window_style_flags(
        self,
        window: Window,
        /,
        *,
        titled: bool | None = ...,
        closable: bool | None = ...,
        minimizable: bool | None = ...,
        resizable: bool | None = ...,
        full_size_content: bool | None = ...,
        utility: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets all style flags of the window at once."""

    async def get_window_style_flags(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> WindowStyleFlags:
        """The window's style flags, as SetWindowStyleFlags accepts them."""

    async def set_window_display_policy(
        self,
        window: Window,
        /,
        *,
        policy: BrowserWindowDisplayPolicyPolicy | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets on which workspaces the window is displayed."""

    async def get_window_display_policy(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> BrowserWindowDisplayPolicy:
        """The window's display policy, as SetWindowDisplayPolicy accepts it."""

    async def set_window_animation_behavior(
        self,
        window: Window,
        /,
        *,
        behavior: WindowAnimationBehaviorBehavior | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets how the window is animated when it appears and disappears."""

    async def set_activation_independence_enabled(
        self,
        window: Window,
        /,
        *,
        enabled: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Takes the window out of, or back into, the order in which windows are
        activated when the active one goes away."""

    async def is_activation_independence_enabled(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the window stays inactive when the active one goes away."""

    async def set_vibrancy(
        self,
        window: Window,
        /,
        *,
        material: BrowserVibrancyMaterial | None = ...,
        state: BrowserVibrancyState | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets the translucent material that the window is drawn on."""

class BlockingCalls(_Methods):
    def show(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Shows the window, out of its minimized state where necessary, and activates
        it."""

    def is_visible(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is shown and not minimized. It may still be covered by
        others."""

    def hide(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Takes the window off the screen without closing it. When it was active, the
        next visible window in stacking order is activated."""

    def activate(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Brings the window to the front and makes it the active one, out of its
        minimized state where necessary. Fails with FAILED_PRECONDITION when the
        window is hidden."""

    def is_active(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is the active one."""

    def deactivate(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Passes the activation on to the next visible window in stacking order. When
        there is none, no window is active. Does nothing to a window that is not
        active."""

    def focus(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Activates the window, as Activate does, and gives its page the keyboard."""

    def maximize(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Makes the window fill the work area of its display. Its bounds are
        remembered for Restore."""

    def is_maximized(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is maximized; not while it is minimized or full screen."""

    def minimize(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Reduces the window to its place in the task bar. When it was active, the
        next visible window in stacking order is activated."""

    def is_minimized(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is minimized."""

    def restore(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Goes one state back: from minimized to what the window was before, from
        full screen to maximized or normal, from maximized to normal. Does nothing
        to a normal window."""

    def enter_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Makes the window fill its display, over the task bar and without frame."""

    def exit_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Leaves full screen for the state that the window had before. Does nothing
        to a window that is not full screen."""

    def is_full_screen(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window is full screen; not while it is minimized."""

    def close(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Closes the window, if whoever answers OnCloseWindow for it allows that.
        Answers whether the window was closed; the call takes as long as the answer
        does. Giving the call up does not keep the window open."""

    def set_position(
        self,
        window: Window,
        /,
        *,
        x: int | None = ...,
        y: int | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Moves the window, keeping its size. For windows that are not normal, see
        SetBounds."""

    def set_size(
        self,
        window: Window,
        /,
        *,
        width: int | None = ...,
        height: int | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Resizes the window, keeping its top left corner. For windows that are not
        normal, see SetBounds."""

    def set_bounds(
        self,
        window: Window,
        /,
        *,
        bounds: AnyMessage | RectDict | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Moves and resizes the window. A window that is not normal stays so: it gets
        the bounds when it becomes normal again."""

    def get_bounds(self, window: Window, /, *, timeout: float | None = ...) -> Rect:
        """The window's place on the screen in its present state; of a minimized
        window, the place that it will come back to."""

    def center_window(self, window: Window, /, *, timeout: float | None = ...) -> None:
        """Centres the window in the work area of its display. For windows that are
        not normal, see SetBounds."""

    def set_title(
        self,
        window: Window,
        /,
        *,
        title: str | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets the text that the title bar and the task bar name the window by."""

    def get_title(self, window: Window, /, *, timeout: float | None = ...) -> str:
        """The text that SetTitle sets."""

    def set_window_title_visible(
        self,
        window: Window,
        /,
        *,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides the title within the title bar."""

    def is_window_title_visible(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the title bar, where it is visible itself, shows the title."""

    def set_window_titlebar_visible(
        self,
        window: Window,
        /,
        *,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides the title bar as a whole."""

    def is_window_titlebar_visible(self, window: Window, /, *, timeout: float | None = ...) -> bool:
        """Whether the window has a visible title bar."""

    def set_window_button_visible(
        self,
        window: Window,
        /,
        *,
        kind: WindowButtonKind | None = ...,
        visible: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Shows or hides one of the buttons in the title bar."""

    def is_window_button_visible(
        self,
        window: Window,
        /,
        *,
        kind: WindowButtonKind | None = ...,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the title bar, where it is visible itself, shows the button."""

    def set_window_style_flags(
        self,
        window: Window,
        /,
        *,
        titled: bool | None = ...,
        closable: bool | None = ...,
        minimizable: bool | None = ...,
        resizable: bool | None = ...,
        full_size_content: bool | None = ...,
        utility: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets all style flags of the window at once."""

    def get_window_style_flags(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> WindowStyleFlags:
        """The window's style flags, as SetWindowStyleFlags accepts them."""

    def set_window_display_policy(
        self,
        window: Window,
        /,
        *,
        policy: BrowserWindowDisplayPolicyPolicy | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets on which workspaces the window is displayed."""

    def get_window_display_policy(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> BrowserWindowDisplayPolicy:
        """The window's display policy, as SetWindowDisplayPolicy accepts it."""

    def set_window_animation_behavior(
        self,
        window: Window,
        /,
        *,
        behavior: WindowAnimationBehaviorBehavior | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets how the window is animated when it appears and disappears."""

    def set_activation_independence_enabled(
        self,
        window: Window,
        /,
        *,
        enabled: bool | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Takes the window out of, or back into, the order in which windows are
        activated when the active one goes away."""

    def is_activation_independence_enabled(
        self,
        window: Window,
        /,
        *,
        timeout: float | None = ...,
    ) -> bool:
        """Whether the window stays inactive when the active one goes away."""

    def set_vibrancy(
        self,
        window: Window,
        /,
        *,
        material: BrowserVibrancyMaterial | None = ...,
        state: BrowserVibrancyState | None = ...,
        timeout: float | None = ...,
    ) -> None:
        """Sets the translucent material that the window is drawn on."""

class Windows(AsyncCalls):
    def when_browser_window_closed(self, *windows: Window) -> EventStream[BrowserWindowClosed]:
        """Tells the client about the closing of the windows that it subscribes to; to
        the empty BrowserId, about the closing of each window. One that subscribes
        to both on the same stream is told twice."""

    def closed(self, *windows: Window) -> EventStream[BrowserWindowClosed]:
        """The short name of when_browser_window_closed()."""

    @overload
    def on_can_execute_command(self, *windows: Window, handler: Handler) -> Answerer:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_can_execute_command(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], Answerer]:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_show_context_menu(self, *windows: Window, handler: Handler) -> Answerer:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_show_context_menu(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], Answerer]:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_close_window(self, *windows: Window, handler: Handler) -> Answerer:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

    @overload
    def on_close_window(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], Answerer]:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

class ReconnectingWindows(AsyncCalls):
    def when_browser_window_closed(
        self,
        *windows: Window,
    ) -> ReconnectingEvents[BrowserWindowClosed]:
        """Tells the client about the closing of the windows that it subscribes to; to
        the empty BrowserId, about the closing of each window. One that subscribes
        to both on the same stream is told twice."""

    def closed(self, *windows: Window) -> ReconnectingEvents[BrowserWindowClosed]:
        """The short name of when_browser_window_closed()."""

    @overload
    def on_can_execute_command(self, *windows: Window, handler: Handler) -> ReconnectingAnswerer:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_can_execute_command(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], ReconnectingAnswerer]:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_show_context_menu(self, *windows: Window, handler: Handler) -> ReconnectingAnswerer:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_show_context_menu(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], ReconnectingAnswerer]:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_close_window(self, *windows: Window, handler: Handler) -> ReconnectingAnswerer:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

    @overload
    def on_close_window(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], ReconnectingAnswerer]:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

class BlockingWindows(BlockingCalls):
    def when_browser_window_closed(self, *windows: Window) -> blocking.Events[BrowserWindowClosed]:
        """Tells the client about the closing of the windows that it subscribes to; to
        the empty BrowserId, about the closing of each window. One that subscribes
        to both on the same stream is told twice."""

    def closed(self, *windows: Window) -> blocking.Events[BrowserWindowClosed]:
        """The short name of when_browser_window_closed()."""

    @overload
    def on_can_execute_command(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_can_execute_command(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_show_context_menu(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_show_context_menu(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_close_window(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

    @overload
    def on_close_window(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

class BlockingReconnectingWindows(BlockingCalls):
    def when_browser_window_closed(
        self,
        *windows: Window,
    ) -> blocking.Events[Union[BrowserWindowClosed, Missed]]:
        """Tells the client about the closing of the windows that it subscribes to; to
        the empty BrowserId, about the closing of each window. One that subscribes
        to both on the same stream is told twice."""

    def closed(self, *windows: Window) -> blocking.Events[Union[BrowserWindowClosed, Missed]]:
        """The short name of when_browser_window_closed()."""

    @overload
    def on_can_execute_command(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_can_execute_command(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client whether the user may execute a command in a window. When no
        answer comes in time, the command is executed."""

    @overload
    def on_show_context_menu(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_show_context_menu(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client what the context menu of a window's page shows. When no
        answer comes in time, the browser shows its own menu unchanged."""

    @overload
    def on_close_window(self, *windows: Window, handler: Handler) -> blocking.Answerer:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

    @overload
    def on_close_window(
        self,
        *windows: Window,
        handler: None = ...,
    ) -> Callable[[Handler], blocking.Answerer]:
        """Asks the client whether a window may close. When no answer comes in time,
        the window closes."""

class RectDict(TypedDict, total=False):
    x: int
    y: int
    width: int
    height: int

class Rect(Message):
    x: int
    y: int
    width: int
    height: int

WindowButtonKind = Union[
    int,
    Literal[
        "KIND_UNSPECIFIED",
        "KIND_CLOSE",
        "KIND_MINIMIZE",
        "KIND_MAXIMIZE",
    ],
]

class WindowStyleFlags(Message):
    browser_id: BrowserId
    titled: bool
    closable: bool
    minimizable: bool
    resizable: bool
    full_size_content: bool
    utility: bool

class BrowserId(Message):
    value: int

BrowserWindowDisplayPolicyPolicy = Union[
    int,
    Literal[
        "POLICY_UNSPECIFIED",
        "POLICY_ONE_WORKSPACE",
        "POLICY_ALL_WORKSPACES",
        "POLICY_CURRENT_WORKSPACE",
    ],
]

class BrowserWindowDisplayPolicy(Message):
    browser_id: BrowserId
    policy: int

WindowAnimationBehaviorBehavior = Union[
    int,
    Literal[
        "BEHAVIOR_UNSPECIFIED",
        "BEHAVIOR_DEFAULT",
        "BEHAVIOR_NONE",
        "BEHAVIOR_DOCUMENT",
        "BEHAVIOR_UTILITY",
        "BEHAVIOR_ALERT",
    ],
]

BrowserVibrancyMaterial = Union[
    int,
    Literal[
        "MATERIAL_UNSPECIFIED",
        "MATERIAL_NONE",
        "MATERIAL_TITLEBAR",
        "MATERIAL_SIDEBAR",
        "MATERIAL_MENU",
        "MATERIAL_WINDOW",
    ],
]

BrowserVibrancyState = Union[
    int,
    Literal[
        "STATE_UNSPECIFIED",
        "STATE_FOLLOWS_WINDOW",
        "STATE_ACTIVE",
        "STATE_INACTIVE",
    ],
]

class BrowserWindowClosed(Message):
    browser_id: BrowserId
    reason: int
    title: str
