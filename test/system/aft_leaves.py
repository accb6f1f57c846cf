"""The leaves of OpenConfig's network instances that this system fills, and how JSON_IETF writes each of them: this
project's own table, for machines without the public modules."""
import re

NI = "/network-instances/network-instance"
NH = "/afts/next-hops/next-hop"
EH = NH + "/encap-headers/encap-header"
NHG = "/afts/next-hop-groups/next-hop-group"
HEADERS = {"GRE", "IPV4", "IPV6", "MPLS", "VXLAN", "UDPV4", "UDPV6"}
LABELS = {"IPV4_EXPLICIT_NULL", "ROUTER_ALERT", "IPV6_EXPLICIT_NULL", "IMPLICIT_NULL", "ENTROPY_LABEL_INDICATOR"}
PROTOCOLS = {"BGP", "ISIS", "OSPF", "OSPF3", "STATIC", "DIRECTLY_CONNECTED", "LOCAL_AGGREGATE", "LOCAL"}


def matches(pattern):
    return lambda value: isinstance(value, str) and re.fullmatch(pattern, value) is not None


def number(low, high):
    return lambda value: type(value) is int and low <= value <= high


def one_of(names, module=None):
    return lambda value: value in ({f"{module}:{name}" for name in names} if module else names)


def label(value):
    return value in LABELS or number(16, 2**20 - 1)(value)


def labels(value):
    return isinstance(value, list) and bool(value) and all(map(label, value)) and len(set(map(str, value))) == len(value)


IPV4 = r"\d+\.\d+\.\d+\.\d+"
IPV6 = r"[0-9a-f:]*:[0-9a-f:]*"
address = matches(f"{IPV4}|{IPV6}")
text = matches(".+")
flag = lambda value: isinstance(value, bool)  # noqa: E731
uint64 = lambda value: matches(r"0|[1-9]\d{0,19}")(value) and int(value) < 2**64  # noqa: E731
instance_type = one_of({"DEFAULT_INSTANCE", "L3VRF"}, "openconfig-network-instance-types")
protocol = one_of(PROTOCOLS, "openconfig-policy-types")

LEAVES = {
    "/name": text, "/config/name": text, "/state/name": text,
    "/config/type": instance_type, "/state/type": instance_type,
    "/afts/state-synced/state/ipv4-unicast": flag, "/afts/state-synced/state/ipv6-unicast": flag,
    NH + "/index": uint64, NH + "/state/index": uint64,
    NH + "/state/ip-address": address, NH + "/state/mac-address": matches("([0-9a-f]{2}:){5}[0-9a-f]{2}"),
    NH + "/state/pop-top-label": flag, NH + "/state/pushed-mpls-label-stack": labels,
    NH + "/state/encapsulate-header": one_of(HEADERS), NH + "/state/decapsulate-header": one_of(HEADERS),
    NH + "/state/openconfig-aft-network-instance:network-instance": text,
    NH + "/state/vni-label": number(1, 2**24 - 1), NH + "/state/tunnel-src-ip-address": address,
    NH + "/interface-ref/state/interface": text, NH + "/interface-ref/state/subinterface": number(0, 2**32 - 1),
    EH + "/index": number(0, 255), EH + "/state/index": number(0, 255), EH + "/state/type": one_of(HEADERS),
    EH + "/mpls/state/mpls-label-stack": labels,
    EH + "/mpls/encap-mpls-label-stacks/encap-mpls-label-stack/id": number(0, 255),
    EH + "/mpls/encap-mpls-label-stacks/encap-mpls-label-stack/state/id": number(0, 255),
    EH + "/mpls/encap-mpls-label-stacks/encap-mpls-label-stack/state/label": label,
    EH + "/udp-v4/state/src-ip": matches(IPV4), EH + "/udp-v4/state/dst-ip": matches(IPV4),
    EH + "/udp-v6/state/src-ip": matches(IPV6), EH + "/udp-v6/state/dst-ip": matches(IPV6),
    EH + "/vxlan/state/vni-label": number(1, 2**24 - 1), EH + "/vxlan/state/tunnel-src-ip-address": address,
    NHG + "/id": uint64, NHG + "/state/id": uint64, NHG + "/state/programmed-id": uint64,
    NHG + "/state/next-hop-group-name": text,
    NHG + "/next-hops/next-hop/index": uint64, NHG + "/next-hops/next-hop/state/index": uint64,
    NHG + "/next-hops/next-hop/state/weight": uint64,
}
for udp in ("/udp-v4", "/udp-v6"):
    LEAVES[EH + udp + "/state/dst-udp-port"] = number(0, 65535)
    LEAVES[EH + udp + "/state/ip-ttl"] = number(0, 255)
for family, prefix in (("ipv4", IPV4), ("ipv6", IPV6)):
    entry = f"/afts/{family}-unicast/{family}-entry"
    LEAVES.update({
        entry + "/prefix": matches(prefix + r"/\d+"), entry + "/state/prefix": matches(prefix + r"/\d+"),
        entry + "/state/origin-protocol": protocol,
        entry + "/state/openconfig-aft-network-instance:next-hop-group": uint64,
        entry + "/state/openconfig-aft-network-instance:next-hop-group-network-instance": text})
    summary = f"/afts/openconfig-aft-summary:aft-summaries/{family}-unicast/protocols/protocol"
    LEAVES.update({summary + "/origin-protocol": protocol, summary + "/state/origin-protocol": protocol,
                   summary + "/state/counters/aft-entries": uint64})
counters = "/afts/openconfig-aft-counters:counters/next-hops/next-hop"
LEAVES.update({counters + "/index": uint64, counters + "/state/index": uint64,
               counters + "/state/packets-forwarded": uint64, counters + "/state/octets-forwarded": uint64})


def faults(node, path=""):
    """Everything in a JSON_IETF tree of network instances that is not as the table says."""
    if isinstance(node, dict):
        return [fault for name, child in node.items() for fault in faults(child, f"{path}/{name}")]
    if isinstance(node, list) and node and isinstance(node[0], dict):
        return [fault for entry in node for fault in faults(entry, path)]
    start = "/openconfig-network-instance:network-instances/network-instance"
    if not path.startswith(start) or path[len(start):] not in LEAVES:
        return [f"no such leaf: {path}"]
    return [] if LEAVES[path[len(start):]](node) else [f"{path} is {node!r}"]
