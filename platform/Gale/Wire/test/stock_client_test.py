"""Semantics of the wire layer as a stock gRPC client sees them."""

import json
import subprocess
import sys
import threading
import time
import unittest

import grpc

SERVER = None  # path of the server binary, from the command line
DEADLINE = 120


class Served(unittest.TestCase):
    arguments = []

    def setUp(self):
        self.process = subprocess.Popen([SERVER] + self.arguments, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())
        self.channel = self.connect()

    def tearDown(self):
        self.channel.close()
        self.process.stdin.close()
        self.process.wait(DEADLINE)
        self.process.stdout.close()
        self.assertEqual(self.process.returncode, 0)

    def connect(self, **options):
        all_options = [("grpc.use_local_subchannel_pool", 1)]
        all_options += [("grpc." + k, v) for k, v in options.items()]
        return grpc.insecure_channel("127.0.0.1:%d" % self.port, options=all_options)

    def unary(self, method, channel=None):
        return (channel or self.channel).unary_unary("/test.T/" + method)

    def stream(self, method, channel=None):
        return (channel or self.channel).unary_stream("/test.T/" + method)

    def bidi(self, method, channel=None):
        return (channel or self.channel).stream_stream("/test.T/" + method)

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def status(self):
        self.say("status")
        return json.loads(self.process.stdout.readline())

    def until(self, reached):
        end = time.monotonic() + DEADLINE
        while True:
            status = self.status()
            if reached(status):
                return status
            self.assertLess(time.monotonic(), end, status)

    def fails(self, code, call):
        with self.assertRaises(grpc.RpcError) as raised:
            result = call()
            if not isinstance(result, bytes):
                list(result)
        self.assertEqual(raised.exception.code(), code)
        return raised.exception


class Requests:
    """A request stream that the test feeds."""

    def __init__(self):
        self.items = []
        self.over = False
        self.changed = threading.Condition()

    def put(self, item):
        with self.changed:
            self.items.append(item)
            self.changed.notify()

    def end(self):
        with self.changed:
            self.over = True
            self.changed.notify()

    def __iter__(self):
        return self

    def __next__(self):
        with self.changed:
            self.changed.wait_for(lambda: self.items or self.over, DEADLINE)
            if self.items:
                return self.items.pop(0)
            raise StopIteration


class Semantics(Served):
    def test_empty_unary(self):
        self.assertEqual(self.unary("Echo")(b""), b"")

    def test_large_unary(self):
        body = bytes(range(256)) * 1200
        self.assertEqual(self.unary("Echo")(body), body)

    def test_four_mebibytes_and_one_more(self):
        body = b"x" * (4 << 20)
        self.assertEqual(self.unary("Echo")(body), body)
        self.fails(grpc.StatusCode.RESOURCE_EXHAUSTED, lambda: self.unary("Echo")(body + b"x"))
        self.assertEqual(self.unary("Echo")(b"still fine"), b"still fine")

    def test_server_streaming(self):
        messages = list(self.stream("Numbers")(b"5000 340"))
        self.assertEqual([int.from_bytes(m[:4], "little") for m in messages], list(range(5000)))
        self.assertEqual({len(m) for m in messages}, {340})

    def test_server_streaming_of_large_messages(self):
        self.assertEqual([len(m) for m in self.stream("Numbers")(b"4 3000000")], [3000000] * 4)

    def test_ping_pong_and_half_close(self):
        requests = Requests()
        call = self.bidi("Chat")(requests)
        for body in (b"a" * 27182, b"b" * 8, b"", b"d" * 45904):
            requests.put(body)
            self.assertEqual(next(call), body)
        requests.end()
        self.assertEqual(list(call), [])
        self.assertEqual(call.code(), grpc.StatusCode.OK)

    def test_empty_stream(self):
        call = self.bidi("Chat")(iter([]))
        self.assertEqual(list(call), [])
        self.assertEqual(call.code(), grpc.StatusCode.OK)

    def test_custom_metadata(self):
        metadata = (("x-echo", "test_initial_metadata_value"), ("x-echo-bin", b"\xab\xab\xab"))
        _, call = self.unary("Echo").with_call(b"x", metadata=metadata)
        self.assertIn(("x-echo", "test_initial_metadata_value"), call.initial_metadata())
        self.assertIn(("x-echo-bin", b"\xab\xab\xab"), call.trailing_metadata())
        call = self.bidi("Chat")(iter([b"x"]), metadata=metadata)
        self.assertEqual(list(call), [b"x"])
        self.assertIn(("x-echo", "test_initial_metadata_value"), call.initial_metadata())
        self.assertIn(("x-echo-bin", b"\xab\xab\xab"), call.trailing_metadata())

    def test_status_code_and_message(self):
        error = self.fails(grpc.StatusCode.UNKNOWN,
                           lambda: self.unary("Fail")(b"2 test status message"))
        self.assertEqual(error.details(), "test status message")

    def test_special_status_message(self):
        text = "\t\ntest with whitespace\r\nand Unicode BMP ☺ and non-BMP 😈 and 100%\t\n"
        error = self.fails(grpc.StatusCode.UNKNOWN, lambda: self.unary("Fail")(b"2 " + text.encode()))
        self.assertEqual(error.details(), text)

    def test_every_status_code(self):
        for code in grpc.StatusCode:
            if code.value[0] != 0:
                self.fails(code, lambda: self.unary("Fail")(b"%d x" % code.value[0]))

    def test_unimplemented(self):
        self.fails(grpc.StatusCode.UNIMPLEMENTED, lambda: self.unary("Nope")(b""))
        self.fails(grpc.StatusCode.UNIMPLEMENTED,
                   lambda: self.channel.unary_unary("/nope.N/Echo")(b""))

    def test_cancel_after_begin(self):
        call = self.bidi("Live")(Requests())
        self.until(lambda s: s["handlers"] == 1)
        call.cancel()
        self.until(lambda s: s["handlers"] == 0)
        self.assertEqual(call.code(), grpc.StatusCode.CANCELLED)

    def test_cancel_after_first_response(self):
        call = self.stream("Numbers")(b"100000000 340")
        next(call)
        call.cancel()
        status = self.until(lambda s: s["handlers"] == 0)
        self.assertEqual(status["callsCancelled"], 1)

    def test_timeout_on_sleeping_server(self):
        self.fails(grpc.StatusCode.DEADLINE_EXCEEDED, lambda: self.unary("Sleep")(b"", timeout=0.001))
        self.fails(grpc.StatusCode.DEADLINE_EXCEEDED, lambda: self.unary("Sleep")(b"", timeout=0.1))
        self.until(lambda s: s["handlers"] == 0)

    def test_compressed_request(self):
        self.fails(grpc.StatusCode.UNIMPLEMENTED,
                   lambda: self.unary("Echo")(b"x" * 1000, compression=grpc.Compression.Gzip))
        self.assertEqual(self.unary("Echo")(b"x"), b"x")

    def test_early_end_while_the_client_is_sending(self):
        requests = Requests()
        requests.put(b"x")
        call = self.bidi("Early")(requests)
        self.assertEqual(self.fails(grpc.StatusCode.INVALID_ARGUMENT, lambda: call).details(),
                         "no thanks")
        requests.end()

    def test_three_hundred_calls_over_a_limit_of_one_hundred(self):
        self.test_early_end_while_the_client_is_sending()
        futures = [self.unary("Echo").future(b"%d" % i) for i in range(300)]
        self.assertEqual([f.result(DEADLINE) for f in futures], [b"%d" % i for i in range(300)])
        streams = [self.bidi("Live")(Requests()) for _ in range(150)]
        self.until(lambda s: s["handlers"] == 100)
        for stream in streams:
            stream.cancel()
        self.until(lambda s: s["handlers"] == 0)
        self.assertEqual(self.unary("Echo")(b"x"), b"x")

    def test_handler_failure(self):
        self.fails(grpc.StatusCode.UNKNOWN, lambda: self.unary("Throw")(b"x"))

    def test_keepalive_of_an_idle_subscription(self):
        channel = self.connect(keepalive_time_ms=10000, keepalive_timeout_ms=5000,
                               http2__max_pings_without_data=0)
        requests = Requests()
        call = self.bidi("Live", channel)(requests)
        requests.put(b"go")
        self.until(lambda s: s["handlers"] == 1)
        self.say("live hello")
        self.assertEqual(next(call), b"hello")
        channel.close()


