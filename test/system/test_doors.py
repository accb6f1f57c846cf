"""What a command line, a directory, a port or a signal can do wrong to the three programs: each says what is
wrong and names it, none crashes or hangs, and what runs already goes on."""
import glob
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from lab import ADDRESS, BIN, PLUGIN

AGENT, FORWARDER, PEL = (os.path.join(BIN, name) for name in ("pel-agentd", "pel-forwarderd", "pel"))
EXAMPLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../forwarder/Scenario/example.yaml")
# Root without its privileges: it may go where root may, and do what permissions say.
UNPRIVILEGED = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]


def ended(command):
    """How it ended, and what it said. It must end by itself."""
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    return done.returncode, done.stderr + done.stdout


def until(condition, what):
    deadline = time.monotonic() + 90
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within 90 s: {what}")
        time.sleep(0.05)


class Doors(unittest.TestCase):
    def setUp(self):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        self.base = tempfile.mkdtemp(prefix="pel-doors-", dir="/dev/shm")
        os.chmod(self.base, 0o755)
        self.root = os.path.join(self.base, "root")
        self.running = []

    def tearDown(self):
        for process in self.running:
            process.kill()
            process.wait()
        shutil.rmtree(self.base, ignore_errors=True)

    def start(self, command):
        self.log = os.path.join(self.base, f"log{len(self.running)}")
        with open(self.log, "wb") as log:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.running.append(process)
        return process

    def said(self):
        with open(self.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    def agent(self, root=None, listen=ADDRESS):
        return [AGENT, "--plugin", PLUGIN, "--root", root or self.root, "--listen", listen]

    def forwarder(self, root=None):
        return [FORWARDER, "--source", "scenario", "--scenario", EXAMPLE, "--root", root or self.root]

    def status(self, root=None):
        code, text = ended([PEL, "show", "status", "--json", "--root", root or self.root])
        return json.loads(text) if code == 0 else None

    def answer(self):
        """The status, however long the agent takes to tell it."""
        told = []
        until(lambda: told.append(self.status()) or told[-1] is not None, "the agent answers")
        return told[-1]

    def serves(self, root=None):
        status = self.status(root)
        return status is not None and status["gnmi"]["port"] != 0

    def stops(self, process, how=signal.SIGTERM):
        process.send_signal(how)
        return process.wait(60)

    def test_a_command_line_without_sense_ends_with_2_and_says_what_is_wrong(self):
        agent, forwarder = [AGENT, "--plugin", PLUGIN], [FORWARDER]
        for command, word in [
                ([AGENT], "--plugin is required"),
                (agent + ["--fast"], "--fast"),
                (agent + ["stray"], "stray"),
                (agent + ["--root"], "--root"),
                (agent + ["--listen", "here"], "'here' is no numeric address"),
                (agent + ["--listen", "localhost:9339"], "'localhost:9339' is no numeric address"),
                (agent + ["--listen", "127.0.0.1:65536"], "127.0.0.1:65536"),
                (agent + ["--listen", "127.0.0.1:-1"], "127.0.0.1:-1"),
                (agent + ["--cell", "-1"], "--cell"),
                (agent + ["--cell", "one"], "--cell"),
                (agent + ["--cell", "4294967296"], "--cell"),
                (agent + ["--name", ""], "--name"),
                (agent + ["--name", "a/b"], "'a/b' is no name"),
                (agent + ["--default-instance", "a b"], "'a b' is no name"),
                (forwarder + ["--fast"], "--fast"),
                (forwarder + ["--root"], "--root"),
                (forwarder + ["--source", "heaven"], "heaven"),
                (forwarder + ["--cell", "-1"], "--cell")]:
            with self.subTest(command=command[1:]):
                code, text = ended(command)
                self.assertEqual(code, 2, text)
                self.assertIn(word, text)

    def test_what_cannot_be_started_ends_with_1_and_names_it(self):
        file = os.path.join(self.base, "file")
        with open(file, "w", encoding="utf-8"):
            pass
        locked = os.path.join(self.base, "locked")
        os.mkdir(locked, 0o555)
        taken = os.path.join(self.base, "taken")
        os.makedirs(os.path.join(taken, "control.sock"))
        far = os.path.join(self.base, "x" * 120)
        broken = os.path.join(self.base, "broken.yaml")
        with open(broken, "w", encoding="utf-8") as to:
            to.write("scenario: 1\nnextHopes: []\n")
        scenario = [FORWARDER, "--root", self.root, "--source", "scenario"]
        for command, word in [
                (self.agent(root=file), f"directory {file}: "),
                (self.forwarder(root=file), f"directory {file}: "),
                (self.agent(root=file + "/below"), f"directory {file}/below: "),
                (UNPRIVILEGED + self.agent(root=locked), f"{locked}/agent.lock: Permission denied"),
                (UNPRIVILEGED + self.forwarder(root=locked), f"{locked}/forwarder.lock: Permission denied"),
                (self.agent(root=taken), "control.sock: something that is no socket is in its place"),
                (self.agent(root=far), f"control socket {far}/control.sock: the path is longer than"),
                ([AGENT, "--root", self.root, "--plugin", "/nowhere/x.so"], "plug-in /nowhere/x.so: no such file"),
                ([AGENT, "--root", self.root, "--plugin", file], f"plug-in {file}: cannot be loaded"),
                (scenario, "one of --scenario FILE and --generate"),
                (scenario + ["--scenario", "/nowhere"], "/nowhere: cannot be read"),
                (scenario + ["--scenario", broken], f"{broken}:2:1: unknown key 'nextHopes'"),
                (scenario + ["--generate", "next-hops=many"], "--generate: "),
                ([PEL, "up", "--root", file, "--listen", ADDRESS], f"directory {file}: ")]:
            with self.subTest(command=command[1:]):
                code, text = ended(command)
                self.assertEqual(code, 1, text)
                self.assertIn(word, text)

    def on_a_file_system(self, options, command):
        """The command on a file system of its own, mounted on the root for it alone."""
        os.makedirs(self.root, exist_ok=True)
        script = f'mount -t tmpfs -o {options} none "$0" && exec "$@"'
        return ["unshare", "-m", "sh", "-c", script, self.root] + command

    def test_a_read_only_root_is_named(self):
        for command, word in [(self.agent(), "agent.lock: Read-only file system"),
                              (self.forwarder(), "forwarder.lock: Read-only file system"),
                              ([PEL, "config", "set", "aftExportEnabled", "true", "--root", self.root],
                               "Read-only file system")]:
            code, text = ended(self.on_a_file_system("ro", command))
            self.assertEqual(code, 1, text)
            self.assertIn(word, text)

    def test_an_agent_on_a_full_file_system_runs_without_a_trace_and_says_so(self):
        # A root of a few pages; the socket is seen from here through the process's own view.
        process = self.start(self.on_a_file_system("size=64k", self.agent()))
        root = f"/proc/{process.pid}/root{self.root}"
        until(lambda: self.serves(root) or process.poll() is not None, "the agent serves")
        self.assertIsNone(process.poll(), self.said())
        self.assertIn("cannot map trace file", self.said())
        self.assertIn("No space left on device", self.said())
        self.assertEqual(self.stops(process), 0)

    def test_a_forwarder_on_a_full_file_system_says_so_and_does_not_crash(self):
        process = self.start(self.on_a_file_system("size=64k", self.forwarder()))
        until(lambda: "state" in self.said() or "publishing" in self.said() or process.poll() is not None,
              "the forwarder says what is wrong")
        code = process.poll()
        # It may be on its way to its end when it is stopped.
        self.assertIn(self.stops(process) if code is None else code, (0, 1, -signal.SIGTERM), self.said())
        self.assertRegex(self.said(), "pel-forwarderd: .*(space|full|FULL|limit|Input/output)")

    def test_a_second_one_on_a_root_names_the_first_which_goes_on(self):
        first = self.start(self.agent())
        until(self.serves, "the first agent serves")
        code, text = ended(self.agent(listen="127.0.0.1:9340"))
        self.assertEqual(code, 1, text)
        self.assertIn(f"agent.lock: held by process {first.pid}", text)
        self.assertEqual(self.answer()["pid"], first.pid)
        forwarder = self.start(self.forwarder())
        until(lambda: os.path.exists(os.path.join(self.root, "state")), "the first forwarder publishes")
        code, text = ended(self.forwarder())
        self.assertEqual(code, 1, text)
        self.assertIn(f"forwarder.lock: held by process {forwarder.pid}", text)
        self.assertEqual([self.stops(forwarder), self.stops(first)], [0, 0])

    def test_a_root_has_one_kind_of_source(self):
        forwarder = self.start(self.forwarder())
        until(lambda: os.path.exists(os.path.join(self.root, "state", "data.mdb")), "a store")
        self.assertEqual(self.stops(forwarder), 0)
        code, text = ended([FORWARDER, "--source", "kernel", "--root", self.root])
        self.assertEqual(code, 1, text)
        self.assertIn(f"the store {self.root}/state belongs to the source 'scenario', not 'kernel'", text)

    def test_an_occupied_port_is_said_and_taken_once_it_is_free(self):
        other = socket.socket()
        other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        other.bind(("127.0.0.1", 9339))
        other.listen(1)
        self.start(self.agent())
        until(self.status, "the agent answers")
        self.assertIn("127.0.0.1:9339 is in use by another process", self.said())
        self.assertEqual(self.answer()["gnmi"]["port"], 0)
        other.close()
        until(self.serves, "the agent serves")

    def test_a_port_that_may_not_be_had_is_said_and_the_agent_runs_on(self):
        self.start(UNPRIVILEGED + self.agent(listen="127.0.0.1:80"))
        until(self.status, "the agent answers")
        self.assertIn("127.0.0.1:80: Permission denied", self.said())
        self.assertEqual(self.answer()["gnmi"]["port"], 0)

    def test_an_end_at_any_time_of_the_start_is_clean_and_the_next_start_works(self):
        for number, delay in enumerate([0, 0.002, 0.005, 0.01, 0.02, 0.03, 0.05, 0.08, 0.12, 0.2]):
            for command in (self.agent(), self.forwarder()):
                process = self.start(command)
                time.sleep(delay)  # whatever it has come to by then
                how = (signal.SIGTERM, signal.SIGINT)[number % 2]
                # Before it listens for signals they end it in the kernel's way, and nothing is lost by that.
                self.assertIn(self.stops(process, how), (0, -how), self.said())
        self.start(self.agent())
        until(self.serves, "the agent serves")

    def test_an_agent_that_is_killed_again_and_again_comes_back_and_leaves_a_bounded_trace(self):
        for _ in range(8):
            process = self.start(self.agent())
            until(self.serves, "the agent serves")
            self.stops(process, signal.SIGKILL)
            self.assertTrue(os.path.exists(os.path.join(self.root, "control.sock")))
            self.assertLessEqual(len(glob.glob(self.root + "/trace/*.bk")), 5)
        code, text = ended([PEL, "trace", "--root", self.root])
        self.assertEqual(code, 0, text[-500:])
        self.assertIn(f"of process {process.pid}, which has ended", text)
        self.assertIn("PelOpenConfigAgent", text)

    def test_closed_descriptors_are_no_places_to_write_to(self):
        def close_all():
            for fd in (0, 1, 2):
                os.close(fd)
        agent = subprocess.Popen(self.agent(), preexec_fn=close_all, close_fds=True)
        forwarder = subprocess.Popen(self.forwarder(), preexec_fn=close_all, close_fds=True)
        self.running += [agent, forwarder]
        until(self.serves, "the agent serves")
        until(lambda: self.answer()["state"].get("caughtUp"), "the agent has read the store")
        for process in (agent, forwarder):
            for fd in (0, 1, 2):
                self.assertEqual(os.readlink(f"/proc/{process.pid}/fd/{fd}"), "/dev/null")
            self.assertEqual(self.stops(process), 0)

    def test_a_reader_that_went_away_does_not_end_the_agent(self):
        read, write = os.pipe()
        os.close(read)
        self.running.append(subprocess.Popen(
            self.agent(), stdout=write, stderr=write))
        os.close(write)
        until(self.serves, "the agent serves")
        subprocess.run([PEL, "trace", "set", "*=9", "--root", self.root], check=True, capture_output=True)
        self.start(self.forwarder())
        until(lambda: self.answer()["state"].get("caughtUp"), "the agent has read the store")
        self.assertEqual(self.stops(self.running[0]), 0)


if __name__ == "__main__":
    unittest.main()
