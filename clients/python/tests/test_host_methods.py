"""All unary methods, with the real host: each call shows in what another reads."""

import asyncio
import unittest

import torvane
from declarations import fields_of, methods_of, type_name
from support import HostTestCase, message
from torvane import Code
from torvane.contract import MethodKind, builtin_contract


class Methods(HostTestCase):
    flags = ("--windows", "3")

    # One test for each pair or group of methods; what those have returned that a
    # test has called is collected, and Coverage looks at it.
    returned = {}

    async def asyncSetUp(self):
        await super().asyncSetUp()
        self.windows = Recording(self.client.windows, self.returned)

    async def test_show_hide_is_visible(self):
        w = self.windows
        self.assertIsNone(await w.hide(1))
        self.assertIs(await w.is_visible(1), False)
        self.assertIsNone(await w.show(1))
        self.assertIs(await w.is_visible(1), True)
        self.assertIs(await w.is_active(1), True)

    async def test_activate_deactivate_focus_is_active(self):
        w = self.windows
        await w.activate(1)
        self.assertTrue(await w.is_active(1))
        await w.deactivate(1)
        self.assertFalse(await w.is_active(1))
        await w.focus(2)
        self.assertTrue(await w.is_active(2))
        self.host.say("list")
        await self.host.hears(
            'Window 2, "Window 2": active, normal, 1024x700 at 32,64, its page has the keyboard'
        )

    async def test_maximize_minimize_restore(self):
        w = self.windows
        await w.maximize(1)
        self.assertTrue(await w.is_maximized(1))
        await w.minimize(1)
        self.assertTrue(await w.is_minimized(1))
        self.assertFalse(await w.is_maximized(1))
        await w.restore(1)
        self.assertFalse(await w.is_minimized(1))
        self.assertTrue(await w.is_maximized(1))

    async def test_full_screen(self):
        w = self.windows
        await w.enter_full_screen(1)
        self.assertTrue(await w.is_full_screen(1))
        await w.exit_full_screen(1)
        self.assertFalse(await w.is_full_screen(1))

    async def test_close(self):
        self.assertIs(await self.windows.close(1), True)
        call = self.windows.is_visible(1)
        await self.expect_error(Code.NOT_FOUND, "No window 1.", call)

    async def test_bounds(self):
        w = self.windows
        await w.set_position(1, x=-10, y=20)
        await w.set_size(1, width=800, height=600)
        self.assertEqual(await self.bounds(1), (-10, 20, 800, 600))
        await w.set_position(1, y=30)
        await w.set_size(1, width=700)
        self.assertEqual(await self.bounds(1), (-10, 30, 700, 600))
        await w.set_bounds(1, bounds={"x": 5, "y": 6, "width": 900, "height": 500})
        self.assertEqual(await self.bounds(1), (5, 6, 900, 500))
        rect = message("rpc.Rect", x=7, width=901, height=501)
        await w.set_bounds(1, bounds=rect)
        self.assertEqual(await self.bounds(1), (7, 0, 901, 501))
        await w.center_window(1)
        self.assertNotEqual(await self.bounds(1), (7, 0, 901, 501))

    async def test_title(self):
        w = self.windows
        await w.set_title(1, title="Bücher 📚")
        self.assertEqual(await w.get_title(1), "Bücher 📚")

    async def test_title_bar(self):
        w = self.windows
        for change, read in (
            (w.set_window_title_visible, w.is_window_title_visible),
            (w.set_window_titlebar_visible, w.is_window_titlebar_visible),
        ):
            for visible in (False, True):
                await change(1, visible=visible)
                self.assertIs(await read(1), visible)

    async def test_buttons(self):
        w = self.windows
        await w.set_window_button_visible(1, kind="KIND_MINIMIZE", visible=False)
        self.assertFalse(await w.is_window_button_visible(1, kind="KIND_MINIMIZE"))
        self.assertTrue(await w.is_window_button_visible(1, kind=1))

    async def test_style_flags(self):
        w = self.windows
        await w.set_window_style_flags(1, titled=True, utility=True)
        flags = await w.get_window_style_flags(1)
        expected = message("rpc.WindowStyleFlags", browser_id={"value": 1}, titled=True, utility=True)
        self.assertEqual(flags, expected)

    async def test_display_policy(self):
        w = self.windows
        await w.set_window_display_policy(1, policy="POLICY_ALL_WORKSPACES")
        self.assertEqual((await w.get_window_display_policy(1)).policy, 2)

    async def test_activation_independence(self):
        w = self.windows
        await w.set_activation_independence_enabled(1, enabled=True)
        self.assertIs(await w.is_activation_independence_enabled(1), True)

    async def test_what_cannot_be_read_back(self):
        self.assertIsNone(
            await self.windows.set_window_animation_behavior(1, behavior="BEHAVIOR_NONE")
        )
        self.assertIsNone(
            await self.windows.set_vibrancy(1, material="MATERIAL_MENU", state="STATE_ACTIVE")
        )

    async def test_every_method_of_no_window_is_not_found(self):
        fields = {
            "set_bounds": {"bounds": {}},
            "set_window_button_visible": {"kind": 1},
            "is_window_button_visible": {"kind": 1},
            "set_window_display_policy": {"policy": 1},
            "set_window_animation_behavior": {"behavior": 1},
            "set_vibrancy": {"material": 1},
        }
        for name in unary_methods():
            with self.subTest(name):
                call = getattr(self.client.windows, name)(99, **fields.get(name, {}))
                await self.expect_error(Code.NOT_FOUND, "No window 99.", call)

    async def test_incomplete_requests_are_invalid(self):
        for call, text in (
            (self.client.windows.set_title(title="x"), "The field browser_id is missing."),
            (self.client.windows.set_bounds(1), "The field bounds is missing."),
            (self.client.windows.set_vibrancy(1, material=99), "There is no material 99."),
            (self.client.windows.set_size(1, width=-1), "it must not be negative"),
        ):
            await self.expect_error(Code.INVALID_ARGUMENT, text, call)

    async def bounds(self, window):
        rect = await self.windows.get_bounds(window)
        return rect.x, rect.y, rect.width, rect.height


