"""The gNMI service as a stock Python client sees it: another parser, another HTTP/2."""

import json
import subprocess
import sys
import unittest

import grpc

SERVER, MESSAGES = sys.argv.pop(1), sys.argv.pop(1)
sys.path.insert(0, MESSAGES)
import gnmi_pb2  # noqa: E402

DEADLINE = 120


def text(path):
    return "".join("/" + e.name + "".join("[%s=%s]" % kv for kv in sorted(e.key.items())) for e in path.elem)


class StockClient(unittest.TestCase):
    def setUp(self):
        self.process = subprocess.Popen([SERVER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.channel = grpc.insecure_channel("127.0.0.1:" + self.process.stdout.readline().strip())

    def tearDown(self):
        self.channel.close()
        self.process.stdin.close()
        self.assertEqual(self.process.wait(DEADLINE), 0)
        self.process.stdout.close()

    def order(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        self.assertEqual(self.process.stdout.readline(), "ok\n")

    def subscribe(self, list_mode, target, **fields):
        request = gnmi_pb2.SubscribeRequest()
        request.subscribe.mode = list_mode
        request.subscribe.encoding = gnmi_pb2.PROTO
        request.subscribe.prefix.target = target
        request.subscribe.subscription.add(**fields)
        call = self.channel.stream_stream(
            "/gnmi.gNMI/Subscribe",
            request_serializer=gnmi_pb2.SubscribeRequest.SerializeToString,
            response_deserializer=gnmi_pb2.SubscribeResponse.FromString)
        return call(iter([request]), timeout=DEADLINE)

    def test_targets_are_merged_into_the_prefix(self):
        self.order("set 1 red")
        for target in ("", "router-7", "x" * 300):
            got = list(self.subscribe(gnmi_pb2.SubscriptionList.ONCE, target))
            self.assertEqual(len(got), 3)
            self.assertTrue(got[-1].sync_response)
            for response in got[:-1]:
                self.assertEqual(response.update.prefix.target, target)
                self.assertEqual(response.update.prefix.origin, "openconfig")
            self.assertEqual(text(got[0].update.prefix), "/zoo[name=main]/beasts/beast[index=1]")
            self.assertTrue(got[0].update.atomic)
            self.assertEqual([u.val.WhichOneof("value") for u in got[0].update.update],
                             ["uint_val", "uint_val", "string_val"])

    def test_changes_and_deletes_follow_the_sync(self):
        stream = self.subscribe(gnmi_pb2.SubscriptionList.STREAM, "r")
        self.assertEqual(text(next(stream).update.prefix), "/zoo[name=main]")
        self.assertTrue(next(stream).sync_response)
        self.order("set 2 blue")
        update = next(stream).update
        self.assertEqual(text(update.prefix), "/zoo[name=main]/beasts/beast[index=2]")
        self.order("erase 2")
        delete = next(stream).update
        self.assertEqual([text(path) for path in delete.delete], ["/zoo[name=main]/beasts/beast[index=2]"])
        self.assertEqual(delete.prefix.target, "r")
        self.assertFalse(delete.atomic)
        self.assertGreater(delete.timestamp, update.timestamp)
        stream.cancel()

    def test_samples_come_again_with_a_later_stamp_and_before_the_delete(self):
        self.order("set 1 red")
        stream = self.subscribe(gnmi_pb2.SubscriptionList.STREAM, "r", mode=gnmi_pb2.SAMPLE,
                                sample_interval=30 * 10**9)
        first = [next(stream) for _ in range(3)]
        self.assertTrue(first[-1].sync_response)
        stamp = first[0].update.timestamp
        for _ in range(2):
            self.order("ahead 30")
            beast, zoo = next(stream).update, next(stream).update
            self.assertEqual(text(beast.prefix), "/zoo[name=main]/beasts/beast[index=1]")
            self.assertEqual(beast.update, first[0].update.update)
            self.assertEqual(beast.prefix, first[0].update.prefix)
            self.assertGreater(beast.timestamp, stamp + 29 * 10**9)
            self.assertTrue(beast.atomic)
            self.assertEqual(text(zoo.prefix), "/zoo[name=main]")
            stamp = beast.timestamp
        self.order("erase 1")
        self.assertGreater(next(stream).update.timestamp, stamp)
        stream.cancel()

    def get(self, *paths, **fields):
        request = gnmi_pb2.GetRequest(**fields)
        for names in paths:
            path = request.path.add()
            for name in names:
                path.elem.add(name=name)
        call = self.channel.unary_unary(
            "/gnmi.gNMI/Get",
            request_serializer=gnmi_pb2.GetRequest.SerializeToString,
            response_deserializer=gnmi_pb2.GetResponse.FromString)
        return call(request, timeout=DEADLINE)

    def test_get_answers_each_path_in_json_that_another_parser_takes(self):
        self.order("set 1 red\\")
        beast = {"index": "1", "state": {"index": "1", "zoo-colours:colour": "paint:red\\"}}
        got = self.get([], ["zoo", "beasts"], encoding=gnmi_pb2.JSON_IETF)
        trees = [json.loads(n.update[0].val.json_ietf_val) for n in got.notification]
        self.assertEqual(trees, [{"zoo-main:zoo": [{"name": "main", "beasts": {"beast": [beast]}}]},
                                 {"zoo-main:beast": [beast]}])
        self.assertEqual([text(n.update[0].path) for n in got.notification], ["", "/zoo[name=main]/beasts"])

    def test_get_names_what_it_does_not_find_or_serve(self):
        for paths, encoding, code, part in (
                ([["zoo", "visitors"]], gnmi_pb2.PROTO, grpc.StatusCode.NOT_FOUND, "/zoo/visitors"),
                ([["garden"]], gnmi_pb2.PROTO, grpc.StatusCode.UNIMPLEMENTED, "/garden"),
                ([[""]], gnmi_pb2.PROTO, grpc.StatusCode.INVALID_ARGUMENT, "without a name"),
                ([[]], gnmi_pb2.BYTES, grpc.StatusCode.UNIMPLEMENTED, "encoding BYTES")):
            with self.assertRaises(grpc.RpcError) as raised:
                self.get(*paths, encoding=encoding)
            self.assertEqual(raised.exception.code(), code)
            self.assertIn(part, raised.exception.details())


if __name__ == "__main__":
    unittest.main()
