"""The desktop in memory is the model of the real one, under openbox.

Operations chosen at random are done on both, over the service. After each of them
everything that a client can ask is the same on both, but for what differences.py
names. MODEL_SEED=7 makes other steps, MODEL_STEPS=10000 makes more of them.
"""

import asyncio
import collections
import os
import random
import unittest

import differences
from operations import Operation, Operations
from panel import Panel
from programs import Screen, WindowHost
from side import Side
from support import BrowserTestCase

# Those of the desktop in memory.
WIDTH, HEIGHT = 1920, 1080
TOP, BOTTOM = 32, 48

SHORT_STEPS = 200
# The same each time: what a seed finds is found by whoever looks for it, not by
# whoever happens to run the tests.
SHORT_SEED = 6
# With this seed each difference shows in so many steps. With others a rare one may
# not come up.
LONG_SEED = 100
LONG_STEPS = 10000
# So many operations the text of a failure names.
LAST = 20

PASS_THE_ACTIVATION_ON = ("hide", "minimize", "deactivate", "close")


class Differences(unittest.TestCase):
    def test_are_documented(self):
        for name in differences.ALL:
            self.assertTrue(differences.documented(name), name)


class Model(BrowserTestCase):
    arguments = ("--windows", "3", "--max-windows", "5")

    @classmethod
    def start_screen(cls):
        return Screen(f"{cls.scale * WIDTH}x{cls.scale * HEIGHT}x24")

    def start_window_manager(self):
        # Window managers take over what is there when they start.
        panel = Panel(self.screen, self.scale * TOP, self.scale * BOTTOM)
        self.addCleanup(panel.close)
        super().start_window_manager()
        panel.wait()

    def setUp(self):
        super().setUp()
        self.host = WindowHost(*self.arguments)
        self.addCleanup(self.host.close)

    def test_real_windows_do_what_those_in_memory_do(self):
        self.assertEqual(self.browser.services(), self.host.services())
        seed = int(os.environ.get("MODEL_SEED") or SHORT_SEED)
        print(f"MODEL_SEED={seed}", flush=True)
        steps = int(os.environ.get("MODEL_STEPS") or SHORT_STEPS)
        operations = Operations(random.Random(seed), WIDTH, HEIGHT)
        comparison = Comparison(self)
        asyncio.run(comparison.run(operations, steps))
        if seed == LONG_SEED and steps >= LONG_STEPS:
            comparison.expect(set(+comparison.differences), set(differences.ALL))


class Scaled(Model):
    scale = 2


class Comparison:
    """Two hosts that do the same."""

    def __init__(self, case):
        self.case = case
        # How often each difference has shown.
        self.differences = collections.Counter()
        # The last operations and what became of them, for the text of a failure.
        self.last = collections.deque(maxlen=LAST)
        # Windows whose titles clients have set, and those that have become utility
        # windows or ceased to be.
        self.titled = set()
        self.mapped_anew = set()

    async def run(self, operations, steps):
        self.real = await Side.connect(self.case.browser.socket)
        self.model = await Side.connect(self.case.host.socket)
        # Whatever the service has is used.
        used = {*operations.methods, *self.model.getters}
        self.expect(used, {*self.model.unary_methods, "open_window"})
        await self.look()
        for _ in range(steps):
            await self.step(operations.next(await self.model.open_windows()))
        await self.real.close()
        await self.model.close()
        print(f"{steps} steps, {dict(self.differences)}")

    async def step(self, operation):
        # By code of others.
        self.stacking = self.case.observer.stacking()
        outcome = await self.real.perform(operation)
        self.last.append(f"{operation}: {outcome[0]}")
        difference = differences.refusal(operation, *outcome, self.is_utility(operation.window))
        if difference:
            # The model is not asked, which would do it: so the next look sees that
            # nothing has changed.
            self.differences[difference] += 1
        else:
            self.expect(outcome, await self.model.perform(operation))
            if outcome[0] == "OK":
                await self.follow(operation, outcome[1])
        await self.look()

    def is_utility(self, window):
        style = self.seen.get(f"get_window_style_flags({window})")
        return style is not None and style.utility

    async def follow(self, operation, response):
        """Has the model do what the window manager does of its own accord."""
        method, window = operation.method, operation.window
        if method == "open_window":
            window = response
            self.differences[differences.PAGES] += 1
        if method == "set_title":
            self.titled.add(window)
            title = operation.fields.get("title", "")
            self.differences[differences.CHARACTERS] += title != differences.plain(title)
        if method == "enter_full_screen":
            await self.follow_into_full_screen(window)
        if method == "set_window_style_flags":
            if self.is_utility(window) != operation.fields["utility"]:
                self.mapped_anew.add(window)
        if method in PASS_THE_ACTIVATION_ON and response is not False:
            await self.follow_activation(window)
        if method != "close":
            await self.follow_bounds(window)

    async def follow_into_full_screen(self, window):
        was_full_screen = self.seen[f"is_full_screen({window})"]
        if was_full_screen or not await self.model.windows.is_visible(window):
            return
        is_active = await self.model.windows.is_active(window)
        self.differences[differences.FULL_SCREEN_ACTIVATES] += not is_active
        await self.model.windows.activate(window)

    async def follow_activation(self, window):
        if not self.seen[f"is_active({window})"]:
            return
        active = await self.real.active()
        self.expect(active, self.next_in_stacking(window))
        if active != await self.model.active() and self.mapped_anew & set(self.stacking):
            self.differences[differences.UTILITY_IN_FRONT] += 1
            await self.model.windows.activate(active)

    def next_in_stacking(self, window):
        """The next one that may be activated when this one goes; 0 for none."""
        for other in self.stacking:
            may_be = not self.seen[f"is_activation_independence_enabled({other})"]
            if other != window and may_be and self.seen[f"is_visible({other})"]:
                return other
        return 0

    async def follow_bounds(self, window):
        bounds, wanted = await self.real.bounds(window), await self.model.bounds(window)
        if bounds == wanted:
            return
        # Bounds that waited. The window manager must refuse them now, too.
        again = Operation("set_bounds", window, {"bounds": wanted})
        refused = differences.refusal(again, *await self.real.perform(again), False)
        self.last.append(f"{again}, which waited; it has {bounds}")
        self.expect(refused, differences.OFF_THE_SCREEN)
        self.differences[differences.OFF_THE_SCREEN_LATER] += 1
        await self.model.windows.set_bounds(window, bounds=bounds)

    async def look(self):
        """Expects that all that can be asked is the same."""
        real, model = await asyncio.gather(self.real.look(), self.model.look())
        model = differences.with_plain_titles(model)
        self.expect(
            differences.without_titles_of_pages(real, self.titled),
            differences.without_titles_of_pages(model, self.titled),
        )
        self.expect(self.real.told, self.model.told)
        self.seen = real

    def expect(self, real, model):
        if real != model:
            self.case.fail(self.text(describe(real, model)))

    def text(self, what):
        return "\n".join(["The last operations:", *self.last, what])


def describe(real, model):
    if not isinstance(real, dict):
        return f"real: {real}\nmodel: {model}"
    names = [name for name in sorted({*real, *model}) if real.get(name) != model.get(name)]
    return "\n".join(f"{name}, real: {real.get(name)}, model: {model.get(name)}" for name in names)


if __name__ == "__main__":
    unittest.main()
