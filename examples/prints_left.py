#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""prints_left.py [QUEUE...]: how many prints each queue can make now, and whether a booth should offer any."""
import json
import subprocess
import sys


def read_queues(names):
    """Asks the printers whose values are older than a minute. Yields each queue of the monitor's JSON."""
    # The exit statuses 1 to 3 report a condition of a printer: they are not failures, so no check=True.
    run = subprocess.run(["brenvellis-monitor", "--json", "--max-age", "60", "--", *names], stdout=subprocess.PIPE)
    if run.returncode not in (0, 1, 2, 3):
        sys.exit(f"brenvellis-monitor failed with status {run.returncode}")
    report = json.loads(run.stdout)
    if report["schema"] != 1:
        sys.exit(f"unknown schema {report['schema']}")
    for server in report["servers"]:
        if server["error"]:
            print(f"{server['server']}: {server['error']}", file=sys.stderr)
        yield from server["queues"]


for queue in read_queues(sys.argv[1:]):
    prints = queue["ribbon"]["prints_remaining"]  # None if it is not known
    ready = prints and queue["status"] in (0, 1) and queue["accepting_jobs"]
    print(f"{queue['queue']}: {'?' if prints is None else prints} prints left, {'ready' if ready else 'not ready'}, "
          f"read {queue['ribbon']['read_at'] or 'never'}")
    for error in queue["errors"]:
        print(f"  error {error['group']}, code {error['code']}")
