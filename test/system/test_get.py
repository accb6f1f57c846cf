"""Get, POLL and the JSON encodings on the real agent: the same state by every way to ask for it."""
import json
import time

import gnmi_pb2
import grpc
from gnmi_client import AFTS, Stream, as_ietf, flattened, get, got_tree, prefixes
from lab import ADDRESS
from test_first_light import CONNECTED, Case

ROUTE = "192.0.2.0/24"
JSON_IETF = gnmi_pb2.JSON_IETF


class Get(Case):
    def setUp(self):
        super().setUp()
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,3/102,1")
        self.lab.ip(f"route add {ROUTE} nhid 200")
        self.up()
        self.stream = self.subscribe_with(ROUTE)

    def same(self, what, ask, form=dict):
        """ask() comes to give what the stream holds, leaf for leaf, in a form."""
        deadline = time.monotonic() + 60
        while True:
            got, held = ask(), dict(self.stream.tree)
            if got == form(held) or time.monotonic() > deadline:
                self.assertEqual(got, form(held), what)
                return held
            time.sleep(0.2)

    def ietf(self, leaves):
        return {leaf: as_ietf(leaf, val) for leaf, val in leaves.items()}

    def test_get_of_all_is_what_a_stream_holds_in_every_encoding(self):
        held = self.same("PROTO", lambda: got_tree(get(ADDRESS, encoding=gnmi_pb2.PROTO).notification[0]))
        self.assertTrue(CONNECTED.union({ROUTE}) <= prefixes(held).keys())

        def tree(encoding):
            update, = get(ADDRESS, encoding=encoding).notification[0].update
            self.assertEqual(len(update.path.elem), 0)
            return update.val

        ietf = json.loads(tree(JSON_IETF).json_ietf_val)
        self.assertEqual(list(ietf), ["openconfig-network-instance:network-instances"])
        self.same("JSON_IETF", lambda: flattened(json.loads(tree(JSON_IETF).json_ietf_val)), self.ietf)
        self.same("JSON", lambda: flattened(json.loads(tree(gnmi_pb2.JSON).json_val)))

    def test_get_of_several_paths_and_parts(self):
        entry = AFTS + "/next-hop-groups/next-hop-group[id=200]"
        answer = get(ADDRESS, [entry + "/state/id", entry, AFTS + "/next-hops/next-hop/state/ip-address"],
                     encoding=JSON_IETF)
        leaf, group, addresses = answer.notification
        self.assertEqual(leaf.update[0].val.json_ietf_val, b'"200"')
        group = json.loads(group.update[0].val.json_ietf_val)
        self.assertEqual(group["openconfig-network-instance:id"], "200")
        members = group["openconfig-network-instance:next-hops"]["next-hop"]
        self.assertEqual(sorted(m["state"]["weight"] for m in members), ["1", "3"])
        found = {json.loads(u.val.json_ietf_val) for u in addresses.update}
        self.assertTrue({"10.0.1.2", "10.0.2.2"} <= found, found)
        for update in addresses.update:
            self.assertTrue(update.path.elem[4].key["index"], "wildcards are answered with names")
        for notification in answer.notification:
            self.assertGreater(notification.timestamp, time.time_ns() - 3600 * 10**9)

    def test_get_by_type(self):
        def leaves(kind):
            update, = get(ADDRESS, encoding=JSON_IETF, type=kind).notification[0].update
            return flattened(json.loads(update.val.json_ietf_val))
        instance = "/network-instances/network-instance[name=DEFAULT]"
        self.assertEqual(leaves(gnmi_pb2.GetRequest.CONFIG), {
            instance + "/name": "DEFAULT", instance + "/config/name": "DEFAULT",
            instance + "/config/type": "openconfig-network-instance-types:DEFAULT_INSTANCE"})
        state = leaves(gnmi_pb2.GetRequest.STATE)
        self.assertFalse([leaf for leaf in state if "/config/" in leaf])
        self.assertIn(instance + "/state/type", state)
        self.assertIn(f"{AFTS}/ipv4-unicast/ipv4-entry[prefix={ROUTE}]/state/next-hop-group", state)

    def test_what_is_not_there_is_named(self):
        missing = AFTS + "/next-hops/next-hop[index=4711]"
        with self.assertRaises(grpc.RpcError) as raised:
            get(ADDRESS, ["/", missing], encoding=JSON_IETF)
        self.assertEqual(raised.exception.code(), grpc.StatusCode.NOT_FOUND)
        self.assertIn("next-hop[index=4711]", raised.exception.details())

    def test_poll_gives_all_of_it_each_time(self):
        poller = self.subscribe(poll=True)
        self.same("first answer", lambda: poller.poll().tree)
        self.lab.ip("route add 198.51.100.0/24 nhid 200")
        self.stream.wait(lambda s: "198.51.100.0/24" in prefixes(s.tree), "the new route")
        held = self.same("after a change", lambda: poller.poll().tree)
        self.assertIn("198.51.100.0/24", prefixes(held))
        self.lab.ip("route del 198.51.100.0/24")
        self.stream.wait(lambda s: "198.51.100.0/24" not in prefixes(s.tree), "its end")
        self.assertNotIn("198.51.100.0/24", prefixes(self.same("after its end", lambda: poller.poll().tree)))
        poller.half_close()
        poller.wait(lambda p: p.ended, "the end")
        self.assertIsNone(poller.error)

    def test_a_json_stream_follows_like_a_proto_one(self):
        follower = self.subscribe(encoding=JSON_IETF)
        self.lab.ip("nexthop replace id 200 group 101,5/102,7")
        self.lab.ip("route add 198.51.100.0/24 nhid 200")
        self.lab.ip(f"route del {ROUTE}")
        for stream in (self.stream, follower):
            stream.wait(lambda s: "198.51.100.0/24" in prefixes(s.tree) and ROUTE not in prefixes(s.tree),
                        "the changes")
        weight = AFTS + "/next-hop-groups/next-hop-group[id=200]/next-hops/next-hop[index="
        follower.wait(lambda s: "7" in {v for k, v in s.tree.items() if k.startswith(weight)}, "the weight")
        deadline = time.monotonic() + 60
        while follower.tree != self.ietf(self.stream.tree) and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual(follower.tree, self.ietf(self.stream.tree))
        once = Stream(ADDRESS, once=True, encoding=JSON_IETF).wait(lambda s: s.ended, "its end")
        self.streams.append(once)
        self.assertEqual(once.tree, follower.tree)
