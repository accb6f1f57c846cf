"""What `pel show` says of a running agent."""
import json
import os
import signal
import subprocess
import time
import unittest

from lab import ADDRESS, BIN, Lab

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples")
SCENARIO = 4 * 2**56  # the kind of the FECs that a scenario describes


def until(condition, what):
    """Waits for what the processes do in their own time."""
    deadline = time.monotonic() + 120
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"not within two minutes: {what}")
        time.sleep(0.05)


class Case(unittest.TestCase):
    """A router that plays an example; all of it is exported."""

    EXAMPLE = "ecmp"

    def setUp(self):
        self.lab = Lab(links=0, scenario=os.path.join(EXAMPLES, self.EXAMPLE + ".yaml"))
        self.addCleanup(self.lab.close)
        self.lab.enable().start()

    def pel(self, *arguments):
        """(exit code, standard output, standard error) of a command that ends by itself."""
        done = subprocess.run([os.path.join(BIN, "pel"), *arguments, "--root", self.lab.root],
                              capture_output=True, text=True, timeout=120, check=False)
        return done.returncode, done.stdout, done.stderr

    def show(self, *arguments):
        code, output, error = self.pel("show", *arguments)
        self.assertEqual((code, error), (0, ""), output + self.lab.logs())
        return output

    def shows(self, want, *arguments):
        """The command comes to show exactly `want`: the export needs its time."""
        deadline = time.monotonic() + 60
        while self.pel("show", *arguments)[1] != want and time.monotonic() < deadline:
            time.sleep(0.05)
        self.maxDiff = None
        self.assertEqual(self.show(*arguments), want)

    def refused(self, error, *arguments):
        code, output, said = self.pel("show", *arguments)
        self.assertEqual((code, output, said), (1, "", f"pel: {error}\n"))


