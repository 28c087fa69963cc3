#!/usr/bin/env python3
"""Orbelle's Locust users against the demo bank server, on loopback only:
a headless master with two workers whose final CSV totals match what the
users' own orbelle-run children counted and what the server served; a master
with its web UI whose statistics answer during a run, in microseconds; a
worker killed with SIGKILL that leaves no child behind; users that stop
cleanly when their unique data rows run out.

    orbelle_locust_test.py BANK_SERVER ORBELLE_RUN SOURCE_DIR

Exits 77 (skipped) where Locust is not installed."""

import csv
import glob
import json
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
import urllib.request

SERVER, RUNNER, SOURCE = (sys.argv[1:4] + [None] * 3)[:3] if __name__ == "__main__" else (None,) * 3
LOCUST = shutil.which("locust")
# Ceiling on any one Locust process of these tests: none should come near it.
PROCESS_LIMIT_S = 40

LOCUSTFILE = """\
import sys
sys.path.insert(0, {module_dir!r})
from locust import between
from orbelle_locust import OrbelleUser

class Teller(OrbelleUser):
    scripts = ["teller.orb"]
    wait_time = between(0.01, 0.03)
    output = "out"

class Rows(OrbelleUser):
    scripts = ["rows.orb"]
    users_total = 2
    output = "out"
"""

# Each iteration: a timed pair of calls with a check, and a call that fails
# with TRANSIENT, which ends the iteration.
TELLER = """\
bind diag IDL:Banking/Diagnostics:1.0 Diagnostics "FILE(bank.iorlist)"
begin pair
params diag echo_long
set a ${ITERATION}
set c ${VU}
invoke
check ^echo_long ${ITERATION}
params diag echo_short
set a 1
set c 2
invoke
end pair
params diag fail
set which 7
invoke
"""

ROWS = """\
data rows.csv unique
bind diag IDL:Banking/Diagnostics:1.0 Diagnostics "FILE(bank.iorlist)"
params diag echo_long
set a ${n}
set c ${VU}
invoke
"""


# Run by Locust's own interpreter: a user's reader lets other greenlets run
# while a child floods it, splits lines across reads, drops a last line cut
# short and refuses an endless one.
READER_CHECK = """\
import json, os, sys
sys.path.insert(0, sys.argv[1])
import gevent
import orbelle_locust as m

def read_all(path):
    reader, lines, seen = m._LineReader(os.open(path, os.O_RDONLY)), [], []
    ticker = gevent.spawn(lambda: [seen.append(len(lines)) or gevent.sleep(0) for _ in iter(int, 1)])
    try:
        while (line := reader.next_line()) is not None:
            lines.append(line)
    except ValueError as e:
        return {"error": str(e)}
    finally:
        ticker.kill()
    return {"lines": len(lines), "last": lines[-1].decode(), "first_tick": min(seen, default=-1)}

print(json.dumps([read_all(p) for p in sys.argv[2:]]))
"""


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(predicate, seconds, step=0.05):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(step)
    return predicate()


def live_children_of(pid):
    """Processes whose parent is pid, zombies left out."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/stat" % entry) as f:
                stat = f.read()
        except OSError:
            continue
        fields = stat[stat.rfind(")") + 2:].split()
        if fields[0] != "Z" and int(fields[1]) == pid:
            found.append(int(entry))
    return found


def alive(pid):
    try:
        with open("/proc/%d/stat" % pid) as f:
            stat = f.read()
    except OSError:
        return False
    return stat[stat.rfind(")") + 2] != "Z"


def child_summaries(folder):
    """count and failures per name, summed over the users' own summaries."""
    totals = {}
    for path in glob.glob(os.path.join(folder, "vu-*.txt")):
        with open(path) as f:
            for line in f:
                m = re.match(r"((?:invoke|check|transaction) \S+(?: \S+)?)\s+(\d+)\s+(\d+)", line)
                if m:
                    count, failed = totals.get(m.group(1), (0, 0))
                    totals[m.group(1)] = (count + int(m.group(2)), failed + int(m.group(3)))
    return totals


