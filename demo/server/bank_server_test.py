#!/usr/bin/env python3
"""Start-up of the demo bank server: the published references and files,
option errors, a clean stop on SIGTERM, and (when the check client is given)
calls through every kind of object it serves."""

import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SERVER = sys.argv[1] if len(sys.argv) > 1 else "bank_server"
CHECK = sys.argv[2] if len(sys.argv) > 2 else None


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def start(port, *options):
    env = dict(os.environ, OMNIORB_CONFIG="/dev/null")
    return subprocess.Popen([SERVER, "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % port,
                             "-ORBmaxGIOPVersion", "1.0", *options],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)


def read_until_ready(proc, limit=10):
    lines = []
    deadline = time.time() + limit
    while time.time() < deadline:
        line = proc.stdout.readline()
        if not line:
            break
        lines.append(line.rstrip("\n"))
        if line.startswith("bank_server: ready"):
            return lines
    raise AssertionError("server not ready: %r %s" % (lines, proc.stderr.read() if proc.poll() is not None else ""))


class BankServer(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.proc = None

    def tearDown(self):
        if self.proc and self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        for stream in (self.proc.stdout, self.proc.stderr) if self.proc else ():
            stream.close()
        self.dir.cleanup()

    def test_publishes_references_and_stops_cleanly(self):
        port = free_port()
        ior = os.path.join(self.dir.name, "bank.ior")
        listing = os.path.join(self.dir.name, "bank.list")
        self.proc = start(port, "-ior", ior, "-iorlist", listing)
        lines = read_until_ready(self.proc)
        names = [l.split(" ")[0] for l in lines[:-1]]
        self.assertEqual(names, ["Bank", "Diagnostics", "Account/1001", "Account/1002",
                                 "SavingsAccount/1003", "Forward/Bank", "Forward/Diagnostics"])
        self.assertTrue(all(l.split(" ")[1].startswith("IOR:01") for l in lines[:-1]))
        with open(ior) as f:
            self.assertEqual(f.read().strip(), lines[0].split(" ")[1])
        with open(listing) as f:
            ids = [l.split(",")[0] for l in f.read().splitlines()]
        self.assertEqual(ids, ["IDL:Banking/Bank:1.0", "IDL:Banking/Diagnostics:1.0",
                               "IDL:Banking/Account:1.0", "IDL:Banking/SavingsAccount:1.0"])
        if CHECK:
            run = subprocess.run([CHECK, lines[0].split(" ")[1], lines[1].split(" ")[1],
                                  lines[5].split(" ")[1]], capture_output=True, text=True, timeout=30,
                                 env=dict(os.environ, OMNIORB_CONFIG="/dev/null"))
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.proc.wait(timeout=10), 0)

        # The same port gives the same references: objects keep their keys.
        self.proc.stdout.close()
        self.proc.stderr.close()
        self.proc = start(port)
        again = read_until_ready(self.proc)
        self.assertEqual(again, lines)

    @unittest.skipUnless(shutil.which("omniNames") and shutil.which("nameclt"), "omniNames not installed")
    def test_registers_with_the_naming_service(self):
        ns_port = free_port()
        env = dict(os.environ, OMNIORB_CONFIG="/dev/null")
        names = subprocess.Popen(["omniNames", "-start", str(ns_port), "-datadir", self.dir.name,
                                  "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % ns_port],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
        try:
            ns = "corbaloc::1.0@127.0.0.1:%d/NameService" % ns_port
            for _ in range(50):  # until omniNames listens
                with socket.socket() as s:
                    if s.connect_ex(("127.0.0.1", ns_port)) == 0:
                        break
                time.sleep(0.1)
            self.proc = start(free_port(), "-ORBInitRef", "NameService=" + ns, "-register")
            lines = read_until_ready(self.proc)
            listing = subprocess.run(["nameclt", "-ORBInitRef", "NameService=" + ns, "list"],
                                     capture_output=True, text=True, env=env, timeout=10)
            self.assertEqual(sorted(listing.stdout.split()), ["Bank", "Diagnostics"])
            bank = subprocess.run(["nameclt", "-ORBInitRef", "NameService=" + ns, "resolve", "Bank"],
                                  capture_output=True, text=True, env=env, timeout=10)
            self.assertEqual(bank.stdout.strip(), lines[0].split(" ")[1])
        finally:
            names.kill()
            names.wait()

    def test_bad_options_and_missing_naming_service_fail(self):
        self.proc = start(free_port(), "-frobnicate")
        self.assertEqual(self.proc.wait(timeout=10), 2)
        self.assertIn("unknown or incomplete option '-frobnicate'", self.proc.stderr.read())
        self.proc.stdout.close()
        self.proc.stderr.close()

        # Nobody listens on the naming service's port.
        ns = "corbaloc::1.0@127.0.0.1:%d/NameService" % free_port()
        self.proc = start(free_port(), "-ORBInitRef", "NameService=" + ns, "-register", "-quiet")
        self.assertEqual(self.proc.wait(timeout=30), 1)
        self.assertIn("cannot register with the naming service: TRANSIENT", self.proc.stderr.read())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
