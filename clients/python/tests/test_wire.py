"""Frames to bytes and back."""

import unittest

from torvane.errors import Code, RpcError
from torvane.wire import (
    KINDS,
    FrameDecoder,
    encode_frame,
    encode_varint,
    status_of,
    with_length,
)


def frame(name="goodbye", **fields):
    return with_length(encode_frame(name, KINDS[name].message(**fields)))


def decode(data, max_frame_bytes=1 << 20):
    decoder = FrameDecoder(max_frame_bytes)
    decoder.feed(data)
    return list(decoder.frames())


class Frames(unittest.TestCase):
    def expect_broken(self, code, text, data, max_frame_bytes=1 << 20):
        with self.assertRaises(RpcError) as caught:
            decode(data, max_frame_bytes)
        self.assertEqual((caught.exception.code, caught.exception.text), (code, text))

    def test_is_what_protobuf_makes_of_the_schema(self):
        from torvane.contract import builtin_contract

        call = dict(call_id=300, method_id=2, request=b"x" * 500)
        whole = builtin_contract().message("rpc.transport.Frame")(call=call)
        self.assertEqual(frame("call", **call), with_length(whole.SerializeToString()))

    def test_each_kind_comes_back(self):
        for name in KINDS:
            with self.subTest(name):
                self.assertEqual(decode(frame(name)), [(name, KINDS[name].message())])

    def test_frames_come_whole_however_their_bytes_arrive(self):
        data = frame("cancel", call_id=7) + frame("reply", call_id=8, response=b"y" * 300)
        expected = decode(data)
        self.assertEqual([name for name, _ in expected], ["cancel", "reply"])
        for size in (1, 2, 3, 100):
            decoder = FrameDecoder(1 << 20)
            got = []
            for at in range(0, len(data), size):
                decoder.feed(data[at : at + size])
                got += decoder.frames()
            self.assertEqual(got, expected)

    def test_a_frame_may_be_as_long_as_the_limit_and_no_longer(self):
        exact = frame("reply", response=b"x" * 9000)
        length = len(exact) - 2
        self.assertEqual(len(decode(exact, length)), 1)
        self.expect_broken(
            Code.RESOURCE_EXHAUSTED,
            f"a frame of {length} bytes, more than max_frame_bytes, {length - 1}",
            exact,
            length - 1,
        )

    def test_a_frame_that_is_too_long_is_refused_before_it_has_come(self):
        self.expect_broken(
            Code.RESOURCE_EXHAUSTED,
            "a frame of 8193 bytes, more than max_frame_bytes, 8192",
            encode_varint(8193),
            8192,
        )

    def test_a_length_of_more_than_32_bits_is_broken(self):
        text = "a length of more than 32 bits"
        self.expect_broken(Code.INVALID_ARGUMENT, text, encode_varint(1 << 32))
        self.expect_broken(Code.INVALID_ARGUMENT, text, b"\x80" * 5)

    def test_a_frame_holds_one_body_exactly(self):
        text = "a frame that does not hold one body"
        two = encode_frame("cancel", KINDS["cancel"].message(call_id=1)) * 2
        for broken in (b"", two, b"\x0a", b"\x0a\x05", b"\x0a\x80"):
            with self.subTest(broken):
                self.expect_broken(Code.INVALID_ARGUMENT, text, with_length(broken))

    def test_an_unknown_kind_is_broken(self):
        text = "a frame of the unknown kind 11"
        self.expect_broken(Code.INVALID_ARGUMENT, text, with_length(b"\x5a\x00"))

    def test_a_body_that_does_not_parse_is_named(self):
        text = "a reply frame that does not parse"
        self.expect_broken(Code.INVALID_ARGUMENT, text, with_length(b"\x22\x01\xff"))

    def test_unknown_fields_of_a_body_are_ignored(self):
        # Field 15, a varint, after call_id.
        body = b"\x08\x07\x78\x01"
        ((name, cancel),) = decode(with_length(b"\x2a" + bytes([len(body)]) + body))
        self.assertEqual((name, cancel.call_id), ("cancel", 7))

    def test_frames_before_a_broken_one_are_handled(self):
        decoder = FrameDecoder(1 << 20)
        decoder.feed(frame("cancel", call_id=1) + with_length(b""))
        frames = decoder.frames()
        self.assertEqual(next(frames)[0], "cancel")
        with self.assertRaises(RpcError):
            next(frames)

    def test_a_status_text_is_cut_so_that_it_fits_in_any_frame(self):
        status = status_of(RpcError(Code.INTERNAL, "x" * 5000))
        self.assertEqual((status.code, len(status.text)), (13, 4096))


if __name__ == "__main__":
    unittest.main()
