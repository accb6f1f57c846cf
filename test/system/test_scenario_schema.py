"""scenario.schema.json, which editors use, and the reader of scenario files know the same keys and agree on
what is wrong. Whatever the schema refuses the reader refuses; the reader, which knows references and times,
refuses more. `pel scenario check` speaks for the reader."""
import copy
import json
import os
import re
import subprocess
import tempfile
import unittest

import jsonschema
import yaml

PEL = os.path.join(os.environ["PEL_BIN"], "pel")
FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../forwarder/Scenario")
UNKNOWN = "zzzzzzzzzzzzzzzzzzzzzzzz"  # far from every key that there is

# Every key at every place where one can stand.
ELEMENTS = {
    "vrfs": [{"name": "blue", "id": 1002}],
    "vtis": [{"name": "Vxlan2", "vtep": "10.9.0.2", "vtepV6": "2001:db8::9", "vlans": {"20": 10020}}],
    "udpDestinationPorts": [{"payload": "ipv4", "source": "bgp", "port": 6080, "mode": "default"}],
    "decapGroups": [{"name": "in", "source": "bgp", "payload": "mpls", "port": 6635}],
    "nextHops": [{
        "name": "b", "index": 2, "interface": "e1.7", "address": "2001:db8::2",
        "mac": "02:00:00:00:00:02", "labels": [100, 200], "pop": True, "encapOrder": ["mpls", "udp"],
        "mplsEncapLabels": [300], "gue": {"addressFamily": 1, "source": "192.0.2.1",
                                          "destination": "192.0.2.2", "ttl": 64},
        "vxlan": {"vti": "Vxlan1", "vlan": 10}, "decapVrf": "red", "decapHeader": "mpls",
        "fallbackVrf": 9, "truncate": 4000}],
    "fecs": [{"id": 42, "name": "two", "groupAttribute": 2, "programmedId": 7, "top": True,
              "secondFlag": False, "members": ["b", {"nextHop": "a", "weight": 3}],
              "truncate": 4000}],
    "routes": [{"vrf": "blue", "prefix": "10.2.0.0/16", "fec": 42, "origin": "bgp"}],
    "counters": [{"nextHop": "b", "packets": 1, "octets": 64, "packetRate": 2, "octetRate": 128, "wrap": 1000}],
}
ALL = {
    "scenario": 1,
    "invalid": "allow",
    "interfaces": [{"name": "e1"}, {"name": "e1.7", "parent": "e1", "subinterface": 7}],
    "vrfs": [{"name": "red", "id": 1001}],
    "vtis": [{"name": "Vxlan1", "vtep": "10.9.0.1", "vtepV6": "2001:db8::1", "vlans": {"10": 10010}}],
    "udpDestinationPorts": [{"payload": "mpls", "port": 6635}],
    "decapGroups": [{"name": "in", "payload": "gre"}],
    "nextHops": [{"name": "a", "index": 1, "interface": "e1", "address": "10.0.0.1"}],
    "fecs": [{"id": "kernel/41", "members": ["a"]}],
    "routes": [{"vrf": "red", "prefix": "10.1.0.0/16", "fec": "kernel/41", "origin": "static"}],
    "counters": [{"nextHop": "a"}, {"fec": "ipInIpTunnel/5"}, {"index": 1 << 60}],
    "ready": {"fecReady": True, "fibReady": {"red": "none"}, "quiesced": {"red": {"ipv4": "never", "ipv6": False}}},
    "timeline": [
        {"at": "1s", "add": ELEMENTS, "ready": {"fecReady": False, "fibReady": {"blue": True}}},
        {"at": "2s", "change": {"nextHops": [{"name": "b", "gue": None, "vxlan": None,
                                              "encapOrder": ["mpls"]}],
                                "vtis": [{"name": "Vxlan2", "vtep": "10.9.0.3"}],
                                "udpDestinationPorts": [{"payload": "mpls", "port": 6636}],
                                "decapGroups": [{"name": "in", "payload": "mpls", "port": 6635}],
                                "fecs": [{"id": 42, "name": "other"}],
                                "counters": [{"nextHop": "b", "packetRate": 3}],
                                "routes": [{"vrf": "blue", "prefix": "10.2.0.0/16", "fec": 42}]}},
        {"at": "3s", "delete": {"routes": [{"vrf": "blue", "prefix": "10.2.0.0/16"}], "fecs": [42],
                                "counters": [{"nextHop": "b"}, {"fec": "ipInIpTunnel/5"}, {"index": 1 << 60}],
                                "nextHops": ["b"], "vtis": ["Vxlan2"], "vrfs": ["blue"],
                                "udpDestinationPorts": [{"payload": "ipv4", "source": "bgp"}],
                                "decapGroups": [{"name": "in", "source": "bgp"}]}}],
    "repeat": {"every": "10s", "times": 3},
}
VALUES = [None, True, -1, 0, 1.5, 10**30, "", "x", "x" * 300, "a/b", [], [[]], [None], [1], ["x"], {}, {"a": 1},
          {"": None}]

with open(os.path.join(FOLDER, "scenario.schema.json"), encoding="utf-8") as file:
    SCHEMA = json.load(file)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)


def places(node, path=()):
    """The path of every map that has keys of its own, and not names of things."""
    if isinstance(node, dict):
        if not path or path[-1] not in ("vlans", "fibReady", "quiesced"):
            yield path
        for key, value in node.items():
            yield from places(value, path + (key,))
    elif isinstance(node, list):
        for index, value in enumerate(node):
            yield from places(value, path + (index,))