class LocustUsers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.mkdtemp(prefix="orbelle-locust-")
        os.symlink(os.path.join(SOURCE, "demo", "idl"), os.path.join(cls.dir, "idl"))
        files = {"locustfile.py": LOCUSTFILE.format(module_dir=os.path.join(SOURCE, "tools", "locust")),
                 "teller.orb": TELLER, "rows.orb": ROWS, "rows.csv": "n\n10\n20\n30\n",
                 "count.orb": "bind diag IDL:Banking/Diagnostics:1.0 Diagnostics \"FILE(bank.iorlist)\"\n"
                              "params diag requests_served\ninvoke\ncheck ^requests_served < 0\n"}
        for name, text in files.items():
            with open(os.path.join(cls.dir, name), "w") as f:
                f.write(text)
        cls.env = dict(os.environ, OMNIORB_CONFIG="/dev/null", ORBELLE_RUN=RUNNER)
        cls.env.pop("ORBELLE_LOCUST_UNIT", None)
        log = open(os.path.join(cls.dir, "server.txt"), "w")
        cls.server = subprocess.Popen(
            [SERVER, "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % free_port(), "-ORBmaxGIOPVersion",
             "1.0", "-iorlist", os.path.join(cls.dir, "bank.iorlist")],
            stdout=log, stderr=subprocess.STDOUT, env=cls.env)
        log.close()
        ready = wait_for(lambda: "bank_server: ready" in cls.read("server.txt"), 10)
        if not ready:
            cls.tearDownClass()
            raise AssertionError("bank_server did not start: " + cls.read("server.txt"))

    @classmethod
    def tearDownClass(cls):
        cls.server.kill()
        cls.server.wait()
        shutil.rmtree(cls.dir, ignore_errors=True)

    @classmethod
    def read(cls, name):
        try:
            with open(os.path.join(cls.dir, name)) as f:
                return f.read()
        except OSError:
            return ""

    def setUp(self):
        self.processes = []
        shutil.rmtree(os.path.join(self.dir, "out"), ignore_errors=True)

    def tearDown(self):
        for p in self.processes:
            if p.poll() is None:
                p.kill()
            p.wait()

    def locust(self, log, *args, env=None):
        with open(os.path.join(self.dir, log), "w") as out:
            p = subprocess.Popen([LOCUST, "-f", "locustfile.py", *args], cwd=self.dir, stdout=out,
                                 stderr=subprocess.STDOUT, env=env or self.env)
        self.processes.append(p)
        return p

    def finish(self, p, log):
        try:
            return p.wait(timeout=PROCESS_LIMIT_S)
        except subprocess.TimeoutExpired:
            p.kill()
            self.fail("locust did not end:\n" + self.read(log)[-3000:])

    def requests_served(self):
        """The server's count of the requests it served, this question included."""
        run = subprocess.run([RUNNER, "count.orb"], cwd=self.dir, env=self.env, capture_output=True,
                             text=True, timeout=20)
        m = re.search(r"got '(\d+)'", run.stdout + run.stderr)
        self.assertIsNotNone(m, run.stdout + run.stderr)
        return int(m.group(1))

    def csv_rows(self, name):
        with open(os.path.join(self.dir, name)) as f:
            return list(csv.DictReader(f))

    def test_a_headless_master_counts_what_the_children_and_the_server_counted(self):
        before = self.requests_served()
        port = free_port()
        master = self.locust("master.txt", "Teller", "--master", "--master-bind-host", "127.0.0.1",
                             "--master-bind-port", str(port), "--headless", "--expect-workers", "2",
                             "-u", "4", "-r", "4", "--run-time", "10s", "--stop-timeout", "2",
                             "--csv", "run", "--csv-full-history", "--only-summary")
        workers = [self.locust("worker%d.txt" % i, "Teller", "--worker", "--master-host", "127.0.0.1",
                               "--master-port", str(port)) for i in (1, 2)]
        status = self.finish(master, "master.txt")
        for i, w in enumerate(workers, 1):
            self.assertEqual(self.finish(w, "worker%d.txt" % i), 0, self.read("worker%d.txt" % i))
        served = self.requests_served() - before - 1
        log = self.read("master.txt")
        self.assertEqual(status, 1, log)  # the failing call is a failure
        self.assertNotIn("pre 2.0", log)

        # Users numbered 1 to 4 across the two workers, each child ended
        # cleanly with its summary.
        outputs = sorted(os.listdir(os.path.join(self.dir, "out")))
        self.assertEqual(outputs, ["vu-1.txt", "vu-2.txt", "vu-3.txt", "vu-4.txt"])
        for name in outputs:
            self.assertIn("FAILED:", self.read("out/" + name), name)

        children = child_summaries(os.path.join(self.dir, "out"))
        stats = {row["Name"]: row for row in self.csv_rows("run_stats.csv")}
        self.assertEqual(set(stats), {"invoke echo_long twoway", "invoke echo_short twoway",
                                      "check ^echo_long", "transaction pair", "invoke fail twoway",
                                      "Aggregated"}, stats)
        for name, (count, failed) in children.items():
            if name.startswith(("invoke", "check", "transaction")):
                self.assertEqual((int(stats[name]["Request Count"]), int(stats[name]["Failure Count"])),
                                 (count, failed), name)
        calls = children["invoke echo_long twoway"][0]
        self.assertGreater(calls, 100)
        self.assertEqual(children["invoke fail twoway"], (calls, calls))
        self.assertEqual(children["transaction pair"], (calls, 0))
        self.assertEqual(served, 3 * calls)
        self.assertEqual(int(stats["Aggregated"]["Request Count"]), 5 * calls)

        # (A master quotes the text its workers report.)
        failures = self.csv_rows("run_failures.csv")
        self.assertEqual([(f["Name"], f["Error"].strip("'"), int(f["Occurrences"])) for f in failures],
                         [("invoke fail twoway", "IDL:omg.org/CORBA/TRANSIENT:1.0", calls)])
        # The history holds a row a second and ends with the final totals.
        history = [r for r in self.csv_rows("run_stats_history.csv") if r["Name"] == "Aggregated"]
        self.assertGreaterEqual(len(history), 8)
        self.assertEqual(int(history[-1]["Total Request Count"]), 5 * calls)

    def test_b_the_web_ui_answers_during_a_run_and_a_killed_worker_leaves_no_child(self):
        port, web = free_port(), free_port()
        env = dict(self.env, ORBELLE_LOCUST_UNIT="us")
        master = self.locust("master.txt", "Teller", "--master", "--master-bind-host", "127.0.0.1",
                             "--master-bind-port", str(port), "--web-host", "127.0.0.1",
                             "--web-port", str(web), "--autostart", "--expect-workers", "2",
                             "-u", "4", "-r", "4", env=env)
        workers = [self.locust("worker%d.txt" % i, "Teller", "--worker", "--master-host", "127.0.0.1",
                               "--master-port", str(port), env=env) for i in (1, 2)]

        def stats():
            try:
                with urllib.request.urlopen("http://127.0.0.1:%d/stats/requests" % web, timeout=2) as r:
                    report = json.load(r)
            except OSError:
                return None
            rows = {(s["method"], s["name"]): s for s in report["stats"]}
            row = rows.get(("CORBA (us)", "invoke echo_long twoway"))
            return row if row and row["num_requests"] > 20 and report["user_count"] == 4 else None

        row = wait_for(stats, 20, step=0.5)
        self.assertIsNotNone(row, self.read("master.txt"))
        # Microseconds: a call on loopback takes more than 10 us and less
        # than a second.
        self.assertGreater(row["min_response_time"], 10)
        self.assertLess(row["avg_response_time"], 1e6)

        children = wait_for(lambda: len(live_children_of(workers[0].pid)) == 2 and
                            live_children_of(workers[0].pid), 5)
        self.assertTrue(children, "worker 1 runs two orbelle-run children")
        workers[0].send_signal(signal.SIGKILL)
        workers[0].wait()
        self.assertTrue(wait_for(lambda: not any(alive(c) for c in children), 2),
                        "orbelle-run outlived its worker")

        # SIGTERM on the master quits the other worker, which ends its users.
        children = live_children_of(workers[1].pid)
        self.assertEqual(len(children), 2)
        master.send_signal(signal.SIGTERM)
        self.finish(master, "master.txt")
        self.finish(workers[1], "worker2.txt")
        self.assertFalse(any(alive(c) for c in children))

    def test_c_users_stop_when_their_unique_rows_run_out(self):
        before = self.requests_served()
        p = self.locust("alone.txt", "Rows", "--headless", "-u", "2", "-r", "2", "--run-time", "4s",
                        "--csv", "alone", "--only-summary")
        status = self.finish(p, "alone.txt")
        log = self.read("alone.txt")
        self.assertEqual(status, 0, log)
        self.assertEqual(log.count("no data row is left for this user"), 2, log)
        # Rows 1 and 3 for user 1, row 2 for user 2: three calls in all.
        stats = {row["Name"]: row for row in self.csv_rows("alone_stats.csv")}
        self.assertEqual(int(stats["invoke echo_long twoway"]["Request Count"]), 3)
        self.assertEqual(self.csv_rows("alone_exceptions.csv"), [])
        self.assertEqual(self.requests_served() - before - 1, 3)

    def test_d_a_reader_shares_the_worker_and_takes_only_whole_lines(self):
        files = {"flood.txt": b'{"kind": "call"}\n' * 100000 + b"cut", "long.txt": b"x" * (3 << 20)}
        for name, data in files.items():
            with open(os.path.join(self.dir, name), "wb") as f:
                f.write(data)
        with open(LOCUST) as f:
            python = f.readline()[2:].strip()
        run = subprocess.run([python, "-c", READER_CHECK, os.path.join(SOURCE, "tools", "locust"),
                              *(os.path.join(self.dir, n) for n in files)],
                             capture_output=True, text=True, timeout=30)
        self.assertEqual(run.returncode, 0, run.stderr)
        flood, long = json.loads(run.stdout)
        self.assertEqual((flood["lines"], flood["last"]), (100000, '{"kind": "call"}'))
        self.assertTrue(0 <= flood["first_tick"] < 1000, flood)
        self.assertIn("longer than", long.get("error", ""))


if __name__ == "__main__":
    if LOCUST is None:
        print("SKIPPED: locust is not installed (Debian: python3-locust)")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
