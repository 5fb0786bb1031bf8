"""Methods as functions: names, signatures, arguments, before anything is sent."""

import inspect
import pickle
import subprocess
import sys
import unittest

import torvane
from torvane.contract import MethodKind, builtin_contract, snake_case
from torvane.service import Service, Windows


class Recorder:
    """A client that writes down what the functions ask it to do."""

    def call(self, method, request, timeout):
        return method.name, request, timeout

    def open_events(self, method, windows):
        return method.name, windows

    def open_questions(self, method, windows, handler):
        return method.name, windows, handler


windows = Windows(Recorder(), builtin_contract())


class Names(unittest.TestCase):
    def test_are_those_of_the_proto_file_in_snake_case(self):
        for name, snake in (
            ("Show", "show"),
            ("IsWindowTitlebarVisible", "is_window_titlebar_visible"),
            ("GetURLOf", "get_url_of"),
            ("GetHTML5", "get_html5"),
            ("Import", "import_"),
        ):
            self.assertEqual(snake_case(name), snake)

    def test_all_41_methods_are_listed_and_described(self):
        methods = builtin_contract().service("rpc.BrowserWindow").methods
        self.assertEqual(len(methods), 41)
        for method in methods:
            with self.subTest(method.name):
                self.assertIn(method.python_name, dir(windows))
                function = getattr(windows, method.python_name)
                self.assertEqual(function.__name__, method.python_name)
                self.assertGreater(len(function.__doc__), 20)

    def test_the_kind_of_each_method_is_known(self):
        kinds = {}
        for method in builtin_contract().service("rpc.BrowserWindow").methods:
            kinds.setdefault(method.kind, []).append(method.name)
        self.assertEqual(len(kinds[MethodKind.UNARY]), 37)
        self.assertEqual(kinds[MethodKind.EVENTS], ["WhenBrowserWindowClosed"])
        self.assertEqual(
            kinds[MethodKind.QUESTIONS],
            ["OnCanExecuteCommand", "OnShowContextMenu", "OnCloseWindow"],
        )

    def test_a_method_that_is_not_there_is_named(self):
        with self.assertRaisesRegex(AttributeError, r"rpc.BrowserWindow has no method fly\(\)"):
            windows.fly

    def test_a_service_that_is_not_there_is_named(self):
        with self.assertRaisesRegex(KeyError, "no service rpc.Nothing; it has rpc.BrowserWindow"):
            builtin_contract().service("rpc.Nothing")
        with self.assertRaisesRegex(KeyError, "no message rpc.Nothing"):
            builtin_contract().message("rpc.Nothing")

    def test_comments_of_the_proto_file_are_the_documentation(self):
        self.assertIn("task bar name the window by.", windows.set_title.__doc__)
        self.assertTrue(windows.__doc__.startswith("Drives the browser's windows"))

    def test_signatures_name_the_fields(self):
        for function, expected in (
            (windows.show, "(window: 'int', /, *, timeout: 'float | None' = Ellipsis)"),
            (
                windows.set_title,
                "(window: 'int', /, *, title: 'str' = None, timeout: 'float | None' = Ellipsis)",
            ),
            (
                windows.set_bounds,
                "(window: 'int', /, *, bounds: 'Rect | dict' = None, "
                "timeout: 'float | None' = Ellipsis)",
            ),
        ):
            self.assertEqual(str(inspect.signature(function)), expected)

    def test_what_is_no_descriptor_set_is_refused(self):
        with self.assertRaisesRegex(ValueError, "not a FileDescriptorSet"):
            torvane.Contract(b"\xff")