def at(node, path):
    for step in path:
        node = node[step]
    return node


def schema_at(path):
    """The schema of the map at that place."""
    node = SCHEMA
    for step in path + (None,):
        while "$ref" in node:
            node = SCHEMA["$defs"][node["$ref"].rsplit("/", 1)[1]]
        if "oneOf" in node:
            node = next(one for one in node["oneOf"] if one.get("type") == "object")
        if step is not None:
            named = node.get("properties", {}).get(step, node.get("additionalProperties"))  # the latter: whatever its name
            node = node["items"] if isinstance(step, int) else named
    return node


def mutants():
    """What can be wrong with ALL in one place."""
    for path in places(ALL):
        for key in at(ALL, path):
            one = copy.deepcopy(ALL)
            del at(one, path)[key]
            yield f"without {path + (key,)}", one
            for value in VALUES:
                one = copy.deepcopy(ALL)
                at(one, path)[key] = value
                yield f"{path + (key,)} is {value!r:.40}", one


class Reader:
    """What the reader of scenario files says about each of some texts."""

    def __init__(self, texts):
        with tempfile.TemporaryDirectory() as folder:
            names = []
            for number, text in enumerate(texts):
                names.append(os.path.join(folder, f"{number:05}"))
                with open(names[-1], "w", encoding="utf-8") as to:
                    to.write(text)
            done = subprocess.run([PEL, "scenario", "check"] + names, capture_output=True, text=True,
                                  timeout=150, check=False)
        self.problems = [[] for _ in names]
        accepted = set()
        for line in done.stdout.splitlines():
            accepted.add(int(os.path.basename(line.split(": ", 1)[0])))
        for line in done.stderr.splitlines():
            name, _, rest = line[len(folder) + 1:].partition(":")
            self.problems[int(name)].append(rest)
        for number, problems in enumerate(self.problems):
            assert (number in accepted) != bool(problems), (number, problems, done.stderr[-1000:])
        assert done.returncode == (0 if len(accepted) == len(names) else 1), done.returncode


class SchemaAndReader(unittest.TestCase):
    def test_both_accept_what_has_every_key(self):
        self.assertEqual([error.message for error in VALIDATOR.iter_errors(ALL)], [])
        self.assertEqual(Reader([json.dumps(ALL)]).problems, [[]])

    def test_each_knows_the_keys_that_the_other_knows_at_every_place(self):
        paths = list(places(ALL))
        texts = []
        for path in paths:
            one = copy.deepcopy(ALL)
            at(one, path)[UNKNOWN] = 1
            self.assertFalse(VALIDATOR.is_valid(one), path)
            texts.append(json.dumps(one))
        seen = {}
        for path, problems in zip(paths, Reader(texts).problems):
            lists = [re.search(rf"unknown key '{UNKNOWN}'; the keys here are (.*)", line) for line in problems]
            keys = [set(found.group(1).split(", ")) for found in lists if found]
            schema = schema_at(path)
            # A step comes again in later rounds: told once all the same.
            self.assertEqual(keys, [set(schema["properties"])], path)
            seen.setdefault(id(schema), (schema, set()))[1].update(at(ALL, path))
        for schema, used in seen.values():
            self.assertEqual(used, set(schema["properties"]), "ALL lacks a key")

    def test_whatever_the_schema_refuses_the_reader_refuses(self):
        cases = list(mutants())
        reader = Reader([json.dumps(one) for _, one in cases])
        laxer = [name for (name, one), problems in zip(cases, reader.problems)
                 if not problems and not VALIDATOR.is_valid(one)]
        self.assertEqual(laxer, [])
        refused = sum(not VALIDATOR.is_valid(one) for _, one in cases)
        self.assertGreater(refused, len(cases) / 4)  # the comparison has seen something
        self.assertGreater(sum(not problems for problems in reader.problems), 20)

    def test_a_key_that_the_reader_needs_is_needed_by_the_schema(self):
        cases = [(name, one) for name, one in mutants() if name.startswith("without")]
        reader = Reader([json.dumps(one) for _, one in cases])
        laxer = [name for (name, one), problems in zip(cases, reader.problems)
                 if any("expected the key" in line for line in problems) and VALIDATOR.is_valid(one)]
        self.assertEqual(laxer, [])

    def test_files_of_the_corpus_are_judged_alike(self):
        files = [os.path.join(FOLDER, "example.yaml")]
        examples = os.path.join(FOLDER, "../../examples")
        files += [os.path.join(examples, name) for name in sorted(os.listdir(examples))]
        corpus = os.path.join(FOLDER, "fuzz/corpus")
        files += [os.path.join(corpus, name) for name in sorted(os.listdir(corpus))]
        texts, documents = [], []
        for name in files:
            with open(name, encoding="utf-8", errors="replace") as file:
                text = file.read()
            try:
                documents.append(yaml.safe_load(text))
            except (yaml.YAMLError, RecursionError, ValueError):
                continue
            texts.append(text)
        self.assertGreater(len(texts), 3)
        for text, document, problems in zip(texts, documents, Reader(texts).problems):
            self.assertFalse(not problems and not VALIDATOR.is_valid(document), text[:500])


if __name__ == "__main__":
    unittest.main()
