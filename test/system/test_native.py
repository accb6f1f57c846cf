"""The agent's own tree and tables (origin "pel") show what the OpenConfig view shows."""
import re

import test_first_light
from gnmi_client import groups, next_hops, prefixes
from lab import ADDRESS, BIN, run

AFT = "/AftExport/OpenConfig/afts/aftContainer"
PROTOCOLS = {1: "DIRECTLY_CONNECTED", 2: "LOCAL", 3: "STATIC", 4: "BGP", 5: "ISIS", 6: "OSPF", 7: "OSPF3"}
IDENTITY = re.compile(r".*/network-instance\[name=(\w+)\]/afts/.*-entry\[prefix=(.*)\]/state/origin-protocol$")
ROUTE = re.compile(r"^/FibRoute/routing6?/(?:vrf/status\[name=(\w+)\]|status)/route\[prefix=([^]]*)\]/(\w+)$")


def of_openconfig(tree):
    """Next hops, groups and routes of an OpenConfig tree, in the terms of this test."""
    instances = {re.search(r"network-instance\[name=(\w+)\]", leaf).group(1) for leaf in tree}
    protocols = {match.groups(): value for match, value in ((IDENTITY.match(leaf), v) for leaf, v in tree.items()) if match}
    return {
        "hops": {index: (leaves.get("state/ip-address"), leaves.get("state/mac-address"),
                         leaves.get("interface-ref/state/interface"), leaves.get("interface-ref/state/subinterface"))
                 for index, leaves in next_hops(tree).items()},
        "groups": {number: (leaves.get("state/programmed-id", 0), leaves["members"])
                   for number, leaves in groups(tree).items()},
        "routes": {("default" if name == "DEFAULT" else name, prefix): (group, protocols.get((name, prefix)))
                   for name in instances for prefix, group in prefixes(tree, name).items()},
    }


def entries(tree, name):
    """Key of the list in the AFT container -> leaves."""
    found = {}
    pattern = re.compile(re.escape(f"{AFT}/{name}[") + r"\w+=(\d+)\]/(.*)$")
    for leaf, value in tree.items():
        match = pattern.match(leaf)
        if match:
            found.setdefault(int(match.group(1)), {})[match.group(2)] = value
    return found


def of_native(tree):
    """The same of a native tree."""
    routes = {}
    for leaf, value in tree.items():
        match = ROUTE.match(leaf)
        if match:
            routes.setdefault((match.group(1) or "default", match.group(2)), {})[match.group(3)] = value
    return {
        "hops": {index: tuple(leaves.get(name) for name in ("ipAddress", "macAddress", "interface", "subinterface"))
                 for index, leaves in entries(tree, "nextHops").items()},
        "groups": {number: (leaves.get("programmedId", 0),
                            {int(leaf.split("=")[1].split("]")[0]): value for leaf, value in leaves.items()
                             if leaf.endswith("/weight")})
                   for number, leaves in entries(tree, "nextHopGroups").items()},
        "routes": {key: (leaves["fecId"], PROTOCOLS.get(leaves["originProtocol"])) for key, leaves in routes.items()},
    }


class ShowsTheSameNatively(test_first_light.Case):
    def setUp(self):
        super().setUp()
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 111 via 2001:db8:1::2 dev e1")
        self.lab.ip("nexthop add id 200 group 101,3/102,1")
        self.lab.ip("route add 192.0.2.0/24 nhid 200 proto bgp")
        self.lab.ip("route add 198.51.100.0/24 nexthop via 10.0.1.2 weight 3 nexthop via 10.0.2.2 weight 1")
        self.lab.ip("route add 203.0.113.0/24 nhid 111")
        self.lab.ip("route add blackhole 198.18.0.0/15")
        self.lab.ip("-6 route add 2001:db8:100::/48 nhid 111")
        self.up()
        self.openconfig = self.subscribe_with("192.0.2.0/24", "198.51.100.0/24", "203.0.113.0/24", "198.18.0.0/15",
                                              "2001:db8:100::/48")

    def assertSame(self, native, what):
        """Both views are of one moment only when nothing moves: they must come to agree."""
        native.wait(lambda s: of_native(dict(s.tree)) == of_openconfig(dict(self.openconfig.tree)), f"the same {what}", 60)

    def test_content_equals_the_openconfig_views(self):
        native = self.subscribe(origin="pel")
        self.assertSame(native, "at first")
        seen = of_native(native.tree)
        self.assertEqual(seen["groups"][200][0], 200)
        self.assertEqual(sorted(seen["groups"][200][1].values()), [1, 3])
        self.assertEqual(seen["routes"][("default", "192.0.2.0/24")], (200, "BGP"))
        self.assertIn(("default", "2001:db8:100::/48"), seen["routes"])
        self.assertEqual(native.tree[f"{AFT}/fibReady/fecReady"], True)

    def test_changes_come_in_both(self):
        native = self.subscribe(origin="pel")
        self.lab.ip("nexthop replace id 200 group 101,7/102,2")
        self.lab.ip("route add 192.0.3.0/24 nhid 200")
        self.lab.neighbour(1, "10.0.1.2", "02:00:00:00:01:99")
        self.lab.ip("route del 198.51.100.0/24")
        native.wait(lambda s: {7, 2} == set(of_native(dict(s.tree))["groups"].get(200, (0, {}))[1].values())
                    and ("default", "192.0.3.0/24") in of_native(dict(s.tree))["routes"]
                    and ("default", "198.51.100.0/24") not in of_native(dict(s.tree))["routes"]
                    and any(hop[1] == "02:00:00:00:01:99" for hop in of_native(dict(s.tree))["hops"].values()), "the changes", 60)
        self.assertSame(native, "after the changes")

    def test_once_is_complete_each_time(self):
        """The first one causes the entries, the others find them."""
        self.settle(self.openconfig)
        want = None
        for _ in range(3):
            native = self.subscribe(origin="pel", once=True)
            native.wait(lambda s: s.ended, "the end", 60)
            self.assertIsNone(native.error)
            self.assertSame(native, "in one go")
            want = want or of_native(native.tree)
            self.assertEqual(of_native(native.tree), want)

    def test_the_command_line_shows_it(self):
        lines = run(f"{BIN}/pel watch pel:/ --once --server {ADDRESS}").splitlines()
        self.assertIn(f"{AFT}/nextHopGroups[id=200]/programmedId 200", lines)
        self.assertIn("/FibRoute/routing/status/route[prefix=192.0.2.0/24]/fecId 200", lines)
        self.assertEqual(lines[-1], "-- synced --")

    def test_parts_by_path(self):
        native = self.subscribe(origin="pel", paths=(f"{AFT}/nextHopGroups[id=200]",))
        self.assertEqual(set(of_native(native.tree)["groups"]), {200})
        self.assertEqual(of_native(native.tree)["hops"], {})
        tables = self.subscribe(origin="pel", paths=("/FibRoute/routing6",))
        self.assertTrue(all(":" in prefix for _, prefix in of_native(tables.tree)["routes"]))
        self.assertIn(("default", "2001:db8:100::/48"), of_native(tables.tree)["routes"])

