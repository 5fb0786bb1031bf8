"""What a real desktop does otherwise than the one in memory, each by its name.

These are all exceptions that the comparison of the two makes. A table in
docs/web-browser.md says of each name what it means.
"""

import os
from typing import Any, Dict, Optional, Set

from operations import Operation

ANIMATIONS = "animations"
MATERIALS = "materials"
SIXTEEN_BITS = "16 bits"
OFF_THE_SCREEN = "off the screen"
OFF_THE_SCREEN_LATER = "off the screen later"
UTILITY_FULL_SCREEN = "utility windows in full screen"
FULL_SCREEN_ACTIVATES = "full screen activates"
UTILITY_IN_FRONT = "utility windows in front"
CHARACTERS = "characters of titles"
PAGES = "titles of pages"

ALL = (
    ANIMATIONS,
    MATERIALS,
    SIXTEEN_BITS,
    OFF_THE_SCREEN,
    OFF_THE_SCREEN_LATER,
    UTILITY_FULL_SCREEN,
    FULL_SCREEN_ACTIVATES,
    UTILITY_IN_FRONT,
    CHARACTERS,
    PAGES,
)

_PAGE = os.path.join(os.path.dirname(__file__), "../../../docs/web-browser.md")

_BOUNDS = ("set_position", "set_size", "set_bounds", "open_window")


def documented(name: str) -> bool:
    """Whether the table has a row for it."""
    with open(_PAGE) as page:
        return any(line.startswith(f"| {name} |") for line in page)


def refusal(operation: Operation, code: str, text: str, is_utility: bool) -> Optional[str]:
    """The difference by which a real desktop refuses what the other one does; None
    where there is none. `is_utility`: the window is one."""
    method = operation.method
    if code == "UNIMPLEMENTED" and method == "set_window_animation_behavior":
        return ANIMATIONS
    if code == "OUT_OF_RANGE" and method in _BOUNDS and "more than X11 can express" in text:
        return SIXTEEN_BITS
    if code != "FAILED_PRECONDITION":
        return None
    if method == "set_vibrancy" and text.startswith("No compositor is running"):
        return MATERIALS
    if method in _BOUNDS and text.startswith(
        ("Openbox put window", "Openbox refused to set the bounds of")
    ):
        return OFF_THE_SCREEN
    becomes_utility = bool(operation.fields.get("utility"))
    if (is_utility or becomes_utility) and "refused to show full screen" in text:
        return UTILITY_FULL_SCREEN
    return None


def plain(title: str) -> str:
    """What a real desktop leaves of the titles of operations.py."""
    return title.replace("\n", " ").replace("\u202e", "")


def without_titles_of_pages(seen: Dict[str, Any], titled: Set[int]) -> Dict[str, Any]:
    """What Side.look() has seen, without the titles of windows that no client has set."""
    for name, value in seen.items():
        if name.startswith("window ") and value.browser_id.value not in titled:
            value.title = ""
            seen[f"get_title({value.browser_id.value})"] = ""
    return seen


def with_plain_titles(seen: Dict[str, Any]) -> Dict[str, Any]:
    for name, value in seen.items():
        if name.startswith("window "):
            value.title = plain(value.title)
        if name.startswith("get_title("):
            seen[name] = plain(value)
    return seen
