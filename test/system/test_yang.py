"""What Get answers to / in JSON_IETF is data of the public OpenConfig modules. yanglint judges it by the modules
themselves, which are no part of this project: PEL_YANG_DIR names their directory, and without it those tests skip.
OwnTable holds the same trees against this project's table of leaves, always."""
import copy
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import aft_leaves
import gnmi_pb2
import test_examples
import test_first_light
from gnmi_client import get
from lab import ADDRESS

DIRECTORY = os.environ.get("PEL_YANG_DIR", "")
MODULES = ("openconfig-network-instance", "openconfig-aft-network-instance", "openconfig-aft-counters",
           "openconfig-aft-summary")
INSTANCES = "openconfig-network-instance:network-instances"


def whole_tree():
    update, = get(ADDRESS, encoding=gnmi_pb2.JSON_IETF).notification[0].update
    return json.loads(update.val.json_ietf_val)


def interfaces(tree):
    """The interfaces that next hops refer to: they are the device's, not this system's."""
    found = {}
    for instance in tree[INSTANCES]["network-instance"]:
        for hop in instance.get("afts", {}).get("next-hops", {}).get("next-hop", []):
            state = hop.get("interface-ref", {}).get("state", {})
            if "interface" in state:
                found.setdefault(state["interface"], set()).update({state["subinterface"]} if "subinterface" in state else set())
    up = {"admin-status": "UP", "oper-status": "UP"}
    named = [({"name": name, "type": "iana-if-type:ethernetCsmacd"}, numbers) for name, numbers in sorted(found.items())]
    return {"openconfig-interfaces:interfaces": {"interface": [
        {"name": config["name"], "config": config, "state": {**config, **up},
         "subinterfaces": {"subinterface": [{"index": n, "config": {"index": n}, "state": {"index": n, **up}}
                                            for n in sorted(numbers)]}}
        for config, numbers in named]}}


class Yanglint:
    """The public modules, ready to judge trees; close() removes the copy."""

    def __init__(self, directory):
        self.folder = tempfile.mkdtemp()
        self.modules = os.path.join(self.folder, "yang")
        shutil.copytree(directory, self.modules)
        # The `when` of each header's container compares an enumeration, whose value has no prefix, with a prefixed
        # name: as published it never holds.
        name = os.path.join(self.modules, "openconfig-aft-common.yang")
        with open(name, encoding="utf-8") as file:
            text = file.read()
        with open(name, "w", encoding="utf-8") as file:
            file.write(text.replace("'oc-aftt:", "'"))

    def close(self):
        shutil.rmtree(self.folder)

    def problems(self, tree):
        data = os.path.join(self.folder, "tree.json")
        with open(data, "w", encoding="utf-8") as file:
            json.dump({**tree, **interfaces(tree)}, file)
        done = subprocess.run(
            ["yanglint", "-ii", "-p", self.modules, "-t", "data"] +
            [os.path.join(self.modules, module + ".yang") for module in MODULES] + [data],
            capture_output=True, text=True, timeout=120, check=False)
        errors = [line for line in (done.stdout + done.stderr).splitlines() if re.match(r"libyang err|YANGLINT\[E\]", line)]
        return errors or ([] if done.returncode == 0 else [f"yanglint ended with {done.returncode}"])


def broken(tree):
    """Trees with a fault each that a judge has to find."""
    def with_(change):
        one = copy.deepcopy(tree)
        afts = next(i for i in one[INSTANCES]["network-instance"] if i["name"] == "DEFAULT")["afts"]
        change(afts["next-hops"]["next-hop"][0], afts["next-hop-groups"]["next-hop-group"][0])
        return one
    yield "a number where a 64-bit one is a string", with_(lambda hop, _: hop["state"].update(index=int(hop["index"])))
    yield "an unknown leaf", with_(lambda hop, _: hop["state"].update({"vti": "Vxlan1"}))
    yield "an address with a zone", with_(lambda hop, _: hop["state"].update({"ip-address": "fe80::1%Ethernet1"}))


class Trees:
    """The trees that a judge sees; `faults` of a tree is the judge."""

    def judged(self, tree):
        self.assertEqual(self.faults(tree), [])

    def example(self, name, steps=0):
        want = test_examples.expected(name)
        self.play(name, steps)
        self.shows("openconfig", want["openconfig"])
        tree = whole_tree()
        self.judged(tree)
        return tree

    def test_ecmp(self):
        tree = self.example("ecmp")
        for what, one in broken(tree):
            self.assertNotEqual(self.faults(one), [], what)

    def test_mpls_over_udp(self):
        self.example("mpls-over-udp")

    def test_gue_v6(self):
        self.example("gue-v6")

    def test_evpn_vxlan(self):
        self.example("evpn-vxlan")

    def test_weighted_churn(self):
        self.example("weighted-churn", 2)


class KernelTrees:
    def test_kernel(self):
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip("nexthop add id 200 group 101,3/102,1")
        self.lab.ip("route add 192.0.2.0/24 nhid 200 proto bgp")
        self.lab.ip("route add blackhole 198.18.0.0/15")
        self.lab.ip("-6 route add 2001:db8:100::/48 via 2001:db8:1::2 dev e1")
        self.up()
        self.subscribe_with("192.0.2.0/24", "198.18.0.0/15", "2001:db8:100::/48")
        self.assertEqual(self.faults(whole_tree()), [])


class ByOwnTable:
    def faults(self, tree):
        return aft_leaves.faults(tree)


class ByModules:
    def setUp(self):
        super().setUp()
        self.yanglint = Yanglint(DIRECTORY)
        self.addCleanup(self.yanglint.close)

    def faults(self, tree):
        return self.yanglint.problems(tree)


class OwnTable(ByOwnTable, Trees, test_examples.Case):
    pass


class OwnTableKernel(ByOwnTable, KernelTrees, test_first_light.Case):
    pass


@unittest.skipIf(not DIRECTORY, "PEL_YANG_DIR does not name the public modules")
class PublicModules(ByModules, Trees, test_examples.Case):
    pass


@unittest.skipIf(not DIRECTORY, "PEL_YANG_DIR does not name the public modules")
class PublicModulesKernel(ByModules, KernelTrees, test_first_light.Case):
    pass
