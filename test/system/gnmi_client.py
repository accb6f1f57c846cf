"""A gNMI client for tests. It shares no code with the server: Debian's grpcio and protobuf over the
project's .proto, and a state that is rebuilt from the messages alone."""
import json
import queue
import threading
import time

import gnmi_pb2
import grpc


def path_text(path, prefix=None):
    """The absolute path as text: /name[key=value]/name, keys sorted."""
    out = ""
    for part in ([prefix] if prefix is not None else []) + [path]:
        for elem in part.elem:
            out += "/" + elem.name
            out += "".join(f"[{k}={elem.key[k]}]" for k in sorted(elem.key))
    return out


def parse_path(text, origin=""):
    """The reverse, for paths without escapes."""
    path = gnmi_pb2.Path(origin=origin)
    for item in _split(text):
        name, _, keys = item.partition("[")
        elem = path.elem.add(name=name)
        for key in filter(None, keys.replace("]", "").split("[")):
            k, _, v = key.partition("=")
            elem.key[k] = v
    return path


def _split(text):
    item, depth = "", 0
    for c in text.strip("/"):
        if c == "/" and depth == 0:
            yield item
            item = ""
            continue
        depth += {"[": 1, "]": -1}.get(c, 0)
        item += c
    if item:
        yield item


def value(typed):
    kind = typed.WhichOneof("value")
    if kind == "leaflist_val":
        return [value(element) for element in typed.leaflist_val.element]
    if kind in ("json_val", "json_ietf_val"):
        return json.loads(getattr(typed, kind))
    return getattr(typed, kind)


def get(address, paths=("/",), **fields):
    """The GetResponse to these paths; raises grpc.RpcError."""
    request = gnmi_pb2.GetRequest(path=[parse_path(path) for path in paths], **fields)
    with grpc.insecure_channel(address, options=[("grpc.max_receive_message_length", -1)]) as channel:
        call = channel.unary_unary(
            "/gnmi.gNMI/Get",
            request_serializer=gnmi_pb2.GetRequest.SerializeToString,
            response_deserializer=gnmi_pb2.GetResponse.FromString)
        return call(request, timeout=120)


def got_tree(notification):
    """Leaf path -> value, of a Get in PROTO."""
    leaves = {path_text(u.path, notification.prefix): value(u.val) for u in notification.update}
    assert len(leaves) == len(notification.update), "full paths inside a notification are unique"
    return leaves


KEYS = {"network-instance": "name", "next-hop": "index", "next-hop-group": "id", "ipv4-entry": "prefix",
        "ipv6-entry": "prefix", "encap-header": "index", "protocol": "origin-protocol"}


def flattened(node, path=""):
    """Leaf path -> value, of a JSON tree. Module names are gone from paths, list keys are in them."""
    if not isinstance(node, dict):
        return {path: node}
    leaves = {}
    for name, child in node.items():
        name = name.rpartition(":")[2]
        if name in KEYS and isinstance(child, list):
            for entry in child:
                bare = {member.rpartition(":")[2]: leaf for member, leaf in entry.items()}
                key = bare[KEYS[name]].rpartition(":")[2] if name == "protocol" else bare[KEYS[name]]
                leaves.update(flattened(entry, f"{path}/{name}[{KEYS[name]}={key}]"))
        else:
            leaves.update(flattened(child, f"{path}/{name}"))
    return leaves


def as_ietf(leaf, proto):
    """What JSON_IETF makes of a PROTO value, by what OpenConfig says about the leaf's name."""
    name = leaf.rpartition("/")[2]
    if isinstance(proto, bool) or isinstance(proto, list):
        return proto
    if name == "type" and "/encap-header[" not in leaf:
        return "openconfig-network-instance-types:" + proto
    if name == "origin-protocol":
        return "openconfig-policy-types:" + proto
    small = name in ("subinterface", "vni-label", "ip-ttl") or "/encap-header[" in leaf
    return str(proto) if isinstance(proto, int) and not small else proto


def ancestors(leaf):
    """The paths that a delete of which takes the leaf along: itself, lists with and without keys, the root."""
    depth = 0
    for at, c in enumerate(leaf):
        if depth == 0 and c in "/[":
            yield leaf[:at]
        depth += {"[": 1, "]": -1}.get(c, 0)
    yield leaf


