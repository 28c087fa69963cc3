"""The demo bank's customer visit (scripts/06-load.orb) as Locust users.

Start the bank server so that it writes run/bank.iorlist here, then, from
any folder:

    locust -f demo/locustfile.py --headless -u 8 -r 2 --run-time 30s --csv demo/run/locust

(README, "Scaling out", has the master and its workers.)"""

import os
import sys

here = os.path.dirname(os.path.abspath(__file__))
# In the checkout, the module beside the build tree; in a folder of its own
# on a worker machine, the one the package installed on Python's path.
sys.path.insert(0, os.path.join(here, "..", "tools", "locust"))

from locust import constant_pacing  # noqa: E402
from orbelle_locust import OrbelleUser  # noqa: E402


class Customer(OrbelleUser):
    scripts = ["scripts/06-load.orb"]
    workdir = here
    # The script's own "pace 300" is for orbelle-run --users; under Locust
    # the wait time sets the pace.
    wait_time = constant_pacing(0.3)
