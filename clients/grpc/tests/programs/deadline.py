"""Calls Close with a deadline that ends before this program answers whether the window
may close. As long as its subscription has not arrived, nobody is asked, and the
window closes: then it opens another one."""

import queue
import sys

import grpc
from rpc.browser.browser_window_pb2 import CloseWindow
from rpc.browser.browser_window_pb2_grpc import BrowserWindowStub
from rpc.directory.window_directory_pb2 import OpenWindowRequest
from rpc.directory.window_directory_pb2_grpc import WindowDirectoryStub

sent = queue.SimpleQueue()
with grpc.insecure_channel(sys.argv[1]) as channel:
    windows = BrowserWindowStub(channel)
    questions = windows.OnCloseWindow(iter(sent.get, None))
    closed = True
    while closed:
        window = WindowDirectoryStub(channel).OpenWindow(OpenWindowRequest()).browser_id
        sent.put(CloseWindow(browser_id=window, subscribe=True))
        try:
            windows.Close(window, timeout=0.2)
        except grpc.RpcError as error:
            print(error.code().name)
            closed = False
    if next(questions).browser_id == window:
        print("asked about that window")
    sent.put(None)