class Entries(Case):
    """next-hops, groups, vrfs and route, of examples/ecmp.yaml."""

    HOPS = (
        "INDEX           IP ADDRESS              MAC ADDRESS       INTERFACE       LABELS, HEADERS\n"
        "1               192.0.2.1               00:00:5e:00:53:01 Ethernet1\n"
        "2               192.0.2.3               00:00:5e:00:53:02 Ethernet2.100\n"
        "3               2001:db8:1::1           00:00:5e:00:53:01 Ethernet1\n"
        "4               2001:db8:2::1           00:00:5e:00:53:02 Ethernet2.100\n")
    GROUPS = (
        "ID                 PROGRAMMED ID      MEMBERS  NAME\n"
        f"{SCENARIO + 41}                    2        spines\n"
        f"{SCENARIO + 42}                    2        spines-v6\n"
        f"{SCENARIO + 43}                    0\n")
    ROUTE = (
        "VRF: default, prefix: 198.51.100.0/24, origin: BGP\n"
        f"\tFEC ID: {SCENARIO + 41}, programmed ID: 0, number of next hops: 2\n"
        "\t\tNext hop index: 1, weight 1\n"
        "\t\t\tIP address: 192.0.2.1\n"
        "\t\t\tMAC address: 00:00:5e:00:53:01\n"
        "\t\t\tInterface: Ethernet1\n"
        "\t\t\tLabels: None\n"
        "\t\t\tPop top label: false\n"
        "\t\tNext hop index: 2, weight 1\n"
        "\t\t\tIP address: 192.0.2.3\n"
        "\t\t\tMAC address: 00:00:5e:00:53:02\n"
        "\t\t\tInterface: Ethernet2.100\n"
        "\t\t\tLabels: None\n"
        "\t\t\tPop top label: false\n")

    def test_the_tables_and_the_tree_are_those_of_the_example(self):
        self.shows(self.HOPS, "next-hops")
        self.shows(self.GROUPS, "groups")
        self.shows("ID              IPV4 PREFIXES IPV6 PREFIXES  NAME\n"
                   "254                         3             2  default\n", "vrfs")
        self.shows(self.ROUTE, "route", "198.51.100.0/24")

    def test_one_entry_is_shown_whole(self):
        self.shows(self.GROUPS, "groups")
        self.shows(self.HOPS, "next-hops")
        self.assertEqual(self.show("next-hops", "2"),
                         "Next hop index: 2\n"
                         "\tIP address: 192.0.2.3\n"
                         "\tMAC address: 00:00:5e:00:53:02\n"
                         "\tInterface: Ethernet2\n"
                         "\tSubinterface: 100\n"
                         "\tLabels: None\n"
                         "\tPop top label: false\n")
        self.assertEqual(self.show("groups", str(SCENARIO + 41)),
                         f"Group ID: {SCENARIO + 41}, number of next hops: 2\n"
                         "\tName: spines\n"
                         "\tGroup attribute: 0\n"
                         "\tNext hop index: 1, weight 1\n"
                         "\tNext hop index: 2, weight 1\n")
        self.assertEqual(json.loads(self.show("next-hops", "1", "--json")), {"nextHops": {"1": {
            "ipAddress": "192.0.2.1", "macAddress": "00:00:5e:00:53:01", "interface": "Ethernet1",
            "pushedMplsLabelStack": [], "popTopLabel": False, "encapHeaders": {}}}})
        self.assertEqual(sorted(json.loads(self.show("next-hops", "--json"))["nextHops"]), ["1", "2", "3", "4"])
        self.assertEqual(json.loads(self.show("groups", str(SCENARIO + 43), "--json")),
                         {"nextHopGroups": {str(SCENARIO + 43): {"nextHops": {}}}})
        self.assertEqual(json.loads(self.show("vrfs", "254", "--json")),
                         {"vrfs": {"default": {"ids": [254], "ipv4Prefixes": 3, "ipv6Prefixes": 2}}})

    def test_an_address_finds_its_longest_match(self):
        self.shows(self.ROUTE, "route", "198.51.100.0/24")
        for address, prefix in (("198.51.100.7", "198.51.100.0/24"), ("192.0.2.7", "0.0.0.0/0"),
                                ("2001:db8:100:1::7", "2001:db8:100::/48"), ("2001:db8::7", "::/0")):
            first = self.show("route", address).splitlines()[0]
            self.assertEqual(first, f"VRF: default, prefix: {prefix}, longest match of {address}, origin: BGP")
        found = json.loads(self.show("route", "203.0.113.7", "--json", "--vrf", "default"))
        self.assertEqual(found, {"vrfs": {"default": {
            "prefix": "203.0.113.0/24", "address": "203.0.113.7", "originProtocol": "STATIC",
            "fecs": {str(SCENARIO + 43): {"programmedId": 0, "exported": True, "nextHops": {}}}}}})

    def test_what_is_not_there_or_makes_no_sense_is_said_and_ends_with_1(self):
        self.shows(self.ROUTE, "route", "198.51.100.0/24")
        largest = "a decimal number from 0 to 18446744073709551615"
        self.refused("% No next hop 9 found", "next-hops", "9")
        self.refused("% No group 41 found", "groups", "41")
        for text in ("-1", "spines", str(2**64)):
            self.refused(f"showNextHops: '{text}' is no next-hop index: {largest}", "next-hops", text)
            self.refused(f"showGroups: '{text}' is no group id: {largest}", "groups", text)
            self.refused(f"% No VRF {text} found", "vrfs", text)
            self.refused(f"showRoute: '{text}' is no address and no prefix", "route", text)
            self.refused(f"% No VRF {text} found", "route", "0.0.0.0/0", f"--vrf={text}")
        self.refused("% No route 198.51.100.0/25 found", "route", "198.51.100.0/25")
        self.refused("showRoute: '198.51.100.1/24' has bits set beyond its length: did you mean 198.51.100.0/24?",
                     "route", "198.51.100.1/24")
        code, output, _ = self.pel("show", "route", "10.0.0.0/33", "--json")
        self.assertEqual((code, json.loads(output)),
                         (1, {"errors": ["showRoute: '10.0.0.0/33' is no address and no prefix"]}))

    def test_with_the_export_off_a_route_says_that_nothing_of_it_is_exported(self):
        self.shows(self.ROUTE, "route", "198.51.100.0/24")
        self.lab.enable("false")
        off = ", NOT exported: the export is off or could not take it\n"
        self.shows(self.ROUTE.replace("hops: 2\n", "hops: 2" + off).replace("weight 1\n", "weight 1" + off),
                   "route", "198.51.100.0/24")
        self.shows(self.HOPS.splitlines(keepends=True)[0], "next-hops")

    def test_a_killed_agent_is_said_to_be_none(self):
        self.shows(self.ROUTE, "route", "198.51.100.0/24")
        self.lab.kill("pel-agentd")
        for command in (("next-hops",), ("groups",), ("vrfs",), ("route", "::/0")):
            code, output, said = self.pel("show", *command)
            self.assertEqual((code, output), (3, ""))
            self.assertIn("no agent runs in", said)


