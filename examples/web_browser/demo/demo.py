"""Shows a client and a user at the same windows: demo.py [--here] PICTURES

Opens the browser on a display of its own, or with --here on $DISPLAY; calls every
unary method, presses keys and clicks, answers each question with no and with yes, and
keeps pictures in the folder PICTURES. Exits with 1 as soon as something is wrong.
"""

import argparse
import contextlib
import os
import queue
import subprocess
import sys
from typing import Any, Callable, Dict, Tuple

import torvane.blocking
from observer import ICONIC, NORMAL, WITHDRAWN
from programs import TIMEOUT, Compositor, PresentDisplay, Screen, WebBrowser, WindowManager
from stage import Answers, Stage, Wrong, say, says
from support import CALL, USER
from torvane import Code, RpcError

INBOX, DEPARTURES = 1, 2
HERE = os.path.dirname(os.path.abspath(__file__))
PAGES = [os.path.join(HERE, page) for page in ("inbox.html", "departures.html")]
# Of the pages' headings.
BLUE, GREEN, BROWN = "#1b4f72", "#1b6f4a", "#7b3f1d"
ALL_FLAGS = ("titled", "closable", "minimizable", "resizable", "full_size_content", "utility")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--here", action="store_true", help="on $DISPLAY")
    parser.add_argument("pictures", help="the folder for the pictures")
    options = parser.parse_args()
    os.makedirs(options.pictures, exist_ok=True)
    try:
        with contextlib.ExitStack() as stack:
            play(set_up(stack, options.here, options.pictures))
    except (Wrong, AssertionError, RpcError, OSError, subprocess.CalledProcessError) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    say(f"The browser has ended cleanly; pictures are in {options.pictures}")
    return 0


def set_up(stack: contextlib.ExitStack, here: bool, pictures: str) -> Stage:
    """Starts everything; the stack ends it."""
    display: Any = PresentDisplay() if here else stack.enter_context(Screen("1120x720x24"))
    if not here:
        stack.enter_context(WindowManager(display))
        stack.enter_context(Compositor(display))
    # One X pixel for each of the service's, whatever the desktop has.
    patience = ("--desktop-timeout", str(TIMEOUT / 2))
    browser = WebBrowser(display, *patience, *PAGES, GDK_SCALE="1")
    stack.callback(browser.close)
    client = stack.enter_context(torvane.blocking.connect(browser.socket))
    stage = Stage(display, client, pictures)
    stack.callback(stage.observer.close)
    return stage


def play(stage: Stage) -> None:
    show_placing(stage)
    show_visibility(stage)
    show_states(stage)
    show_bounds(stage)
    place(stage)
    show_title_bar(stage)
    show_style(stage)
    show_vibrancy(stage)
    show_independence(stage)
    show_commands(stage)
    show_closing(stage)
    say(f"All {stage.check_all_called()} unary methods did what they should")


def place(stage: Stage) -> None:
    """Both windows so that each can be seen, that of the departures in front."""
    wanted = {INBOX: (60, 60, 620, 470), DEPARTURES: (470, 200, 560, 420)}
    for window, bounds in wanted.items():
        names = dict(zip(("x", "y", "width", "height"), bounds))
        stage.call("SetBounds", window, bounds=names)
        stage.sees(f"window {window} is at {bounds}", stage.seen(window).bounds() == bounds)
        stage.call("GetBounds", window, expected=names)
    stage.call("Activate", DEPARTURES)
    stage.sees("window 2 is the active one", stage.seen(DEPARTURES).is_active())


def wait_for_page(stage: Stage, window: int, colour: str) -> None:
    """Waits until its heading is on the screen from end to end."""
    _, _, width, _ = stage.seen(window).bounds()
    for x in (6, width - 6):
        stage.wait_until_painted(window, (x, 50), colour)


def show_placing(stage: Stage) -> None:
    say("A client places two windows")
    stage.comes_to_be_called(INBOX, "Inbox")
    stage.comes_to_be_called(DEPARTURES, "Departures")
    place(stage)
    wait_for_page(stage, INBOX, BLUE)
    wait_for_page(stage, DEPARTURES, BROWN)
    stage.picture("windows")


