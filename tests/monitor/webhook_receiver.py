#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""webhook_receiver.py PORT FILE: receives Alertmanager's notifications on 127.0.0.1 and appends each alert to FILE, as one
line of JSON."""
import http.server
import json
import sys

port, path = int(sys.argv[1]), sys.argv[2]


class Receiver(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        with open(path, "a", encoding="utf-8") as file:
            for alert in json.loads(body)["alerts"]:
                file.write(json.dumps(alert) + "\n")
        self.send_response(200)
        self.end_headers()

    def log_message(self, *_):
        pass


http.server.HTTPServer(("127.0.0.1", port), Receiver).serve_forever()
