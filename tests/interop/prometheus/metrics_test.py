#!/usr/bin/env python3
"""orbelle-run --metrics scraped by a real Prometheus server, on loopback
only: a run under a rate against the demo bank, a Prometheus that scrapes
the runner every half second, and at the end a PromQL query whose request
count is the one of the run's own table (its stats CSV).

    metrics_test.py BANK_SERVER ORBELLE_RUN SOURCE_DIR

Prometheus is Debian's `prometheus` package, which test.sh installs."""

import csv
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import urllib.request

SERVER, RUNNER, SOURCE = (sys.argv[1:4] + [None] * 3)[:3] if __name__ == "__main__" else (None,) * 3
PROMETHEUS = shutil.which("prometheus")
# Ceiling on the run and on Prometheus coming up: neither comes near it.
LIMIT_S = 40

SCRIPT = """\
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
"""


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(predicate, what, limit=LIMIT_S):
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline:
        if predicate():
            return
        time.sleep(0.1)
    raise AssertionError("timed out waiting for " + what)


class MetricsScrapedByPrometheus(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="orbelle-prom-")
        self.processes = []
        os.symlink(os.path.join(SOURCE, "demo", "idl"), os.path.join(self.dir, "idl"))
        with open(os.path.join(self.dir, "pair.orb"), "w") as f:
            f.write(SCRIPT)
        port = free_port()
        self.start([SERVER, "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % port,
                    "-iorlist", os.path.join(self.dir, "bank.iorlist")], "server.log")
        def listed():
            path = os.path.join(self.dir, "bank.iorlist")
            if not os.path.exists(path):
                return False
            with open(path) as f:
                return "Diagnostics" in f.read()
        wait_for(listed, "the bank server")

    def tearDown(self):
        for p in reversed(self.processes):
            if p.poll() is None:
                p.terminate()
                try:
                    p.wait(5)
                except subprocess.TimeoutExpired:
                    p.kill()
        shutil.rmtree(self.dir, ignore_errors=True)

    def start(self, args, log):
        with open(os.path.join(self.dir, log), "w") as out:
            p = subprocess.Popen(args, cwd=self.dir, stdout=out, stderr=subprocess.STDOUT)
        self.processes.append(p)
        return p

    def query(self, web, promql):
        url = "http://127.0.0.1:%d/api/v1/query?%s" % (web, urllib.parse.urlencode({"query": promql}))
        with urllib.request.urlopen(url, timeout=5) as r:
            answer = json.load(r)
        self.assertEqual(answer["status"], "success", answer)
        return answer["data"]["result"]

    def test_a_promql_query_counts_the_requests_of_the_table(self):
        self.assertIsNotNone(PROMETHEUS, "prometheus is not installed (apt-get install prometheus)")
        metrics, web = free_port(), free_port()
        with open(os.path.join(self.dir, "prometheus.yml"), "w") as f:
            f.write("global:\n  scrape_interval: 500ms\n  scrape_timeout: 400ms\n"
                    "scrape_configs:\n  - job_name: orbelle\n    static_configs:\n"
                    "      - targets: ['127.0.0.1:%d']\n" % metrics)
        self.start([PROMETHEUS, "--config.file=prometheus.yml",
                    "--storage.tsdb.path=" + os.path.join(self.dir, "data"),
                    "--web.listen-address=127.0.0.1:%d" % web], "prometheus.log")

        def ready():
            try:
                with urllib.request.urlopen("http://127.0.0.1:%d/-/ready" % web, timeout=1) as r:
                    return r.status == 200
            except OSError:
                return False
        wait_for(ready, "prometheus")

        # Prometheus hands its targets to the scraper some seconds after it
        # is ready; the run starts once the target is known, so that its
        # first second is scraped too.
        def known():
            url = "http://127.0.0.1:%d/api/v1/targets" % web
            with urllib.request.urlopen(url, timeout=1) as r:
                return bool(json.load(r)["data"]["activeTargets"])
        wait_for(known, "prometheus's target")

        run = subprocess.run([RUNNER, "--users", "3", "--rate", "60", "--duration", "4",
                              "--metrics", "127.0.0.1:%d" % metrics, "--metrics-hold", "3",
                              "--csv", "run", "pair.orb"],
                             cwd=self.dir, capture_output=True, text=True, timeout=LIMIT_S)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        with open(os.path.join(self.dir, "run_stats.csv")) as f:
            rows = {r["name"]: r for r in csv.DictReader(f)}
        requests = int(rows["all requests"]["count"])
        self.assertGreater(requests, 300)  # 2 requests x 60/s x 4 s, give or take

        counted = self.query(web, 'sum(last_over_time(orbelle_requests_total{job="orbelle"}[1m]))')
        self.assertEqual(int(float(counted[0]["value"][1])), requests, run.stdout)
        # The histograms hold every call of a name, by outcome, and the
        # gauges of the open model are there.
        echoes = self.query(web, 'sum(last_over_time(orbelle_duration_seconds_count'
                                 '{name="invoke echo_long twoway",outcome="ok"}[1m]))')
        self.assertEqual(int(float(echoes[0]["value"][1])),
                         int(rows["invoke echo_long twoway"]["count"]))
        target = self.query(web, "max_over_time(orbelle_target_iterations_per_second[1m])")
        self.assertEqual(float(target[0]["value"][1]), 60)
        users = self.query(web, "max_over_time(orbelle_users[1m])")
        self.assertEqual(float(users[0]["value"][1]), 3, users)
        self.assertTrue(self.query(web, "orbelle_dropped_iterations_total"))
        print("prometheus: sum(orbelle_requests_total) = %s, the table's all requests: %d"
              % (counted[0]["value"][1], requests))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
