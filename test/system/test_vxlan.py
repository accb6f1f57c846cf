"""VXLAN devices of the kernel, and what leaves by them, at an independent gNMI client: live."""
import test_first_light
from gnmi_client import groups, next_hops, prefixes
from lab import run

PREFIX = "192.0.2.0/24"
HEADER = "encap-headers/encap-header[index=0]/"


class ExportsVxlanNextHops(test_first_light.Case):
    def hop(self, tree):
        """The leaves of the only next hop behind the prefix; none while there is none."""
        group = groups(tree).get(prefixes(tree).get(PREFIX), {"members": {}})
        hops = [next_hops(tree).get(index) for index in group["members"]]
        return hops[0] if len(hops) == 1 and hops[0] else {}

    def header(self, tree):
        """(type, VNI, local VTEP, remote VTEP)"""
        hop = self.hop(tree)
        return (hop.get(HEADER + "state/type"), hop.get(HEADER + "vxlan/state/vni-label"),
                hop.get(HEADER + "vxlan/state/tunnel-src-ip-address"), hop.get("state/ip-address"))

    def await_header(self, stream, *want):
        try:
            stream.wait(lambda s: self.header(s.tree) == want, f"{want}")
        except Exception:
            print("instead:", self.hop(stream.tree))
            raise

    def index(self, stream):
        return self.hop(stream.tree).get("index")

    def test_vni_filter_and_local_address(self):
        self.lab.ip("link add vxb type vxlan external vnifilter local 10.0.1.1 dstport 4791")
        self.lab.ip("link set vxb up")
        self.lab.ip("addr add 10.50.0.1/24 dev vxb")
        self.bridge("vni add dev vxb vni 5001-5002")
        self.lab.ip("nexthop add id 301 via 10.50.0.2 dev vxb encap ip id 5001 dst 10.0.1.2 src 10.0.1.1")
        self.lab.ip(f"route add {PREFIX} nhid 301")
        self.up()
        stream = self.subscribe_with(PREFIX)
        self.await_header(stream, "VXLAN", 5001, "10.0.1.1", "10.0.1.2")
        hop = self.hop(stream.tree)
        self.assertEqual((hop.get("state/vni-label"), hop.get("state/tunnel-src-ip-address"),
                          hop.get("state/encapsulate-header"), hop.get("interface-ref/state/interface")),
                         (5001, "10.0.1.1", "VXLAN", "vxb"))
        index = self.index(stream)

        self.lab.ip("link set vxb type vxlan local 10.0.2.1")
        self.await_header(stream, "VXLAN", 5001, "10.0.2.1", "10.0.1.2")
        self.bridge("vni delete dev vxb vni 5001")
        self.await_header(stream, "VXLAN", None, "10.0.2.1", "10.0.1.2")
        self.bridge("vni add dev vxb vni 5001")
        self.await_header(stream, "VXLAN", 5001, "10.0.2.1", "10.0.1.2")
        self.assertEqual(self.index(stream), index, "one next hop all the while")

        self.lab.ip("nexthop replace id 301 via 10.50.0.2 dev vxb encap ip id 5002 dst 10.0.1.3 src 10.0.1.1")
        self.await_header(stream, "VXLAN", 5002, "10.0.2.1", "10.0.1.3")
        self.lab.ip("link del vxb")
        stream.wait(lambda s: PREFIX not in prefixes(s.tree), "the prefix to go with the device")

    def test_plain_device_and_bridge_over_it(self):
        self.lab.ip("link add br100 type bridge")
        self.lab.ip("link set br100 up")
        self.lab.ip("link add vx100 type vxlan id 100 local 2001:db8:1::1 dstport 4789 nolearning")
        self.lab.ip("link set vx100 master br100 addrgenmode none")
        self.lab.ip("link set vx100 up")
        self.lab.ip("neigh add 10.0.1.2 lladdr 02:00:00:00:01:02 dev br100 nud noarp")
        self.lab.ip(f"route add {PREFIX} via 10.0.1.2 dev br100 onlink")
        self.up()
        stream = self.subscribe_with(PREFIX)
        self.await_header(stream, "VXLAN", 100, "2001:db8:1::1", "10.0.1.2")
        self.assertEqual(self.hop(stream.tree).get("state/mac-address"), "02:00:00:00:01:02")
        self.lab.ip("link set vx100 type vxlan id 100 local 2001:db8:2::1")
        self.await_header(stream, "VXLAN", 100, "2001:db8:2::1", "10.0.1.2")
        self.lab.ip("link set vx100 nomaster")
        self.await_header(stream, None, None, None, "10.0.1.2")

    def test_restart_of_the_forwarder_changes_nothing(self):
        self.lab.ip("link add vxe type vxlan external dstport 4790")
        self.lab.ip("link set vxe up")
        self.lab.ip("addr add 10.50.0.1/24 dev vxe")
        self.lab.ip(f"route add {PREFIX} encap ip id 5001 dst 10.0.1.2 src 10.0.1.1 via 10.50.0.2 dev vxe")
        self.up()
        stream = self.subscribe_with(PREFIX)
        self.await_header(stream, "VXLAN", 5001, "10.0.1.1", "10.0.1.2")
        index, mark = self.index(stream), stream.mark()
        self.lab.kill("pel-forwarderd")
        self.lab.start("pel-forwarderd")
        # Published after the restart, so whatever the restart had to say was said before it.
        self.lab.ip("route add 198.51.100.0/24 encap ip id 5001 dst 10.0.1.9 src 10.0.1.1 via 10.50.0.2 dev vxe")
        stream.wait(lambda s: "198.51.100.0/24" in prefixes(s.tree), "a new prefix")
        self.assertEqual(self.index(stream), index)
        self.assertEqual(self.header(stream.tree), ("VXLAN", 5001, "10.0.1.1", "10.0.1.2"))
        old = f"next-hop[index={index}]"
        self.assertEqual([m for m in self.changes(stream, mark) if m[1].endswith(old)], [])

    def bridge(self, command):
        run(f"bridge {command}")
