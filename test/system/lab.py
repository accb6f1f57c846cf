"""A router: the forwarder and the agent over a kernel FIB that the test alone changes. Each test runs in
a network namespace of its own (run.py sees to that), which is the router's; the neighbours are named
namespaces that go away with the object."""
import json
import os
import shutil
import signal
import subprocess
import tempfile
import time

ADDRESS = "127.0.0.1:9339"
BIN = os.environ["PEL_BIN"]
PLUGIN = os.environ["PEL_PLUGIN"]


class Lab:
    """`scenario`: a file that the forwarder plays in place of the kernel's state. `forwarder_options`: what else it is started with."""

    forwarder_options = ()

    def __init__(self, links=2, scenario=None):
        self.source = ["kernel"] if scenario is None else ["scenario", "--scenario", scenario]
        self.root = tempfile.mkdtemp(prefix="pel-system-", dir="/dev/shm")
        self.processes = {}
        self.peers = []
        run("ip link set lo up")
        for n in range(1, links + 1):
            peer = f"pelt{os.getpid()}p{n}"
            run(f"ip netns add {peer}")
            self.peers.append(peer)
            run(f"ip -n {peer} link set lo up")
            run(f"ip link add e{n} type veth peer name e0 netns {peer}")
            run(f"ip addr add 10.0.{n}.1/24 dev e{n}")
            run(f"ip addr add 2001:db8:{n}::1/64 dev e{n} nodad")
            run(f"ip link set e{n} address 02:00:00:00:0{n}:01 up")
            run(f"ip -n {peer} link set e0 address 02:00:00:00:0{n}:02 up")
            run(f"ip -n {peer} addr add 10.0.{n}.2/24 dev e0")
            run(f"ip -n {peer} addr add 2001:db8:{n}::2/64 dev e0 nodad")
        deadline = time.monotonic() + 120
        for n in range(1, links + 1):  # it comes with the carrier, which the kernel sees to in its own time
            while not run(f"ip -6 route show 2001:db8:{n}::/64"):
                if time.monotonic() > deadline:
                    raise RuntimeError(f"link e{n} has no carrier")
                time.sleep(0.05)

    def ip(self, command):
        run(f"ip {command}")

    def neighbour(self, n, address, mac=None):
        self.ip(f"neigh replace {address} lladdr {mac or f'02:00:00:00:0{n}:02'} dev e{n} nud permanent")

    def start(self, *which):
        for name in which or ("pel-forwarderd", "pel-agentd"):
            arguments = {"pel-forwarderd": ["--source", *self.source, *self.forwarder_options],
                         "pel-agentd": ["--plugin", PLUGIN, "--listen", ADDRESS]}[name]
            with open(os.path.join(self.root, name + ".log"), "ab") as log:
                self.processes[name] = subprocess.Popen(
                    [os.path.join(BIN, name), "--root", self.root] + arguments,
                    stdout=log, stderr=log, stdin=subprocess.DEVNULL)
        return self

    def enable(self, on="true"):
        """What `pel up` does: switches the export on."""
        run(f"{os.path.join(BIN, 'pel')} config set aftExportEnabled {on} --root {self.root}")
        return self

    def toggle(self, file, name, on):
        """Before the processes start: they read it once."""
        os.makedirs(os.path.join(self.root, "toggles"), exist_ok=True)
        with open(os.path.join(self.root, "toggles", file), "w", encoding="utf-8") as out:
            json.dump({name: on}, out)

    def kill(self, name):
        process = self.processes.pop(name)
        process.send_signal(signal.SIGKILL)
        process.wait(60)

    def close(self):
        for name, process in list(self.processes.items()):
            process.send_signal(signal.SIGTERM)
        for name, process in list(self.processes.items()):
            try:
                process.wait(60)
            except subprocess.TimeoutExpired:
                process.kill()
        for name in self.peers:
            subprocess.run(["ip", "netns", "del", name], check=False)
        if os.environ.get("PEL_KEEP") is None:
            shutil.rmtree(self.root, ignore_errors=True)

    def logs(self):
        text = ""
        for name in ("pel-forwarderd", "pel-agentd"):
            path = os.path.join(self.root, name + ".log")
            if os.path.exists(path):
                with open(path, encoding="utf-8", errors="replace") as file:
                    text += f"--- {name}\n" + file.read()[-4000:]
        return text


def run(command):
    result = subprocess.run(command.split(), capture_output=True, text=True, timeout=120, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{command}: {result.stderr.strip() or result.stdout.strip()}")
    return result.stdout