class Stream:
    """One Subscribe call. `tree` maps absolute leaf paths to values, as a collector would hold them, at
    the moment it is asked for; `log` keeps every message in order as ("update", entry path, leaves, stamp), ("leaf", path, value,
    stamp), ("delete", path, stamp) or ("sync",)."""

    def __init__(self, address, paths=("/",), once=False, target="", updates_only=False, origin="openconfig",
                 encoding=gnmi_pb2.PROTO, poll=False):
        self._tree, self._below = {}, {}  # the latter: path -> leaves at or below it
        self.log = []
        self.synced = False
        self.error = None
        self._changed = threading.Condition()
        self._requests = queue.Queue()
        self._channel = grpc.insecure_channel(
            address, options=[("grpc.max_receive_message_length", -1)])
        subscribe = self._channel.stream_stream(
            "/gnmi.gNMI/Subscribe",
            request_serializer=gnmi_pb2.SubscribeRequest.SerializeToString,
            response_deserializer=gnmi_pb2.SubscribeResponse.FromString)
        request = gnmi_pb2.SubscribeRequest()
        request.subscribe.mode = (gnmi_pb2.SubscriptionList.ONCE if once
                                  else gnmi_pb2.SubscriptionList.POLL if poll
                                  else gnmi_pb2.SubscriptionList.STREAM)
        request.subscribe.encoding = encoding
        request.subscribe.updates_only = updates_only
        request.subscribe.prefix.origin = origin
        request.subscribe.prefix.target = target
        for path in paths:
            entry = request.subscribe.subscription.add(mode=gnmi_pb2.ON_CHANGE)
            entry.path.CopyFrom(parse_path(path))
        self._requests.put(request)
        self._call = subscribe(iter(self._requests.get, None))
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    @classmethod
    def connected(cls, address, seconds=120.0, **options):
        """A synced stream; tries again while the server is not there yet."""
        deadline = time.monotonic() + seconds
        while True:
            stream = cls(address, **options)
            stream.wait(lambda s: s.synced or s.ended, "an answer")
            if stream.synced:
                return stream
            stream.close()
            assert time.monotonic() < deadline, stream.error
            time.sleep(0.1)

    def _read(self):
        try:
            for response in self._call:
                with self._changed:
                    self._take(response)
                    self._changed.notify_all()
        except grpc.RpcError as error:
            self.error = error
        with self._changed:
            self.ended = True
            self._changed.notify_all()

    ended = False

    @property
    def tree(self):
        with self._changed:
            return dict(self._tree)

    def leaf(self, path):
        """Its value, None when it is not there; for conditions that are asked at each message of many."""
        with self._changed:
            return self._tree.get(path)

    def _take(self, response):
        kind = response.WhichOneof("response")
        if kind == "sync_response":
            assert response.sync_response, "a sync_response is only ever true"
            assert not self.synced, "one sync_response per stream"
            self.synced = True
            self.log.append(("sync",))
            return
        assert kind == "update", f"unexpected response {kind}"
        note = response.update
        assert note.timestamp > 0, "every notification is stamped"
        assert not (note.atomic and note.delete), "an atomic notification carries no deletes"
        for path in note.delete:
            gone = path_text(path, note.prefix)
            self.log.append(("delete", gone, note.timestamp))
            self._drop(gone)
        if note.atomic:
            entry = path_text(note.prefix)
            leaves = {path_text(u.path, note.prefix): value(u.val) for u in note.update}
            assert len(leaves) == len(note.update), "full paths inside a notification are unique"
            assert leaves, "an atomic notification has content"
            self._drop(entry)
            for leaf, content in leaves.items():
                self._put(leaf, content)
            self.log.append(("update", entry, leaves, note.timestamp))
        else:
            for update in note.update:
                leaf = path_text(update.path, note.prefix)
                self._put(leaf, value(update.val))
                self.log.append(("leaf", leaf, self._tree[leaf], note.timestamp))

    def _put(self, leaf, content):
        self._tree[leaf] = content
        for path in ancestors(leaf):
            self._below.setdefault(path, set()).add(leaf)

    def _drop(self, entry):
        for leaf in list(self._below.get(entry, ())):
            del self._tree[leaf]
            for path in ancestors(leaf):
                self._below[path].discard(leaf)

    def wait(self, condition, what, seconds=120.0):
        """Waits until condition(self) holds; says what was there last when it does not."""
        deadline = time.monotonic() + seconds
        with self._changed:
            while not condition(self):
                left = deadline - time.monotonic()
                if left <= 0 or (self.ended and not condition(self)):
                    tail = "\n".join(map(str, self.log[-8:]))
                    raise AssertionError(f"never saw {what}; ended={self.ended} {self.error}; last:\n{tail}")
                self._changed.wait(min(left, 0.2))
        return self

    def poll(self):
        """Asks for all of it again; the tree is what the answer says."""
        with self._changed:
            self._tree, self._below, self.synced = {}, {}, False
        self._requests.put(gnmi_pb2.SubscribeRequest(poll=gnmi_pb2.Poll()))
        return self.wait_sync()

    def half_close(self):
        self._requests.put(None)

    def wait_sync(self, seconds=120.0):
        return self.wait(lambda s: s.synced, "sync_response", seconds)

    def mark(self):
        """A position in the log; since(mark) gives what came after it."""
        with self._changed:
            return len(self.log)

    def since(self, mark):
        with self._changed:
            return list(self.log[mark:])

    def close(self):
        self._requests.put(None)
        self._call.cancel()
        self._thread.join(5)
        self._channel.close()


AFTS = "/network-instances/network-instance[name=DEFAULT]/afts"


def next_hops(tree, instance="DEFAULT"):
    """index -> {leaf below the entry: value}"""
    return _entries(tree, f"/network-instances/network-instance[name={instance}]/afts/next-hops/next-hop[index=")


def groups(tree, instance="DEFAULT"):
    """id -> {leaf: value, "members": {index: weight}}"""
    found = _entries(tree, f"/network-instances/network-instance[name={instance}]/afts/next-hop-groups/next-hop-group[id=")
    for leaves in found.values():
        members = {}
        for leaf, val in leaves.items():
            if leaf.startswith("next-hops/next-hop[index=") and leaf.endswith("/state/weight"):
                members[int(leaf.split("=")[1].split("]")[0])] = val
        leaves["members"] = members
    return found


def prefixes(tree, instance="DEFAULT"):
    """prefix -> next-hop-group id"""
    found = {}
    for family, entry in (("ipv4-unicast", "ipv4-entry"), ("ipv6-unicast", "ipv6-entry")):
        start = f"/network-instances/network-instance[name={instance}]/afts/{family}/{entry}[prefix="
        for leaf, val in tree.items():
            if leaf.startswith(start) and leaf.endswith("/state/next-hop-group"):
                found[leaf[len(start):].split("]")[0]] = val
    return found


def _entries(tree, start):
    found = {}
    for leaf, val in tree.items():
        if leaf.startswith(start):
            key, _, rest = leaf[len(start):].partition("]/")
            found.setdefault(int(key), {})[rest] = val
    return found