class Stop(Served):
    def test_open_stream_lives_until_the_end_of_grace(self):
        requests = Requests()
        requests.put(b"go")
        call = self.bidi("Live")(requests)
        self.until(lambda s: s["handlers"] == 1)
        began = time.monotonic()
        self.say("stop 500")
        error = self.fails(grpc.StatusCode.UNAVAILABLE, lambda: call)
        self.assertEqual(error.details(), "the server is shutting down")
        self.assertGreater(time.monotonic() - began, 0.45)
        self.assertEqual(self.process.stdout.readline(), "stopped\n")
        self.assertEqual(self.process.wait(DEADLINE), 0)


    def test_calls_move_to_another_server_without_a_failure(self):
        """A double GOAWAY under load: the calls of eight threads go on against the next server."""
        next_server = subprocess.Popen([SERVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                       text=True)
        next_port = int(next_server.stdout.readline())
        channel = grpc.insecure_channel(
            "ipv4:127.0.0.1:%d,127.0.0.1:%d" % (self.port, next_port),
            options=[("grpc.use_local_subchannel_pool", 1)])
        counts, failures, stop = [0] * 8, [], threading.Event()

        def run(i):
            while not stop.is_set():
                try:
                    self.unary("Echo", channel)(b"x")
                    counts[i] += 1
                except grpc.RpcError as error:
                    failures.append(error)

        threads = [threading.Thread(target=run, args=(i,)) for i in range(8)]
        for thread in threads:
            thread.start()
        self.until(lambda s: s["callsFinished"] > 200)
        self.say("stop 10000")
        self.assertEqual(self.process.stdout.readline(), "stopped\n")
        reached = sum(counts) + 200
        end = time.monotonic() + DEADLINE
        while sum(counts) < reached and time.monotonic() < end:
            stop.wait(0.01)
        stop.set()
        for thread in threads:
            thread.join()
        channel.close()
        next_server.stdin.close()
        self.assertEqual(next_server.wait(DEADLINE), 0)
        next_server.stdout.close()
        self.assertEqual(failures, [])
        self.assertGreaterEqual(sum(counts), reached)


class Stall(Served):
    arguments = ["1500"]

    def test_a_stalled_call_is_unavailable(self):
        call = self.stream("Numbers")(b"100000000 340")
        next(call)
        status = self.until(lambda s: s["handlers"] == 0)
        self.assertEqual(status["callsStalled"], 1)
        self.fails(grpc.StatusCode.UNAVAILABLE, lambda: call)
        self.assertEqual(self.unary("Echo")(b"x"), b"x")


if __name__ == "__main__":
    SERVER = sys.argv.pop(1)
    unittest.main()