class Arguments(unittest.TestCase):
    def expect(self, error, text, function):
        with self.assertRaises(error) as caught:
            function()
        self.assertIn(text, str(caught.exception))

    def test_the_first_is_the_window(self):
        _, request, _ = windows.show(7)
        self.assertEqual(request.value, 7)
        _, request, _ = windows.set_title(7, title="x")
        self.assertEqual((request.browser_id.value, request.title), (7, "x"))

    def test_a_window_may_be_a_message(self):
        window = builtin_contract().message("BrowserId")(value=9)
        self.assertEqual(windows.set_title(window, title="x")[1].browser_id.value, 9)
        self.assertEqual(windows.show(window)[1].value, 9)

    def test_fields_are_given_by_name(self):
        _, request, _ = windows.set_bounds(1, bounds={"x": -5, "width": 10})
        self.assertEqual((request.bounds.x, request.bounds.width), (-5, 10))
        _, request, _ = windows.is_window_button_visible(1, kind="KIND_CLOSE")
        self.assertEqual(request.kind, 1)

    def test_none_leaves_a_field_absent(self):
        _, request, _ = windows.set_position(1, x=0, y=None)
        self.assertTrue(request.HasField("x"))
        self.assertFalse(request.HasField("y"))

    def test_a_request_may_be_a_whole_message(self):
        whole = builtin_contract().message("rpc.WindowTitle")(title="x")
        self.assertIs(windows.set_title(whole)[1], whole)
        self.expect(TypeError, "but not both", lambda: windows.set_title(whole, title="y"))

    def test_wrong_ones_name_the_method_and_the_field(self):
        for error, text, function in (
            (TypeError, "set_title() has no field 'titl'", lambda: windows.set_title(1, titl="")),
            (TypeError, "set_title(): field 'title': ", lambda: windows.set_title(1, title=3)),
            (ValueError, "set_position(): field 'x': ", lambda: windows.set_position(1, x=1 << 31)),
            (TypeError, "set_bounds(): field 'bounds': ", lambda: windows.set_bounds(1, bounds=3)),
            (
                ValueError,
                "is_window_button_visible(): field 'kind': ",
                lambda: windows.is_window_button_visible(1, kind="KIND_OF_MAGIC"),
            ),
            (TypeError, "show(): a window is an int, not str", lambda: windows.show("1")),
            (TypeError, "show(): a window is an int, not bool", lambda: windows.show(True)),
            (ValueError, "show(): 9223372036854775808 is no window", lambda: windows.show(1 << 63)),
            (TypeError, "show() takes one positional argument, not 2", lambda: windows.show(1, 2)),
            (
                TypeError,
                "set_title() got the window twice: also as 'browser_id'",
                lambda: windows.set_title(1, browser_id={"value": 2}),
            ),
        ):
            with self.subTest(text):
                self.expect(error, text, function)

    def test_a_request_about_no_window_takes_none(self):
        status = Service(Recorder(), builtin_contract().service("rpc.status.ServerStatus"))
        self.expect(TypeError, "get_status() is about no window", lambda: status.get_status(1))

    def test_a_deadline_is_no_field(self):
        self.assertEqual(windows.show(1, timeout=2.5)[2], 2.5)
        self.assertIs(windows.show(1)[2], ...)

    def test_streams_take_windows(self):
        self.assertEqual(windows.closed(1, 2), ("WhenBrowserWindowClosed", (1, 2)))

    def test_a_handler_is_given_by_decorating_or_by_name(self):
        def handler(asked):
            return True

        expected = ("OnCloseWindow", (1, 2), handler)
        self.assertEqual(windows.on_close_window(1, 2)(handler), expected)
        self.assertEqual(windows.on_close_window(1, 2, handler=handler), expected)


class Errors(unittest.TestCase):
    def test_say_method_code_and_text(self):
        error = torvane.RpcError(torvane.Code.NOT_FOUND, "No window 9.", "rpc.BrowserWindow.Show")
        self.assertEqual(str(error), "rpc.BrowserWindow.Show: NOT_FOUND: No window 9.")
        self.assertEqual(str(torvane.RpcError(torvane.Code.ABORTED, "x")), "ABORTED: x")

    def test_can_be_pickled(self):
        error = torvane.RpcError(torvane.Code.NOT_FOUND, "x", "y")
        copy = pickle.loads(pickle.dumps(error))
        self.assertEqual((copy.code, copy.text, copy.method), (error.code, "x", "y"))


class Limits(unittest.TestCase):
    def test_may_be_as_small_and_as_large_as_they_say_and_no_more(self):
        for size in (8192, (1 << 32) - 1):
            torvane.Limits(max_frame_bytes=size)
        for size in (8191, 1 << 32):
            with self.assertRaisesRegex(ValueError, "max_frame_bytes is"):
                torvane.Limits(max_frame_bytes=size)
        for name in ("max_outbox_bytes", "max_unread_bytes", "max_questions"):
            torvane.Limits(**{name: 1})
            with self.assertRaisesRegex(ValueError, f"{name} is 0"):
                torvane.Limits(**{name: 0})


class Import(unittest.TestCase):
    def test_registers_nothing_and_leaks_no_module(self):
        program = (
            "import sys, torvane\n"
            "from google.protobuf import descriptor_pool\n"
            "tops = {name.split('.')[0] for name in sys.modules}\n"
            "assert 'rpc' not in tops and 'browser_id_pb2' not in tops, tops\n"
            "try: descriptor_pool.Default().FindMessageTypeByName('BrowserId')\n"
            "except KeyError: print('clean')\n"
        )
        printed = subprocess.run([sys.executable, "-B", "-c", program], stdout=subprocess.PIPE)
        self.assertEqual((printed.returncode, printed.stdout), (0, b"clean\n"))


if __name__ == "__main__":
    unittest.main()
