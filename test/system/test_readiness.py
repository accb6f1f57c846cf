"""When a VRF's routes are said to be complete, at a client that is there before the first of them.

The routes are those of the kernel's main table, IPv4 and IPv6: two tables to the agent, each with a flag of its own. A table that
never comes to rest is said to be synced after ten minutes all the same; that end of the wait is tested on the virtual clock."""
import collections
import re
import tempfile
import time

import test_first_light
from gnmi_client import AFTS
from lab import Lab, run

ROUTES = 2000
QUIET = 2  # seconds without a change
FLAPPING = "203.0.113.0/24"

# How an origin says it: what is subscribed to, the flag of a family, and what a leaf is part of: flag or route.
View = collections.namedtuple("View", "paths leaf flag route families")
NATIVE_FLAG = re.compile(r"^/AftExport/stateSynced\[name=(\w+)\]/(ipv4|ipv6)Unicast$")
VIEWS = {
    "pel": View(("/AftExport/stateSynced", "/FibRoute"),
                "/AftExport/stateSynced[name=default]/{}Unicast",
                re.compile(r"^/AftExport/stateSynced\[name=default\]/(ipv4|ipv6)Unicast$"),
                re.compile(r"^/FibRoute/(routing6?)/status/route\[prefix=([^]]*)\]/"),
                {"routing": "ipv4", "routing6": "ipv6"}),
    "openconfig": View(("/",),
                       AFTS + "/state-synced/state/{}-unicast",
                       re.compile(re.escape(AFTS) + r"/state-synced/state/(ipv4|ipv6)-unicast$"),
                       re.compile(re.escape(AFTS) + r"/(ipv4|ipv6)-unicast/ipv[46]-entry\[prefix=([^]]*)\]/"),
                       {"ipv4": "ipv4", "ipv6": "ipv6"}),
}


def own_prefixes():
    """Family -> the prefixes that the test puts into the kernel."""
    return {"ipv4": {f"198.18.{n // 250}.{n % 250}/32" for n in range(ROUTES)},
            "ipv6": {f"2001:db8:1000:{n:x}::/64" for n in range(1, ROUTES + 1)}}


def leaves(message):
    """(leaf, value) of each that a message updates."""
    if message[0] == "update":
        return list(message[2].items())
    return [(message[1], message[2])] if message[0] == "leaf" else []


def told(view, stream):
    """What the stream was told of the default VRF, in order: ("flag", family, value) and ("route", family, prefix)."""
    for message in stream.since(0):
        for leaf, value in leaves(message):
            if match := view.flag.match(leaf):
                yield "flag", match[1], value
            elif match := view.route.match(leaf):
                yield "route", view.families[match[1]], match[2]


class Case(test_first_light.Case):
    """A client of each origin, subscribed to an agent that nobody feeds yet."""

    def setUp(self):
        super().setUp()
        with tempfile.NamedTemporaryFile("w", suffix=".batch") as batch:
            for prefix in sorted(own_prefixes()["ipv4"]):
                batch.write(f"route add {prefix} via 10.0.1.2 dev e1\n")
            for prefix in sorted(own_prefixes()["ipv6"]):
                batch.write(f"route add {prefix} via 2001:db8:1::2 dev e1\n")
            batch.flush()
            run(f"ip -batch {batch.name}")
        self.lab.forwarder_options = ["--quiet-time", str(QUIET)]
        self.lab.enable()
        self.lab.start("pel-agentd")
        self.subscribe_to_each()
        for origin, history in self.histories():
            self.assertEqual(history, [], f"nobody has told {origin} anything yet")

    def subscribe_to_each(self):
        self.clients = {origin: self.subscribe(origin=origin, paths=view.paths) for origin, view in VIEWS.items()}

    def histories(self):
        """(origin, what its client has been told so far)"""
        return [(origin, list(told(VIEWS[origin], stream))) for origin, stream in self.clients.items()]

    def flags(self, family):
        """What each client has; None: nothing yet."""
        return [stream.leaf(VIEWS[origin].leaf.format(family)) for origin, stream in self.clients.items()]

    def until_synced(self, family):
        for origin, stream in self.clients.items():
            leaf = VIEWS[origin].leaf.format(family)
            stream.wait(lambda s, leaf=leaf: s.leaf(leaf) is True, leaf)


