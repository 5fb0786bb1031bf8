"""Calls Close with a deadline that ends before this program answers whether the window
may close. Where its subscription has not arrived, or the call not in time, nobody is
asked: then it tries another window."""

import queue
import sys

import grpc
from rpc.browser.browser_window_pb2 import CloseWindow
from rpc.browser.browser_window_pb2_grpc import BrowserWindowStub
from rpc.directory.window_directory_pb2 import OpenWindowRequest
from rpc.directory.window_directory_pb2_grpc import WindowDirectoryStub
from rpc.status.server_status_pb2 import StatusRequest
from rpc.status.server_status_pb2_grpc import ServerStatusStub

sent = queue.SimpleQueue()
with grpc.insecure_channel(sys.argv[1]) as channel:
    windows = BrowserWindowStub(channel)
    questions = windows.OnCloseWindow(iter(sent.get, None))
    directory = WindowDirectoryStub(channel)
    status = ServerStatusStub(channel)
    while status.GetStatus(StatusRequest()).total.pending_questions == 0:
        window = directory.OpenWindow(OpenWindowRequest()).browser_id
        sent.put(CloseWindow(browser_id=window, subscribe=True))
        try:
            windows.Close(window, timeout=0.2)
        except grpc.RpcError as error:
            code = error.code()
    print(code.name)
    if next(questions).HasField("question"):
        print("asked")
    sent.put(None)