def show_visibility(stage: Stage) -> None:
    say("Window 2 comes and goes; window 1 gets the keyboard")
    seen = stage.seen(DEPARTURES)
    stage.call("IsVisible", DEPARTURES, expected=True)
    stage.call("Hide", DEPARTURES)
    stage.sees("window 2 is withdrawn", seen.wm_state() == WITHDRAWN and not seen.is_viewable())
    stage.call("IsVisible", DEPARTURES, expected=False)
    stage.call("Show", DEPARTURES)
    stage.sees("window 2 is on the screen", seen.wm_state() == NORMAL and seen.is_viewable())
    stage.call("IsActive", DEPARTURES, expected=True)
    stage.call("Deactivate", DEPARTURES)
    stage.call("IsActive", DEPARTURES, expected=False)
    stage.sees("window 1 is the active one", stage.seen(INBOX).is_active())
    stage.call("Activate", DEPARTURES)
    stage.sees("window 2 is the active one", seen.is_active())
    stage.call("Focus", INBOX)
    stage.sees("window 1 is the active one", stage.seen(INBOX).is_active())
    stage.types("boat")
    stage.comes_to_be_called(INBOX, "Inbox: boat")
    wait_for_page(stage, INBOX, GREEN)
    stage.picture("typing")
    for _ in "boat":
        stage.presses("BackSpace")
    stage.comes_to_be_called(INBOX, "Inbox")


def show_states(stage: Stage) -> None:
    say("Window 2 is maximized, minimized, full screen, and remembers its bounds")
    seen = stage.seen(DEPARTURES)
    stage.call("Activate", DEPARTURES)
    before = stage.sees_bounds(DEPARTURES)
    stage.call("Maximize", DEPARTURES)
    stage.call("IsMaximized", DEPARTURES, expected=True)
    stage.sees("window 2 is maximized", seen.is_maximized())
    stage.sees_bounds(DEPARTURES)
    stage.call("EnterFullScreen", DEPARTURES)
    stage.call("IsFullScreen", DEPARTURES, expected=True)
    stage.sees("window 2 is full screen", seen.is_full_screen())
    stage.sees_bounds(DEPARTURES)
    wait_for_page(stage, DEPARTURES, BROWN)
    stage.picture("full-screen")
    stage.call("Minimize", DEPARTURES)
    stage.call("IsMinimized", DEPARTURES, expected=True)
    stage.sees("window 2 is iconic", seen.wm_state() == ICONIC)
    stage.call("Restore", DEPARTURES)
    stage.call("IsMinimized", DEPARTURES, expected=False)
    stage.sees("window 2 is full screen again", seen.is_full_screen())
    stage.call("ExitFullScreen", DEPARTURES)
    stage.call("IsFullScreen", DEPARTURES, expected=False)
    stage.sees("window 2 is maximized again", seen.is_maximized() and not seen.is_full_screen())
    stage.call("Restore", DEPARTURES)
    stage.call("IsMaximized", DEPARTURES, expected=False)
    stage.sees(f"window 2 is back at {before}", seen.bounds() == before)


def show_bounds(stage: Stage) -> None:
    say("Window 1 is moved and resized")
    seen = stage.seen(INBOX)
    stage.call("SetPosition", INBOX, x=120, y=90)
    stage.sees("window 1 is at 120, 90", seen.bounds()[:2] == (120, 90))
    stage.call("SetSize", INBOX, width=501, height=1)
    stage.sees("window 1 has its smallest height", seen.bounds() == (120, 90, 501, 120))
    stage.call("SetSize", INBOX, height=333)
    stage.sees("window 1 has 501 x 333 pixels", seen.bounds() == (120, 90, 501, 333))
    stage.call("CenterWindow", INBOX)
    x, y, width, height = stage.sees_bounds(INBOX)
    stage.sees("window 1 has its size", (width, height) == (501, 333))
    stage.sees("window 1 has moved", (x, y) != (120, 90))


def show_title_bar(stage: Stage) -> None:
    say("The title bar of window 1 changes")
    seen = stage.seen(INBOX)
    stage.call("Activate", INBOX)
    wait_for_page(stage, INBOX, BLUE)

    def changes(what: str, then: Callable[[], None]) -> None:
        """That the pixels of the title bar are others at the reply."""
        box = (0, 0, seen.bounds()[2], 28)
        before = seen.pixels(box)
        then()
        stage.sees(what, seen.pixels(box) != before)

    title = "Inbox of the boat club"
    changes("another title is painted", lambda: stage.call("SetTitle", INBOX, title=title))
    stage.call("GetTitle", INBOX, expected=title)
    stage.sees(f"window 1 is called {title!r}", seen.title() == title)
    button = {"kind": "KIND_CLOSE"}
    parts: Dict[str, Dict[str, str]] = {"Title": {}, "Button": button, "Titlebar": {}}
    for part, kind in parts.items():
        for visible in (False, True):
            changes(
                f"the {part.lower()} is {'there' if visible else 'gone'}",
                lambda: stage.call(f"SetWindow{part}Visible", INBOX, **kind, visible=visible),
            )
            stage.call(f"IsWindow{part}Visible", INBOX, **kind, expected=visible)


