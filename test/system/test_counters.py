"""What the kernel counts of a group's members, at an independent gNMI client."""
import re
import socket
import struct

import test_first_light
from gnmi_client import groups, prefixes
from lab import run

PREFIX = "192.0.2.0/24"
GROUP = 200
NATIVE = re.compile(r"^/AftExport/OpenConfig/afts/aftContainer/nextHopCounters\[\w+=(\d+)\]/packetsForwarded$")
OPENCONFIG = re.compile(r".*/afts/counters/next-hops/next-hop\[index=(\d+)\]/state/packets-forwarded$")


def attributes(data):
    """(type, payload) of each netlink attribute."""
    while len(data) >= 4:
        length, kind = struct.unpack_from("=HH", data)
        yield kind & 0x3FFF, data[4:length]
        data = data[(length + 3) & ~3:]


def kernel_counts(group):
    """nexthop id -> packets, of a group, as the kernel says; None where it keeps no statistics."""
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 0) as netlink:
        netlink.bind((0, 0))
        body = struct.pack("=BBBBI", 0, 0, 0, 0, 0) + struct.pack("=HHI", 8, 1, group) + struct.pack("=HHI", 8, 14, 3)
        netlink.send(struct.pack("=IHHII", 16 + len(body), 106, 1, 1, 0) + body)
        answer = netlink.recv(65536)
    if struct.unpack_from("=H", answer, 4)[0] != 104:
        return None
    counts = {}
    for kind, payload in attributes(answer[24:]):
        if kind != 15:
            continue
        for _, entry in attributes(payload):
            values = {number: int.from_bytes(value, "little") for number, value in attributes(entry)}
            counts[values[1]] = values[2]
    return counts or None


class CountsWhatTheKernelForwards(test_first_light.Case):
    def setUp(self):
        super().setUp()
        run("sysctl -qw net.ipv4.fib_multipath_hash_policy=1")
        self.lab.ip("nexthop add id 101 via 10.0.1.2 dev e1")
        self.lab.ip("nexthop add id 102 via 10.0.2.2 dev e2")
        self.lab.ip(f"nexthop add id {GROUP} group 101,1/102,3")
        self.lab.ip(f"route add {PREFIX} nhid {GROUP}")
        if kernel_counts(GROUP) is None:
            self.skipTest("the kernel keeps no statistics of nexthop groups")

    def up(self):
        self.lab.forwarder_options = ["--counter-interval", "1"]
        super().up()

    @staticmethod
    def traffic(ports):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for port in ports:
                sender.sendto(b"x" * 100, ("192.0.2.1", port))

    def by_nexthop(self, stream, origin):
        """nexthop id -> packets-forwarded, as the client has it."""
        tree = stream.tree
        shown = {}
        for leaf, value in tree.items():
            match = (NATIVE if origin == "pel" else OPENCONFIG).match(leaf)
            if match:
                shown[int(match.group(1))] = value
        return {nexthop: shown.get(index) for nexthop, index in self.indexes.items()}

    def agree(self, stream, origin):
        """Traffic has stopped: a poll later the client has what the kernel says."""
        want = kernel_counts(GROUP)
        stream.wait(lambda s: self.by_nexthop(s, origin) == want, f"{want}; now {self.by_nexthop(stream, origin)}")
        return want

    def learn_indexes(self):
        """nexthop id -> index of its next hop."""
        stream = self.subscribe_with(PREFIX)
        tree = stream.tree
        members = groups(tree)[prefixes(tree)[PREFIX]]["members"]
        by_weight = {weight: index for index, weight in members.items()}
        self.indexes = {101: by_weight[1], 102: by_weight[3]}
        return stream

    def test_packets_of_a_weighted_group_equal_the_kernels(self):
        self.up()
        openconfig = self.learn_indexes()
        native = self.subscribe(origin="pel", paths=("/AftExport/OpenConfig/afts/aftContainer/nextHopCounters",))
        for stream, origin in ((native, "pel"), (openconfig, "openconfig")):
            with self.subTest(origin):
                self.traffic(range(2000, 2400))
                want = self.agree(stream, origin)
                self.assertGreaterEqual(sum(want.values()), 400)
                self.assertGreater(want[102], want[101])
        before = kernel_counts(GROUP)
        self.lab.kill("pel-forwarderd")
        self.lab.start("pel-forwarderd")
        self.traffic(range(3000, 3100))
        self.assertEqual(sum(self.agree(native, "pel").values()), sum(before.values()) + 100)

    def test_a_replaced_group_counts_on(self):
        self.up()
        self.learn_indexes()
        native = self.subscribe(origin="pel", paths=("/AftExport/OpenConfig/afts/aftContainer/nextHopCounters",))
        self.traffic(range(2000, 2200))
        before = self.agree(native, "pel")
        self.lab.ip(f"nexthop replace id {GROUP} group 101,1/102,3")
        self.assertEqual(kernel_counts(GROUP), {101: 0, 102: 0})
        self.traffic(range(2000, 2050))  # less than before, or nobody could tell that the kernel began anew
        after = kernel_counts(GROUP)
        want = {nexthop: before[nexthop] + after[nexthop] for nexthop in before}
        native.wait(lambda s: self.by_nexthop(s, "pel") == want, f"{want}")
