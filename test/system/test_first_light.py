"""This machine's own FIB, as OpenConfig AFT, at an independent gNMI client."""
import collections
import re
import unittest

from gnmi_client import AFTS, Stream, groups, next_hops, prefixes
from lab import ADDRESS, Lab

# Of the router's own links; IPv6's come a moment after the link.
CONNECTED = {"10.0.1.0/24", "10.0.2.0/24", "2001:db8:1::/64", "2001:db8:2::/64"}
FENCE = "[prefix=198.19."  # of Case.settle
WHOLE = re.compile(r"/afts/(aft-summaries|state-synced)/")  # of all routes together
MAC1, MAC2 = "02:00:00:00:01:02", "02:00:00:00:02:02"


def list_name(entry):
    """next-hop of .../next-hops/next-hop[index=7]"""
    return entry.rsplit("[", 1)[0].rsplit("/", 1)[1]


class Case(unittest.TestCase):
    """A running router with two neighbours whose MACs are known, and a subscribed client."""

    def setUp(self):
        self.lab = Lab()
        self.addCleanup(self.lab.close)
        self.streams = []
        self.fences = 0
        for n in (1, 2):
            self.lab.neighbour(n, f"10.0.{n}.2")
            self.lab.neighbour(n, f"2001:db8:{n}::2")

    def tearDown(self):
        for stream in self.streams:
            stream.close()
        if any(error for _, error in getattr(self._outcome, "errors", [])) or \
                getattr(self._outcome, "result", None) and (self._outcome.result.failures or self._outcome.result.errors):
            print(self.lab.logs())

    def up(self):
        self.lab.enable()
        self.lab.start()

    def subscribe(self, **options):
        stream = Stream.connected(ADDRESS, **options)
        self.streams.append(stream)
        return stream

    def subscribe_with(self, *wanted, **options):
        stream = self.subscribe(**options)
        stream.wait(lambda s: CONNECTED.union(wanted) <= prefixes(s.tree).keys(), f"prefixes {wanted}")
        return stream

    def member(self, tree, prefix):
        """The group of a prefix and its members as {(address, MAC, interface): weight}."""
        group_id = prefixes(tree)[prefix]
        hops = next_hops(tree)
        members = {}
        for index, weight in groups(tree)[group_id]["members"].items():
            hop = hops[index]
            members[(hop.get("state/ip-address"), hop.get("state/mac-address"),
                     hop.get("interface-ref/state/interface"))] = weight
        return group_id, members

    def changes(self, stream, mark):
        """Without the instance itself, and what is said of all its routes: fences are among them."""
        return [m for m in stream.since(mark)
                if (m[0] != "leaf" or "/afts/" in m[1]) and FENCE not in m[1] and not WHOLE.search(m[1])]

    def settle(self, stream):
        """All that was caused before has been sent: what follows the mark is the test's doing. Two routes of their own
        are added, the second once the first has been seen: kernel, store, journal and stream keep their orders, so
        whatever came before the first is sent with it at the latest, or before the second. They stay, so that nothing follows
        them, and share one group, which the first of all brings."""
        for _ in range(2):
            self.fences += 1
            prefix = f"198.19.{self.fences // 256}.{self.fences % 256}/32"
            self.lab.ip(f"route add blackhole {prefix}")
            stream.wait(lambda s: prefix in prefixes(s.tree), f"the fence {prefix}")
        return stream.mark()