def show_style(stage: Stage) -> None:
    say("Window 1 becomes a tool, and is on all workspaces")
    seen = stage.seen(INBOX)
    ordinary = ("titled", "closable", "minimizable", "resizable")
    for flags, kind in ((("titled", "utility"), "UTILITY"), (ordinary, "NORMAL")):
        stage.call("SetWindowStyleFlags", INBOX, **dict.fromkeys(flags, True))
        expected = {flag: flag in flags for flag in ALL_FLAGS}
        stage.call("GetWindowStyleFlags", INBOX, expected=expected)
        types = {f"_NET_WM_WINDOW_TYPE_{kind}"}
        stage.sees(f"window 1 has the type {kind}", seen.window_types() == types)
    for policy in ("POLICY_ALL_WORKSPACES", "POLICY_ONE_WORKSPACE"):
        stage.call("SetWindowDisplayPolicy", INBOX, policy=policy)
        stage.call("GetWindowDisplayPolicy", INBOX, expected=dict(policy=policy))
        everywhere = seen.workspace() == 0xFFFFFFFF
        which = "all workspaces" if everywhere else f"workspace {seen.workspace() + 1}"
        stage.sees(f"window 1 is on {which}", everywhere == (policy == "POLICY_ALL_WORKSPACES"))
    stage.call("SetWindowAnimationBehavior", INBOX, behavior="BEHAVIOR_NONE")
    unknown = dict(behavior="BEHAVIOR_ALERT")
    stage.refused("SetWindowAnimationBehavior", INBOX, Code.UNIMPLEMENTED, **unknown)


def show_vibrancy(stage: Stage) -> None:
    material = dict(material="MATERIAL_WINDOW")
    if not stage.observer.has_compositor():
        say("Nothing shows through a window without a compositor")
        stage.refused("SetVibrancy", DEPARTURES, Code.FAILED_PRECONDITION, **material)
        return
    say("What is behind window 2 shows through it")
    stage.call("Activate", DEPARTURES)
    wait_for_page(stage, DEPARTURES, BROWN)
    left, top, _, height = stage.seen(DEPARTURES).bounds()
    box = (left + 10, top + height - 30, 180, 20)
    observer = stage.observer
    opaque = observer.screen_pixels(box)
    stage.call("SetVibrancy", DEPARTURES, **material)
    stage.shows("another background", lambda: observer.screen_pixels(box) != opaque)
    stage.picture("vibrancy")
    stage.call("SetVibrancy", DEPARTURES, material="MATERIAL_NONE")
    stage.shows("the one before", lambda: observer.screen_pixels(box) == opaque)


def show_independence(stage: Stage) -> None:
    say("Window 1 does not become active in place of window 2")
    seen = stage.seen(INBOX)
    stage.call("Activate", DEPARTURES)
    stage.call("SetActivationIndependenceEnabled", INBOX, enabled=True)
    stage.call("IsActivationIndependenceEnabled", INBOX, expected=True)
    stage.call("Deactivate", DEPARTURES)
    stage.call("IsActive", DEPARTURES, expected=False)
    stage.call("IsActive", INBOX, expected=False)
    stage.sees("window 1 is not the active one", not seen.is_active())
    stage.call("SetActivationIndependenceEnabled", INBOX, enabled=False)
    stage.call("Activate", DEPARTURES)
    stage.sees("window 2 is the active one", stage.seen(DEPARTURES).is_active())


def show_commands(stage: Stage) -> None:
    say("The user wants to reload window 2: the client says yes, then no")
    stage.call("Focus", DEPARTURES)
    questions = Answers(stage.windows.on_can_execute_command, DEPARTURES)
    # Its reply comes after the subscription.
    stage.call("IsVisible", DEPARTURES, expected=True)
    stage.presses("ctrl+r")
    command_asked(questions, "reload", "yes")
    stage.comes_to_be_called(DEPARTURES, "Departures, loaded 2 times")
    questions.answer_with(False)
    stage.presses("F5")
    command_asked(questions, "reload", "no")
    show_context_menu(stage, questions)