class Recording:
    """A service that writes down what its methods return, by their names."""

    def __init__(self, service, returned):
        self._service = service
        self._returned = returned

    def __getattr__(self, name):
        async def call(*args, **fields):
            self._returned[name] = await getattr(self._service, name)(*args, **fields)
            return self._returned[name]

        return call


def unary_methods():
    methods = builtin_contract().service("rpc.BrowserWindow").methods
    return [method.python_name for method in methods if method.kind is MethodKind.UNARY]


def load_tests(loader, tests, pattern):
    """Runs Coverage after Methods."""
    classes = (Methods, Coverage, Calls, Limits, OurLimits)
    return unittest.TestSuite(loader.loadTestsFromTestCase(cls) for cls in classes)


class Coverage(unittest.TestCase):
    def test_all_37_unary_methods_were_called(self):
        self.assertEqual(len(unary_methods()), 37)
        self.assertEqual(set(unary_methods()) - set(Methods.returned), set())

    def test_all_37_have_returned_what_type_checkers_expect(self):
        declared = methods_of("AsyncCalls")
        for name in unary_methods():
            with self.subTest(name):
                self.assertEqual(type_name(Methods.returned[name]), declared[name].returns)

    def test_messages_have_the_fields_that_type_checkers_expect(self):
        messages = [value for value in Methods.returned.values() if hasattr(value, "DESCRIPTOR")]
        self.assertEqual(len(messages), 3)
        for message in messages:
            with self.subTest(type_name(message)):
                fields = message.DESCRIPTOR.fields_by_name
                types = {name: type_name(getattr(message, name)) for name in fields}
                self.assertEqual(types, fields_of(type_name(message)))


class Calls(HostTestCase):
    async def test_many_calls_may_be_under_way_at_once(self):
        calls = [self.windows.get_title(1 + number % 3) for number in range(1000)]
        titles = await asyncio.gather(*calls)
        self.assertEqual(titles, [f"Window {1 + number % 3}" for number in range(1000)])

    async def test_a_call_past_its_deadline_ends_on_both_sides(self):
        async with self.windows.on_close_window(1, handler=never):
            call = self.windows.close(1, timeout=0.01)
            await self.expect_error(Code.DEADLINE_EXCEEDED, "", call)

    async def test_a_cancelled_call_ends(self):
        asked = asyncio.Event()

        async def handler(question):
            asked.set()
            await asyncio.Event().wait()

        async with self.windows.on_close_window(1, handler=handler):
            closing = asyncio.ensure_future(self.windows.close(1))
            await asked.wait()
            closing.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await closing
            self.assertTrue(await self.windows.is_visible(1))

    async def test_other_services_are_found_by_name(self):
        report = await self.client.service("rpc.status.ServerStatus").get_status()
        self.assertEqual(len(report.connections), 1)
        self.assertEqual(
            self.client.offered_services[:2], ("rpc.BrowserWindow", "rpc.status.ServerStatus")
        )

    async def test_the_server_knows_the_clients_name(self):
        other = await self.connect(name="clock")
        report = await other.service("rpc.status.ServerStatus").get_status()
        self.assertEqual(report.connections[1].name, "clock")


async def never(asked):
    await asyncio.Event().wait()


class Limits(HostTestCase):
    flags = ("--max-client-frame-bytes", "8192", "--max-connections", "2")

    async def test_a_request_beyond_the_hosts_max_frame_bytes_fails_alone(self):
        call = self.windows.set_title(1, title="x" * 8192)
        text = "more than the server's max_frame_bytes, 8192"
        await self.expect_error(Code.RESOURCE_EXHAUSTED, text, call)
        await self.windows.set_title(1, title="x" * 4096)
        self.assertEqual(len(await self.windows.get_title(1)), 4096)

    async def test_one_connection_beyond_max_connections_is_turned_away(self):
        await self.connect()
        text = "max_connections"
        await self.expect_error(Code.RESOURCE_EXHAUSTED, text, torvane.connect(self.path))


class OurLimits(HostTestCase):
    async def test_a_response_beyond_our_max_frame_bytes_fails_alone(self):
        small = await self.connect(limits=torvane.Limits(max_frame_bytes=8192))
        # The host's longest reply is its report, which has a line for each client.
        for _ in range(100):
            await self.connect(name="x" * 64)
        report = small.service("rpc.status.ServerStatus").get_status()
        await self.expect_error(Code.RESOURCE_EXHAUSTED, "max_frame_bytes", report)
        self.assertTrue(await small.windows.is_visible(1))


if __name__ == "__main__":
    unittest.main()
