#!/usr/bin/env python3
"""orbelle-record on real traffic: the demo's omniORB client (GIOP 1.2),
orbelle-run itself (GIOP 1.0) and a client on Combat, the ORB in Tcl,
captured on loopback with tshark while they call their servers; the
recorded scripts pass orbelle-run --check, run against a fresh server and
succeed, and every reference the client got from a reply is saved and used
by variable."""

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SERVER, CHECK, RUNNER, RECORDER, SOURCE, DEPOT_IDL = sys.argv[1:7]
DEMO = os.path.join(SOURCE, "demo")
ENV = dict(os.environ, OMNIORB_CONFIG="/dev/null")


def free_port():
    # Below the ephemeral range, so that no client connection takes it.
    for port in range(21000 + os.getpid() % 500, 24000):
        with socket.socket() as s:
            try:
                s.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise AssertionError("no free port")


class Server:
    """The demo bank on a port, in omniORB's default configuration, or the
    depot on Combat; its references by name, as it prints them."""

    def __init__(self, port, folder, combat=False):
        if combat:
            command = ["tclsh", os.path.join(SOURCE, "tests/interop/combat/depot_server.tcl"),
                       str(port)]
        else:
            command = [SERVER, "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % port, "-iorlist",
                       os.path.join(folder, "bank.iorlist")]
        self.proc = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                     text=True, env=ENV)
        self.iors = {}
        deadline = time.time() + 20
        while time.time() < deadline:
            line = self.proc.stdout.readline()
            if not line or line.rstrip().endswith("_server: ready"):
                break
            name, _, ior = line.strip().partition(" ")
            self.iors[name] = ior
        assert self.iors, "server not ready"

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        try:
            self.proc.wait(10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        self.proc.stdout.close()


class Capture:
    """tshark on loopback, for the server's port only."""

    def __init__(self, port, path):
        self.path = path
        self.log = open(path + ".log", "w+")
        self.proc = subprocess.Popen(["tshark", "-i", "lo", "-f", "tcp port %d" % port, "-w", path],
                                     stdout=self.log, stderr=subprocess.STDOUT)
        deadline = time.time() + 20
        while time.time() < deadline:
            self.log.seek(0)
            if "Capturing on" in self.log.read():
                break
            time.sleep(0.1)
        else:
            raise AssertionError("tshark did not start")
        # tshark may say so before its first packet is written: a bare
        # connection to the port (no GIOP, so nothing is recorded of it)
        # shows when packets reach the file.
        size = os.path.getsize(path) if os.path.exists(path) else 0
        while time.time() < deadline:
            with socket.create_connection(("127.0.0.1", port), timeout=2):
                pass
            time.sleep(0.2)
            if os.path.exists(path) and os.path.getsize(path) > size:
                return
        raise AssertionError("tshark captures nothing")

    def stop(self):
        time.sleep(0.5)  # the last segments reach the capture
        self.proc.send_signal(signal.SIGINT)
        self.proc.wait(20)
        self.log.close()


class Record(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        idl = DEPOT_IDL if "combat" in self._testMethodName else os.path.join(DEMO, "idl")
        os.symlink(idl, os.path.join(self.dir, "idl"))
        os.makedirs(os.path.join(self.dir, "run"))
        self.port = free_port()

    def tearDown(self):
        shutil.rmtree(self.dir, ignore_errors=True)

    def capture_and_replay(self, client, combat=False, record_args=()):
        """Captures client(server) against one server, records the capture,
        then runs the script against a fresh server on the same port."""
        cap = os.path.join(self.dir, "client.pcapng")
        server = Server(self.port, os.path.join(self.dir, "run"), combat)
        try:
            capture = Capture(self.port, cap)  # needs the server: it connects once
            try:
                client(server)
            finally:
                capture.stop()
        finally:
            server.stop()
        script = os.path.join(self.dir, "recorded.orb")
        rec = subprocess.run([RECORDER, "-C", self.dir, "-o", script, *record_args, cap],
                             capture_output=True, text=True, timeout=60)
        self.assertEqual(rec.returncode, 0, rec.stderr)
        with open(script) as f:
            text = f.read()
        check = subprocess.run([RUNNER, "--check", "-C", self.dir, script], capture_output=True,
                               text=True, timeout=60)
        self.assertEqual(check.returncode, 0, text + check.stdout + check.stderr)
        server = Server(self.port, os.path.join(self.dir, "run"), combat)
        try:
            run = subprocess.run([RUNNER, "-C", self.dir, script], capture_output=True, text=True,
                                 timeout=120)
        finally:
            server.stop()
        self.assertEqual(run.returncode, 0, text + run.stdout + run.stderr)
        return text

    def assert_references_saved(self, text, at_least):
        saved = re.findall(r"^save \S+ (\w+_ior)$", text, re.M)
        bound = re.findall(r"^bind \w+ \S+ \w+ IOR \$\{(\w+_ior)\}$", text, re.M)
        self.assertGreaterEqual(len(saved), at_least, text)
        self.assertEqual(saved, bound, text)

    def test_omniorb_client_giop_1_2(self):
        def bank_check(server):
            run = subprocess.run([CHECK, server.iors["Bank"], server.iors["Diagnostics"],
                                  server.iors["Forward/Bank"]],
                                 capture_output=True, text=True, timeout=60, env=ENV)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

        text = self.capture_and_replay(bank_check)
        # The references the client got from replies: the opened account
        # and the two it found.
        self.assert_references_saved(text, 3)
        self.assertIn("\nparams account2 history history^length=2 history[0]^length=4 "
                      "history[1]^length=2\n", text)
        self.assertIn("invoke expect=user  # IDL:Banking/InsufficientFunds:1.0", text)
        self.assertIn("# not decoded: echo_route on diagnostics: union a: unions are not decoded",
                      text)

    def test_orbelle_run_giop_1_0(self):
        def scripts(server):
            shutil.copy(os.path.join(DEMO, "scripts", "02-accounts.orb"), self.dir)
            run = subprocess.run([RUNNER, "-C", self.dir, "02-accounts.orb"],
                                 capture_output=True, text=True, timeout=60, cwd=self.dir)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

        # Its in values go to a data file, which the replay reads.
        text = self.capture_and_replay(scripts, record_args=("--data", "values.csv"))
        self.assertIn("\nparams account _get_owner\n", text)
        self.assertIn("\nset amount.amount ${recorded.deposit_amount_amount}\n", text)
        with open(os.path.join(self.dir, "values.csv")) as f:
            header, row = f.read().splitlines()
        self.assertEqual(row.split(",")[header.split(",").index("deposit_amount_amount")],
                         "250.500000")

    def test_combat_client(self):
        def depot_client(server):
            run = subprocess.run(["tclsh", os.path.join(SOURCE, "tests/interop/recorder/depot_client.tcl"),
                                  server.iors["Store"]],
                                 capture_output=True, text=True, timeout=60)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

        text = self.capture_and_replay(depot_client, combat=True)
        self.assert_references_saved(text, 1)
        self.assertIn("\nset a \"new text\"\n", text)
        self.assertIn("invoke expect=user  # IDL:Depot/Store/OutOfStock:1.0", text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