def command_asked(questions: Answers, name: str, answer: str) -> None:
    asked = questions.next()
    says("browser", f"may {asked.question.command.name} be executed in window {asked.window}?")
    if asked.question.command.name != name:
        raise Wrong(f"it was not asked about {name}")
    says("client", f"answers {answer}")


def show_context_menu(stage: Stage, commands: Answers) -> None:
    say("The user clicks for a menu: the client shows its own, then leaves items out")
    questions = Answers(stage.windows.on_show_context_menu, DEPARTURES)
    answers: "queue.Queue[Any]" = queue.Queue()
    questions.answer = lambda: answers.get(timeout=TIMEOUT)
    stage.call("IsVisible", DEPARTURES, expected=True)
    menu_asked(stage, questions, (120, 150))
    says("client", "answers that it has shown one of its own")
    answers.put(True)
    asked = menu_asked(stage, questions, (150, 120))
    # The question before has had its effect by now.
    stage.sees("no menu is open", not stage.observer.menus())
    ids = {command.name: command.id for command in asked.question.commands}
    omitted = ["back", "forward", "paste"]
    says("client", f"leaves out {', '.join(omitted)}")
    answers.put(asked.response(omitted_command_ids=[ids[name] for name in omitted]))
    stage.comes("a menu is open", stage.observer.menus)
    stage.wait_until_menu_is_painted()
    stage.picture("context-menu")
    # Not 3: the reload before the menu was not allowed.
    title = "Departures, loaded 2 times"
    stage.sees(f"window 2 is called {title!r}", stage.seen(DEPARTURES).title() == title)
    commands.answer_with(True)
    # The first item is the third of the whole menu.
    stage.presses("Down")
    stage.presses("Return")
    command_asked(commands, "reload", "yes")
    stage.comes_to_be_called(DEPARTURES, "Departures, loaded 3 times")
    stage.comes("no menu is open", lambda: not stage.observer.menus())


def menu_asked(stage: Stage, questions: Answers, place: Tuple[int, int]) -> Any:
    stage.clicks(DEPARTURES, "with the right button into the page", place, button=3)
    asked = questions.next()
    names = ", ".join(command.name for command in asked.question.commands)
    at = (asked.question.x, asked.question.y)
    says("browser", f"which of {names} does the menu of window {asked.window} show at {at}?")
    if at != place:
        raise Wrong(f"the user has clicked at {place}")
    return asked


def show_closing(stage: Stage) -> None:
    say("The user wants to close window 2, a client window 1: a client says no, then yes")
    events = stage.windows.closed(INBOX, DEPARTURES)
    questions = Answers(stage.windows.on_close_window, INBOX, DEPARTURES)
    stage.call("IsVisible", INBOX, expected=True)

    seen = stage.seen(DEPARTURES)
    for allowed in (False, True):
        questions.answer_with(allowed)
        stage.clicks(DEPARTURES, "on the close button", (seen.bounds()[2] - 14, 15))
        closing_asked(questions, DEPARTURES, USER, allowed)
        if not allowed:
            stage.call("IsVisible", DEPARTURES, expected=True)
            stage.sees("window 2 is still there", seen.is_viewable())
    window_closed(stage, events, DEPARTURES, USER)

    for allowed in (False, True):
        questions.answer_with(allowed)
        stage.call("Close", INBOX, expected=allowed)
        closing_asked(questions, INBOX, CALL, allowed)
        if not allowed:
            stage.sees("window 1 is still there", stage.seen(INBOX).is_viewable())
    window_closed(stage, events, INBOX, CALL)
    stage.refused("IsVisible", INBOX, Code.NOT_FOUND)


def closing_asked(questions: Answers, window: int, reason: int, allowed: bool) -> None:
    asked = questions.next()
    who = "the user" if asked.question.reason == USER else "a client"
    says("browser", f"may window {asked.window} close, as {who} wants?")
    if (asked.window, asked.question.reason) != (window, reason):
        raise Wrong(f"it was not asked about window {window}")
    says("client", f"answers {'yes' if allowed else 'no'}")


def window_closed(stage: Stage, events: Any, window: int, reason: int) -> None:
    event = events.get(TIMEOUT)
    says("browser", f"window {event.browser_id.value}, {event.title!r}, has closed")
    if (event.browser_id.value, event.reason) != (window, reason):
        raise Wrong(f"window {window} should have")
    stage.sees(f"window {window} is gone", not stage.seen(window).exists())


if __name__ == "__main__":
    sys.exit(main())