class EntriesOfVrfs(Case):
    """The same of examples/gue-v6.yaml, which has a VRF and tunnels."""

    EXAMPLE = "gue-v6"

    def test_the_vrf_has_its_line_and_its_routes(self):
        self.shows("ID              IPV4 PREFIXES IPV6 PREFIXES  NAME\n"
                   "254                         1             2  default\n"
                   "1001                        1             0  servers\n", "vrfs")
        self.shows("VRF: servers\n\tID: 1001\n\tIPv4 prefixes: 1\n\tIPv6 prefixes: 0\n", "vrfs", "1001")
        self.refused("% No route to 198.51.100.1 found in VRF default", "route", "198.51.100.1", "--vrf", "default")
        self.assertTrue(self.show("route", "198.51.100.1").startswith(
            "VRF: servers, prefix: 198.51.100.0/24, longest match of 198.51.100.1, origin: STATIC\n"
            f"\tFEC ID: {SCENARIO + 41}, programmed ID: 0, number of next hops: 2"))

    def test_tunnels_are_shown_with_their_headers(self):
        self.shows("Next hop index: 1\n"
                   "\tIP address: 2001:db8:1::1\n"
                   "\tMAC address: 00:00:5e:00:53:01\n"
                   "\tInterface: Ethernet1\n"
                   "\tLabels: None\n"
                   "\tPop top label: false\n"
                   "\tEncapsulation header 0, type: UDPV6, source: 2001:db8::10, destination: 2001:db8:a::1, TTL: 32\n",
                   "next-hops", "1")
        self.shows("Next hop index: 3\n"
                   "\tLabels: None\n"
                   "\tPop top label: false\n"
                   "\tDecapsulated header: UDPV6\n"
                   "\tVRF of decapsulated packets: servers\n"
                   "\tFallback VRF: default\n", "next-hops", "3")


