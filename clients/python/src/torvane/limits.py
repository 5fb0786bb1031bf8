"""What one connection may hold in memory."""

import dataclasses

# Neither side may announce less, so that a status text always fits.
MIN_FRAME_BYTES = 8192

# A frame's length has 32 bits on the wire.
MAX_FRAME_BYTES = (1 << 32) - 1

# What an event costs beside its payload: the objects that hold it.
EVENT_OVERHEAD_BYTES = 128


@dataclasses.dataclass(frozen=True)
class Limits:
    """The limits that a client keeps, whatever the server does.

    max_frame_bytes: the longest frame taken from the server, announced to it: a
        longer response fails its call, a longer event ends its stream. A server
        that sends a longer frame all the same is left. 8,192 to 2^32 - 1.
    max_outbox_bytes: how much may wait to be written. Beyond it calls, new
        streams and subscriptions fail with RESOURCE_EXHAUSTED, and an answer
        becomes a refusal to answer; a refusal that does not fit closes the
        connection.
    max_unread_bytes: how much of one event stream may wait for its reader; each
        event counts its payload and 128 bytes. Beyond it the stream ends with
        RESOURCE_EXHAUSTED, once the reader has had all that was waiting.
    max_questions: how many handlers of one stream may run. More questions are
        declined.
    """

    max_frame_bytes: int = 4 << 20
    max_outbox_bytes: int = 16 << 20
    max_unread_bytes: int = 16 << 20
    max_questions: int = 10_000

    def __post_init__(self) -> None:
        if not MIN_FRAME_BYTES <= self.max_frame_bytes <= MAX_FRAME_BYTES:
            raise ValueError(
                f"max_frame_bytes is {self.max_frame_bytes}: it must be from "
                f"{MIN_FRAME_BYTES} to {MAX_FRAME_BYTES}"
            )
        for name in ("max_outbox_bytes", "max_unread_bytes", "max_questions"):
            if getattr(self, name) < 1:
                raise ValueError(f"{name} is {getattr(self, name)}: it must be positive")