class RoutesComeBeforeTheFlag(Case):
    def test_of_each_family(self):
        self.lab.start("pel-forwarderd")
        self.until_synced("ipv4")
        self.until_synced("ipv6")
        for origin, history in self.histories():
            for family, wanted in own_prefixes().items():
                with self.subTest(origin + " " + family):
                    flags = [value for kind, of, value in history if (kind, of) == ("flag", family)]
                    self.assertEqual(flags, sorted(flags), "it rises once")
                    before = history[:history.index(("flag", family, True))]
                    self.assertLessEqual(wanted, {prefix for kind, of, prefix in before if (kind, of) == ("route", family)})

    def test_a_new_agent_has_it_from_a_forwarder_that_has_gone(self):
        self.lab.start("pel-forwarderd")
        self.until_synced("ipv4")
        self.until_synced("ipv6")
        for name in ("pel-forwarderd", "pel-agentd"):
            self.lab.kill(name)
        self.lab.start("pel-agentd")
        self.subscribe_to_each()
        self.until_synced("ipv4")
        self.until_synced("ipv6")


class ATableThatKeepsChanging(Case):
    def flap(self):
        """A route comes or goes. How long the table has been without a change at most, in seconds."""
        before, self.last_flap = self.last_flap, time.monotonic()
        self.flaps += 1
        self.lab.ip(f"route {'add' if self.flaps % 2 else 'del'} blackhole {FLAPPING}")
        return time.monotonic() - before

    def test_waits_and_holds_up_no_other(self):
        self.flaps, self.last_flap = 0, time.monotonic()
        self.lab.start("pel-forwarderd")
        pause, after = 0, 0
        while after < 10 * QUIET:  # as many flaps, 0.2 s each, after the other family has come to rest
            pause = max(pause, self.flap())
            # On a machine that stood still meanwhile the table was quiet indeed.
            self.assertTrue(pause >= QUIET or True not in self.flags("ipv4"), f"{self.flaps} flaps, {pause} s apart at most")
            after += self.flags("ipv6") == [True] * len(VIEWS)
            self.assertLess(self.flaps, 1000, "IPv6 waits for IPv4")
            time.sleep(0.2)
        self.until_synced("ipv4")
        for origin, history in self.histories():
            with self.subTest(origin):
                first = history.index(("flag", "ipv4", False))
                self.assertLess(first, history.index(("flag", "ipv4", True)))
                self.assertGreaterEqual(history[first:].count(("route", "ipv4", FLAPPING)), 2, "the client has seen it flap")


class NamesOfVrfs(test_first_light.Case):
    def setUp(self):
        self.longest, self.too_long = "v" * 100, "w" * 101
        scenario = tempfile.NamedTemporaryFile("w", suffix=".yaml")  # pylint: disable=consider-using-with
        self.addCleanup(scenario.close)
        names = (self.too_long, self.longest, "blue", "red")
        scenario.write("scenario: 1\ninvalid: allow\nvrfs:\n"
                       + "".join(f"  - {{name: {name}, id: {n}}}\n" for n, name in enumerate(names, 1001))
                       + "interfaces: [{name: e1}]\n"
                         "nextHops: [{name: a, interface: e1, address: 10.0.0.1}]\n"
                         "fecs: [{id: 1, members: [a]}]\n"
                         "routes: [{vrf: blue, prefix: 10.1.0.0/16, fec: 1}]\n"
                         "ready: {quiesced: {red: {ipv6: never}}}\n")
        scenario.flush()
        self.lab = Lab(links=0, scenario=scenario.name)
        self.addCleanup(self.lab.close)
        self.streams = []

    def test_one_that_is_too_long_holds_up_no_other(self):
        self.up()
        native = self.subscribe(origin="pel", paths=("/AftExport/stateSynced",))
        want = {(vrf, family): vrf != self.too_long and (vrf, family) != ("red", "ipv6")
                for vrf in ("default", self.longest, self.too_long, "blue", "red") for family in ("ipv4", "ipv6")}

        def shown(stream):
            matches = ((NATIVE_FLAG.match(leaf), value) for leaf, value in stream.tree.items())
            return {(match[1], match[2]): value for match, value in matches if match}
        native.wait(lambda s: shown(s) == want, str(want))
