"""Waits for two questions about window 1, beside those about the command "reload", and
answers the later one first."""

import queue
import sys

import grpc
from browser_id_pb2 import BrowserId
from rpc.browser.browser_window_pb2 import CanExecuteCommand
from rpc.browser.browser_window_pb2_grpc import BrowserWindowStub

sent = queue.SimpleQueue()


def answer(asked, allowed):
    response = CanExecuteCommand.Response(allowed=allowed)
    sent.put(
        CanExecuteCommand(browser_id=asked.browser_id, call_id=asked.call_id, response=response)
    )


with grpc.insecure_channel(sys.argv[1]) as channel:
    sent.put(CanExecuteCommand(browser_id=BrowserId(value=1), subscribe=True))
    questions = BrowserWindowStub(channel).OnCanExecuteCommand(iter(sent.get, None))
    waiting = []
    for asked in questions:
        name = asked.question.command.name
        if name == "reload":
            answer(asked, True)
            continue
        print("asked", name)
        waiting.append(asked)
        if len(waiting) == 2:
            answer(waiting[1], True)
            answer(waiting[0], False)
            sent.put(None)