class ExportsTheKernelsFib(Case):
    def test_weighted_group_of_nexthop_objects(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,3/102,1")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        tree = self.subscribe_with("192.0.2.0/24").tree
        group_id, members = self.member(tree, "192.0.2.0/24")
        self.assertEqual(group_id, 200, "the exported id is the kernel's")
        self.assertEqual(members, {("10.0.1.2", MAC1, "e1"): 3, ("10.0.2.2", MAC2, "e2"): 1})
        self.assertEqual(groups(tree)[200].get("state/programmed-id"), 200)

    def test_plain_multipath_route(self):
        self.lab.ip("route add 192.0.2.0/24 nexthop via 10.0.1.2 weight 3 nexthop via 10.0.2.2 weight 1")
        self.lab.ip("route add 198.51.100.0/24 nexthop via 10.0.1.2 weight 3 nexthop via 10.0.2.2 weight 1")
        self.up()
        tree = self.subscribe_with("192.0.2.0/24", "198.51.100.0/24").tree
        group_id, members = self.member(tree, "192.0.2.0/24")
        self.assertEqual(members, {("10.0.1.2", MAC1, "e1"): 3, ("10.0.2.2", MAC2, "e2"): 1})
        self.assertEqual(prefixes(tree)["198.51.100.0/24"], group_id, "one member set, one group")
        self.assertEqual(group_id >> 56, 1)

    def test_ipv6(self):
        self.lab.ip("nexthop add id 111 via 2001:db8:1::2 dev e1")
        self.lab.ip("nexthop add id 112 via 2001:db8:2::2 dev e2")
        self.lab.ip("nexthop add id 210 group 111,1/112,4")
        self.lab.ip("-6 route add 2001:db8:100::/48 nhid 210")
        self.lab.ip("-6 route add 2001:db8:200::/48 nexthop via 2001:db8:1::2 weight 2 nexthop via 2001:db8:2::2 weight 5")
        self.up()
        tree = self.subscribe_with("2001:db8:100::/48", "2001:db8:200::/48").tree
        group_id, members = self.member(tree, "2001:db8:100::/48")
        self.assertEqual(group_id, 210)
        self.assertEqual(members, {("2001:db8:1::2", MAC1, "e1"): 1, ("2001:db8:2::2", MAC2, "e2"): 4})
        _, members = self.member(tree, "2001:db8:200::/48")
        self.assertEqual(members, {("2001:db8:1::2", MAC1, "e1"): 2, ("2001:db8:2::2", MAC2, "e2"): 5})

    def test_ipv4_route_over_an_ipv6_next_hop(self):
        self.lab.ip("nexthop add id 111 via 2001:db8:1::2 dev e1")
        self.lab.ip("route add 203.0.113.0/24 nhid 111")
        self.lab.ip("route add 203.0.114.0/24 via inet6 2001:db8:2::2 dev e2")
        self.up()
        tree = self.subscribe_with("203.0.113.0/24", "203.0.114.0/24").tree
        self.assertEqual(self.member(tree, "203.0.113.0/24"), (111, {("2001:db8:1::2", MAC1, "e1"): 1}))
        self.assertEqual(self.member(tree, "203.0.114.0/24")[1], {("2001:db8:2::2", MAC2, "e2"): 1})

    def test_blackhole_is_a_group_without_members(self):
        self.lab.ip("route add blackhole 198.18.0.0/15")
        self.up()
        tree = self.subscribe_with("198.18.0.0/15").tree
        self.assertEqual(self.member(tree, "198.18.0.0/15")[1], {})

    def test_exactly_the_kernels_entries_and_nothing_else(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101/102")
        self.lab.ip("nexthop add id 300 via 10.0.2.2 dev e2")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        tree = self.subscribe_with("192.0.2.0/24").tree
        self.assertEqual(set(prefixes(tree)), CONNECTED | {"192.0.2.0/24"})
        self.assertNotIn(300, groups(tree), "a nexthop that no route uses is no top FEC")
        used = set(prefixes(tree).values())
        self.assertEqual(set(groups(tree)), used)
        members = {i for g in groups(tree).values() for i in g["members"]}
        self.assertEqual(set(next_hops(tree)), members)

    def test_entries_carry_their_keys_as_leaves(self):
        self.lab.ip("route add 192.0.2.0/24 via 10.0.1.2")
        self.up()
        tree = self.subscribe_with("192.0.2.0/24").tree
        for index, hop in next_hops(tree).items():
            self.assertEqual((hop["index"], hop["state/index"]), (index, index))
        for group_id, group in groups(tree).items():
            self.assertEqual((group["id"], group["state/id"]), (group_id, group_id))
        self.assertEqual(tree[AFTS + "/ipv4-unicast/ipv4-entry[prefix=192.0.2.0/24]/state/prefix"], "192.0.2.0/24")
        self.assertEqual(tree[AFTS + "/ipv4-unicast/ipv4-entry[prefix=192.0.2.0/24]/state/origin-protocol"], "STATIC")

    def test_references_come_first_in_the_initial_set(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 200 group 101")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        self.subscribe_with("192.0.2.0/24")
        stream = self.subscribe()
        order = [list_name(m[1]) for m in stream.log if m[0] == "update"]
        rank = {"next-hop": 0, "next-hop-group": 1, "ipv4-entry": 2, "ipv6-entry": 2}
        self.assertEqual([rank[o] for o in order], sorted(rank[o] for o in order))
        self.assertEqual(stream.log[-1], ("sync",))

    def test_once_ends_after_the_sync(self):
        self.lab.ip("route add 192.0.2.0/24 via 10.0.1.2")
        self.up()
        self.subscribe_with("192.0.2.0/24")
        once = self.subscribe(once=True)
        once.wait(lambda s: s.ended, "the end of the call")
        self.assertIsNone(once.error)
        self.assertEqual(once.log[-1], ("sync",))
        self.assertIn("192.0.2.0/24", prefixes(once.tree))


class SpeaksOfTheWhole(Case):
    def test_summaries_count_the_prefixes_and_state_synced_is_there(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("route add 192.0.2.0/24 nhid 101")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")

        def shown(tree):
            found = re.compile(r"/(ipv[46]-unicast)/ipv[46]-entry\[.*\]/state/origin-protocol$")
            at = ((found.search(leaf), protocol) for leaf, protocol in tree.items())
            return collections.Counter((match[1], protocol) for match, protocol in at if match)

        def counted(tree):
            found = re.compile(r"/aft-summaries/(.*)/protocols/protocol\[origin-protocol=(.*)\]/state/counters/aft-entries$")
            at = ((found.search(leaf), count) for leaf, count in tree.items())
            return {(match[1], match[2]): count for match, count in at if match}
        stream.wait(lambda s: shown(s.tree) and counted(s.tree) == shown(s.tree), "summaries of what is shown")
        before = counted(stream.tree)[("ipv4-unicast", "STATIC")]
        self.lab.ip("route add 198.51.100.0/24 nhid 101 proto static")
        stream.wait(lambda s: counted(s.tree)[("ipv4-unicast", "STATIC")] == before + 1, "one more")
        for family in ("ipv4", "ipv6"):
            self.assertIn(AFTS + f"/state-synced/state/{family}-unicast", stream.tree)


class FollowsChanges(Case):
    def test_route_added_changed_deleted(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("route add 192.0.2.0/24 nhid 101")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        entry = AFTS + "/ipv4-unicast/ipv4-entry[prefix=198.51.100.0/24]"
        mark = self.settle(stream)

        self.lab.ip("route add 198.51.100.0/24 nhid 101")
        stream.wait(lambda s: "198.51.100.0/24" in prefixes(s.tree), "the new prefix")
        self.settle(stream)
        added = self.changes(stream, mark)
        self.assertEqual([(m[0], m[1]) for m in added], [("update", entry)], "the prefix, nothing else")

        mark = stream.mark()
        self.lab.ip("route replace 198.51.100.0/24 nhid 102")
        stream.wait(lambda s: prefixes(s.tree).get("198.51.100.0/24") == 102, "the changed prefix")
        self.settle(stream)
        changed = self.changes(stream, mark)
        kinds = [(m[0], list_name(m[1])) for m in changed]
        self.assertEqual(kinds, [("update", "next-hop"), ("update", "next-hop-group"), ("update", "ipv4-entry")])

        mark = stream.mark()
        hop = changed[0][1]
        self.lab.ip("route del 198.51.100.0/24")
        stream.wait(lambda s: "198.51.100.0/24" not in prefixes(s.tree) and 102 not in groups(s.tree)
                    and ("delete", hop) in [m[:2] for m in s.since(mark)], "the deletes")
        self.settle(stream)
        gone = self.changes(stream, mark)
        kinds = [(m[0], list_name(m[1])) for m in gone]
        self.assertEqual(kinds, [("delete", "ipv4-entry"), ("delete", "next-hop-group"), ("delete", "next-hop")],
                         "in reverse order of reference")
        self.assertGreater(gone[0][2], changed[-1][3], "the delete is stamped later")

    def test_neighbour_resolved_changed_lost(self):
        self.lab.ip("neigh del 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("route add 192.0.2.0/24 nhid 101")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        index = next(iter(groups(stream.tree)[101]["members"]))
        self.assertNotIn("state/mac-address", next_hops(stream.tree)[index])
        for mac in ("02:00:00:00:01:02", "02:00:00:00:01:77"):
            mark = self.settle(stream)
            self.lab.neighbour(1, "10.0.1.2", mac)
            stream.wait(lambda s: next_hops(s.tree)[index].get("state/mac-address") == mac, f"MAC {mac}")
            self.settle(stream)
            moved = self.changes(stream, mark)
            self.assertEqual([(m[0], m[1]) for m in moved],
                             [("update", AFTS + f"/next-hops/next-hop[index={index}]")], "one update, nothing else")
        mark = stream.mark()
        self.lab.ip("neigh del 10.0.1.2 dev e1")
        stream.wait(lambda s: "state/mac-address" not in next_hops(s.tree)[index], "the MAC to go")
        self.settle(stream)
        self.assertEqual(len(self.changes(stream, mark)), 1)

    def test_weight_changes_only_the_group(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,1/102,1")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        mark = self.settle(stream)
        self.lab.ip("nexthop replace id 200 group 101,7/102,1")
        stream.wait(lambda s: 7 in groups(s.tree)[200]["members"].values(), "weight 7")
        self.settle(stream)
        self.assertEqual([(m[0], m[1]) for m in self.changes(stream, mark)],
                         [("update", AFTS + "/next-hop-groups/next-hop-group[id=200]")])

    def test_link_down_takes_what_the_kernel_takes(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101/102")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        self.lab.ip("link set e2 down")
        stream.wait(lambda s: len(groups(s.tree).get(200, {"members": {}})["members"]) == 1, "one member left")
        self.assertEqual(list(self.member(stream.tree, "192.0.2.0/24")[1]), [("10.0.1.2", MAC1, "e1")])


class SurvivesDeath(Case):
    def test_forwarder_killed_and_restarted(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,3/102")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.lab.ip("route add 198.51.100.0/24 via 10.0.1.2")
        self.lab.ip("route add 203.0.113.0/24 nexthop via 10.0.1.2 nexthop via 10.0.2.2")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24", "198.51.100.0/24", "203.0.113.0/24")
        self.settle(stream)
        before = dict(stream.tree)
        self.lab.kill("pel-forwarderd")
        self.lab.ip("route del 198.51.100.0/24")
        self.lab.ip("route add 198.51.101.0/24 nhid 200")
        mark = stream.mark()
        self.lab.start("pel-forwarderd")
        stream.wait(lambda s: "198.51.101.0/24" in prefixes(s.tree) and "198.51.100.0/24" not in prefixes(s.tree),
                    "convergence to the kernel's FIB")
        touched = {m[1] for m in stream.since(mark) if m[0] == "update"}
        self.assertEqual(touched, {AFTS + "/ipv4-unicast/ipv4-entry[prefix=198.51.101.0/24]"},
                         "entries that did not change are not sent again")
        for path in ("192.0.2.0/24", "203.0.113.0/24"):
            self.assertEqual(prefixes(stream.tree)[path], prefixes(before)[path])

    def test_agent_killed_and_restarted(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,3/102")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.lab.ip("route add 203.0.113.0/24 nexthop via 10.0.1.2 nexthop via 10.0.2.2")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24", "203.0.113.0/24")
        self.settle(stream)
        before = dict(stream.tree)
        last_stamp = max(m[-1] for m in stream.log if m[0] in ("update", "leaf"))
        self.lab.kill("pel-agentd")
        stream.wait(lambda s: s.ended, "the end of the stream")
        self.lab.start("pel-agentd")
        again = self.subscribe_with("192.0.2.0/24", "203.0.113.0/24")

        def entries(tree):
            return {leaf: value for leaf, value in tree.items() if not WHOLE.search(leaf)}
        again.wait(lambda s: entries(s.tree) == entries(before), "the same ids and contents")
        self.assertGreater(min(m[-1] for m in again.log if m[0] == "update"), last_stamp,
                           "stamps go on, over a restart too")

    def test_agent_started_before_the_forwarder(self):
        self.lab.ip("route add 192.0.2.0/24 via 10.0.1.2")
        self.lab.enable()
        self.lab.start("pel-agentd")
        stream = self.subscribe()
        self.assertEqual(prefixes(stream.tree), {})
        self.lab.start("pel-forwarderd")
        stream.wait(lambda s: "192.0.2.0/24" in prefixes(s.tree), "the prefix")

    def test_disabled_exports_nothing_until_enabled(self):
        self.lab.ip("route add 192.0.2.0/24 via 10.0.1.2")
        self.lab.start()
        stream = self.subscribe()
        self.assertEqual(groups(stream.tree), {})
        self.lab.enable()
        stream.wait(lambda s: groups(s.tree), "groups after the export was enabled")

    def test_switched_off_takes_everything_back_in_order(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 200 group 101")
        self.lab.ip("route add 192.0.2.0/24 nhid 200")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        mark = self.settle(stream)
        self.lab.enable("false")
        stream.wait(lambda s: not (next_hops(s.tree) or groups(s.tree) or prefixes(s.tree)), "an empty view")
        gone = [(m[0], list_name(m[1])) for m in self.changes(stream, mark)]
        rank = {"ipv4-entry": 0, "ipv6-entry": 0, "next-hop-group": 1, "next-hop": 2}
        self.assertEqual({kind for kind, _ in gone}, {"delete"})
        self.assertEqual([rank[n] for _, n in gone], sorted(rank[n] for _, n in gone))
        self.assertEqual((groups(stream.tree), prefixes(stream.tree)), ({}, {}))
        self.lab.enable()
        stream.wait(lambda s: "192.0.2.0/24" in prefixes(s.tree), "the export again")

    def test_switched_off_and_on_leaves_nothing_behind_and_brings_all_back(self):
        self.lab.forwarder_options = ["--quiet-time", "1"]
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("route add 192.0.2.0/24 nhid 101")
        self.up()
        stream = self.subscribe_with("192.0.2.0/24")
        native = self.subscribe(origin="pel", paths=("/AftExport/stateSynced",))
        flags = {f"{AFTS}/state-synced/state/{family}-unicast" for family in ("ipv4", "ipv6")}
        said = {f"/AftExport/stateSynced[name=default]/{family}Unicast": True for family in ("ipv4", "ipv6")}

        def whole(s):
            count = sum(value for leaf, value in s.tree.items() if leaf.endswith("/state/counters/aft-entries"))
            return all(s.tree.get(leaf) for leaf in flags) and count == len(prefixes(s.tree)) and count > len(CONNECTED)

        def entries(s):
            return {leaf: value for leaf, value in s.tree.items() if "/afts/counters/" not in leaf}
        stream.wait(whole, "all of it, synced")
        native.wait(lambda s: said.items() <= s.tree.items(), "the agent's flags")
        before, mark = entries(stream), stream.mark()
        self.lab.enable("false")
        stream.wait(lambda s: {leaf for leaf in s.tree if "/afts/" in leaf} == flags, "no entries")
        stream.wait(lambda s: {s.tree[leaf] for leaf in flags} == {False}, "false, told by an update")
        told = [m[1] for m in stream.since(mark) if "/afts/counters/" not in m[1]]
        self.assertEqual(set(told[:2]), flags, "false comes before what it spoke of goes")
        mark = stream.mark()
        self.lab.enable()
        stream.wait(lambda s: whole(s) and entries(s) == before, "all of it again")
        native.wait(lambda s: said.items() <= s.tree.items(), "the agent's flags again")
        at = {m[1]: n for n, m in enumerate(stream.since(mark)) if m[0] in ("update", "leaf") and "/afts/counters/" not in m[1]}
        self.assertLess(max(n for entry, n in at.items() if entry.endswith("]")), min(at[leaf] for leaf in flags),
                        "true comes after all of it")


class WithoutRouteTables(Case):
    def test_there_is_no_entry_of_a_route_and_no_summary_but_state_synced(self):
        self.lab.forwarder_options = ["--quiet-time", "1"]
        self.lab.toggle("Gale.json", "GaleTarnServer", False)
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("route add 192.0.2.0/24 nhid 101")
        self.up()
        stream = self.subscribe()
        synced = f"{AFTS}/state-synced/state/ipv4-unicast"
        stream.wait(lambda s: 101 in groups(s.tree) and s.tree.get(synced), "the group, and state-synced")
        lists = {match[1] for match in (re.search(r"/afts/([^/]*)/", leaf) for leaf in stream.tree) if match}
        self.assertEqual(lists - {"counters"}, {"next-hops", "next-hop-groups", "state-synced"})
        native = self.subscribe(origin="pel")
        self.assertEqual({leaf.split("/")[1].split("[")[0] for leaf in native.tree}, {"AftExport"})
        refused = Stream(ADDRESS, origin="pel", paths=("/FibRoute",))
        self.streams.append(refused)
        refused.wait(lambda s: s.error is not None, "the refusal")
        self.assertIn("/FibRoute", str(refused.error))


if __name__ == "__main__":
    unittest.main()