class ShowStatus(unittest.TestCase):
    """Who runs and feeds it, what is ready, what is exported, who subscribes; and an agent in any state."""

    def setUp(self):
        self.lab = Lab(links=0, scenario=os.path.join(EXAMPLES, "ecmp.yaml"))
        self.addCleanup(self.lab.close)

    def pel(self, *arguments):
        """Exit code and what it says; `pel` itself may hang no longer than its patience and a little."""
        done = subprocess.run([os.path.join(BIN, "pel"), *arguments, "--root", self.lab.root],
                              capture_output=True, text=True, timeout=100, check=False)
        return done.returncode, done.stdout + done.stderr

    def status(self):
        code, text = self.pel("show", "status", "--json")
        return json.loads(text) if code == 0 else None

    def exporting(self):
        self.lab.start().enable()
        return until(lambda: (s := self.status()) and s.get("readiness", {}).get("fecReady")
                     and s["entries"]["ipv4Prefixes"]["shown"] and s, "the example is exported")

    def stop(self, name):
        process = self.lab.processes[name]
        process.send_signal(signal.SIGSTOP)
        self.addCleanup(process.send_signal, signal.SIGCONT)
        until(lambda: open(f"/proc/{process.pid}/stat", encoding="utf-8").read().split(") ")[1][0] == "T", "it is stopped")
        return process.pid

    def test_the_screen_of_a_small_router_is_whole_and_plain_in_a_pipe(self):
        self.exporting()
        code, text = self.pel("show", "status")
        self.assertEqual(code, 0, text)
        self.assertNotIn("NOT", text)
        self.assertNotIn("\x1b", text)
        lines = text.splitlines()
        self.assertLessEqual(len(lines), 40)
        self.assertLessEqual(max(len(line) for line in lines), 80)
        for line in ["export      on", "  next hops ready", "  groups    ready",
                     "next hops   4 held, 4 shown; 0 encapsulated", "groups      3 held, 3 shown",
                     "IPv4        3 held, 3 shown", "IPv6        2 held, 2 shown", "waiting     none",
                     "refused     none", "terminated  none", "tasks       none has failed"]:
            self.assertIn(line, lines)
        synced = "(synced|not synced yet)"  # by whether its routes have quiesced
        self.assertRegex(text, f"(?m)^  default: FIB ready, IPv4 3 routes {synced}, IPv6 2 routes {synced}$")

    def test_on_a_terminal_what_is_bad_is_coloured_unless_forbidden(self):
        self.lab.start("pel-agentd")
        until(self.status, "the agent answers")
        shown = {}
        for name, environment in [("coloured", {}), ("plain", {"NO_COLOR": "1"})]:
            master, terminal = os.openpty()
            clean = {k: v for k, v in os.environ.items() if k != "NO_COLOR"}
            done = subprocess.run([os.path.join(BIN, "pel"), "show", "status", "--root", self.lab.root], stdout=terminal,
                                  timeout=100, env={**clean, "TERM": "xterm", **environment}, check=False)
            os.close(terminal)
            self.assertEqual(done.returncode, 0)
            shown[name] = os.read(master, 65536).decode()
            os.close(master)
        self.assertIn("forwarder   \x1b[31mNOT running\x1b[0m", shown["coloured"])
        self.assertIn("forwarder   NOT running", shown["plain"])
        self.assertNotIn("\x1b", shown["plain"])

    def test_a_subscriber_is_listed_while_it_is_there(self):
        self.exporting()
        watch = subprocess.Popen([os.path.join(BIN, "pel"), "watch", "--server", ADDRESS], stdout=subprocess.DEVNULL)
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)
        calls = until(lambda: (s := self.status()) and [
            c for c in s["streams"]["subscribers"] if c["synced"] and c["lag"] == 0], "it is level")
        self.assertEqual(calls[0]["mode"], "STREAM")
        self.assertEqual(calls[0]["paths"], 1)
        self.assertTrue(calls[0]["peer"].startswith("127.0.0.1:"))
        self.assertGreaterEqual(calls[0]["messages"], 12)  # entries of the example
        watch.kill()
        until(lambda: (s := self.status()) and not s["streams"]["subscribers"], "it is gone")
        self.assertEqual(self.status()["streams"]["terminated"]["count"], 0)

    def test_a_dead_or_stopped_forwarder_is_said(self):
        self.exporting()
        pid = self.stop("pel-forwarderd")
        self.assertIn(f"\nforwarder   process {pid}, STOPPED, last commit ", self.pel("show", "status")[1])
        self.lab.kill("pel-forwarderd")
        self.assertIn("\nforwarder   NOT running, last commit ", self.pel("show", "status")[1])
        self.assertEqual(self.status()["entries"]["groups"]["shown"], 3)  # what it left is still exported

    def test_a_stopped_agent_is_named_by_each_command_and_goes_on_afterwards(self):
        self.exporting()
        pid = self.stop("pel-agentd")
        for command in [["show", "status"], ["show", "tasks"], ["show", "fec-export"], ["trace", "set", "X=9"],
                        ["config", "set", "aftExportEnabled", "true"]]:
            with self.subTest(command=command):
                code, text = self.pel(*command, "--timeout", "300")
                self.assertEqual(code, 4, text)
                self.assertIn(f"process {pid} is stopped; kill -CONT {pid} lets it go on", text)
        watch = subprocess.run([os.path.join(BIN, "pel"), "watch", "--once", "--server", ADDRESS],
                               capture_output=True, text=True, timeout=100, check=False)
        self.assertEqual(watch.returncode, 4, watch.stderr)
        self.assertIn("takes the connection and says nothing", watch.stderr)
        self.lab.processes["pel-agentd"].send_signal(signal.SIGCONT)
        self.assertIsNotNone(until(self.status, "it answers again"))

    def test_a_killed_agent_is_nobody_whatever_it_left(self):
        self.exporting()
        self.lab.kill("pel-agentd")
        self.assertTrue(os.path.exists(os.path.join(self.lab.root, "control.sock")))
        code, text = self.pel("show", "status")
        self.assertEqual(code, 3, text)
        self.assertIn("no agent runs in", text)
        watch = subprocess.run([os.path.join(BIN, "pel"), "watch", "--once", "--server", ADDRESS],
                               capture_output=True, text=True, timeout=100, check=False)
        self.assertEqual(watch.returncode, 3, watch.stderr)

    def test_an_agent_that_has_read_no_store_yet_answers(self):
        self.lab.start("pel-agentd")
        status = until(self.status, "the agent answers")
        self.assertFalse(status["state"]["open"])
        self.assertIn("no store", status["state"]["reason"])
        self.assertFalse(status["forwarder"]["running"])


if __name__ == "__main__":
    unittest.main()
