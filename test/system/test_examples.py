"""Each file of examples/, played by the real forwarder and exported by the real agent, shows a client what the
file of the same name in expected/ says: in OpenConfig form, and natively (origin "pel")."""
import os
import re
import subprocess
import tempfile
import unittest

import yaml
from gnmi_client import Stream
from lab import ADDRESS, BIN, Lab

HERE = os.path.dirname(os.path.abspath(__file__))
EXAMPLES = os.path.join(HERE, "../../examples")
NAMES = sorted(name.removesuffix(".yaml") for name in os.listdir(EXAMPLES))
KEY = re.compile(r"\[(\w+)=([^]]*)\]$")
# What is not of the state that a file describes: flags and figures of the export itself.
ELSEWHERE = re.compile(r"/afts/(state-synced|counters|aft-summaries)/|^/AftExport/stateSynced|/nextHopCounters\[")


def example(name):
    return os.path.join(EXAMPLES, name + ".yaml")


def expected(name):
    """{"steps": how many steps of the timeline, "openconfig": leaves, "native": leaves}"""
    with open(os.path.join(HERE, "expected", name + ".yaml"), encoding="utf-8") as file:
        want = yaml.safe_load(file)
    return {"steps": want.get("steps", 0),
            "openconfig": dict(leaves(want["openconfig"], state_keys=True)),
            "native": dict(leaves(want["native"], state_keys=False))}


def leaves(node, state_keys, path=""):
    """(path, value) of what a file says in nested maps. An entry of a list has its key as a leaf, in OpenConfig also
    below `state`. Natively the name of a table stands in the paths of its routes only."""
    if not isinstance(node, dict):
        yield path, node
        return
    for below, child in node.items():
        here = path
        for element in re.findall(r"/?([^/[]+(?:\[[^]]*\])?)", below):
            here += "/" + element
            found = KEY.search(element)
            if found:
                name, text = found.groups()
                value = int(text) if name in ("index", "id") else text
                if state_keys or name != "name":
                    yield f"{here}/{name}", value
                if state_keys:
                    yield f"{here}/state/{name}", value
        yield from leaves(child, state_keys, here)


def played(name, steps, folder):
    """A file with the first steps of an example's timeline, once: the state after them stays."""
    with open(example(name), encoding="utf-8") as file:
        scenario = yaml.safe_load(file)
    scenario["timeline"] = scenario.get("timeline", [])[:steps]
    scenario.pop("repeat", None)
    path = os.path.join(folder, name + ".yaml")
    with open(path, "w", encoding="utf-8") as file:
        yaml.safe_dump(scenario, file)
    return path


class Case(unittest.TestCase):
    def play(self, name, steps):
        """The running system with what is left of an example after some steps; its streams close by themselves."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.lab = Lab(links=0, scenario=played(name, steps, folder.name))
        self.addCleanup(self.lab.close)
        self.lab.enable().start()

    def subscribe(self, **options):
        stream = Stream.connected(ADDRESS, **options)
        self.addCleanup(stream.close)
        return stream

    def shows(self, origin, want):
        """The stream of an origin comes to hold exactly `want`."""
        def described(tree):
            return {leaf: value for leaf, value in tree.items() if not ELSEWHERE.search(leaf)}
        stream = self.subscribe(origin=origin)
        try:
            stream.wait(lambda s: described(s.tree) == want, "what is expected", 60)
        except AssertionError:
            self.maxDiff = None
            self.assertEqual(described(stream.tree), want, self.lab.logs())
        return stream


class Examples(Case):
    def check(self, name):
        want = expected(name)
        self.play(name, want["steps"])
        self.shows("openconfig", want["openconfig"])
        self.shows("pel", want["native"])

    def test_ecmp(self):
        self.check("ecmp")

    def test_mpls_over_udp(self):
        self.check("mpls-over-udp")

    def test_gue_v6(self):
        self.check("gue-v6")

    def test_evpn_vxlan(self):
        self.check("evpn-vxlan")

    def test_weighted_churn_after_its_second_step(self):
        self.check("weighted-churn")

    def test_each_has_a_test_and_is_named_in_the_readme(self):
        tests = {name.split("_after_")[0] for name in dir(Examples)}
        with open(os.path.join(HERE, "../../README.md"), encoding="utf-8") as file:
            readme = file.read()
        for name in NAMES:
            self.assertIn("test_" + name.replace("-", "_"), tests)
            self.assertIn(f"examples/{name}.yaml", readme)


class Invalid(Case):
    """What no healthy producer publishes, played with `invalid: allow`, costs itself only."""

    SCENARIO = {
        "scenario": 1, "invalid": "allow",
        "vtis": [{"name": "Vxlan1", "vtep": "192.0.2.11", "vlans": {0: 7000, 16384: 9000}}],
        "nextHops": [
            {"name": "plain", "index": 1, "address": "198.51.100.1"},
            {"name": "vlan too large", "index": 2, "address": "192.0.2.12",
             "vxlan": {"vti": "Vxlan1", "vlan": 16384}},
            {"name": "fifteen labels", "index": 3, "address": "198.51.100.3", "labels": list(range(100, 115))},
            {"name": "fourteen labels", "index": 4, "address": "198.51.100.4", "labels": list(range(100, 114))},
        ],
        "fecs": [{"id": 41, "members": ["plain", "vlan too large", "fifteen labels", "fourteen labels"]}],
    }

    def test_a_vlan_out_of_bounds_counts_as_0_and_a_stack_too_deep_is_not_exported(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = os.path.join(folder.name, "invalid.yaml")
        with open(path, "w", encoding="utf-8") as file:
            yaml.safe_dump(self.SCENARIO, file)
        self.lab = Lab(links=0, scenario=path)
        self.addCleanup(self.lab.close)
        self.lab.enable().start()
        stream = self.subscribe(origin="pel")
        hops = "/AftExport/OpenConfig/afts/aftContainer/nextHops"
        group = "/AftExport/OpenConfig/afts/aftContainer/nextHopGroups"
        stream.wait(lambda s: any(leaf.startswith(group) for leaf in s.tree), "the group", 60)
        shown = {leaf[len(hops):].split("/")[0] for leaf in stream.tree if leaf.startswith(hops + "[")}
        self.assertEqual(shown, {"[index=1]", "[index=2]", "[index=4]"}, self.lab.logs())
        vnis = {leaf: value for leaf, value in stream.tree.items() if leaf.startswith(hops) and "vni" in leaf.lower()}
        self.assertEqual(list(vnis.values()), [7000], vnis)
        self.assertEqual(len(stream.tree[hops + "[index=4]/pushedMplsLabelStack"]), 14)


class Up(unittest.TestCase):
    """`pel up --scenario`, which `make run ARGS="--scenario ..."` calls."""

    def test_runs_each_example(self):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        counts = {"ecmp": (4, 3), "mpls-over-udp": (3, 2), "gue-v6": (3, 2), "evpn-vxlan": (5, 4),
                  "weighted-churn": (3, 2)}
        self.assertEqual(sorted(counts), NAMES)
        for name, (hops, groups) in counts.items():
            with self.subTest(name), tempfile.TemporaryDirectory(dir="/dev/shm") as root:
                done = subprocess.run(
                    [os.path.join(BIN, "pel"), "up", "--once", "--root", root, "--scenario", example(name)],
                    capture_output=True, text=True, timeout=300, check=False)
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                self.assertRegex(done.stdout, rf"next hops +{hops}\n")
                self.assertRegex(done.stdout, rf"next-hop groups +{groups}\n")
