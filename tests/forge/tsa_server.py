#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""An RFC 3161 service on 127.0.0.1 for forge's tests, answering with
`openssl ts -reply`. The path chooses the answer: /good, /fraction (a
genTime with milliseconds), /reject (PKIStatus rejection), /nonce (the
token answers a request with another nonce), /http500.

    tsa_server.py WORK_DIR    (writes WORK_DIR/port once listening)
"""
import http.server
import os
import re
import subprocess
import sys

from der import der, parse

work = sys.argv[1]


def reply(section, query):
    with open(os.path.join(work, "query.tsq"), "wb") as f:
        f.write(query)
    subprocess.run(["openssl", "ts", "-reply", "-config", os.path.join(work, "tsa.cnf"), "-section", section,
                    "-queryfile", os.path.join(work, "query.tsq"), "-out", os.path.join(work, "reply.tsr")],
                   check=True, capture_output=True)
    with open(os.path.join(work, "reply.tsr"), "rb") as f:
        return f.read()


def other_nonce(query):
    """The same request with the last octet of its nonce (the INTEGER after
    the version and the imprint) changed."""
    root = parse(query)
    nonce = next(k for k in root[1][2:] if k[0] == 0x02)
    nonce[1] = nonce[1][:-1] + bytes([nonce[1][-1] ^ 1])
    return der(root)


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        query = self.rfile.read(int(self.headers["Content-Length"]))
        mode = self.path.strip("/")
        if mode == "http500":
            self.send_error(500)
            return
        if mode == "reject":
            body = bytes([0x30, 0x05, 0x30, 0x03, 0x02, 0x01, 0x02])
        elif mode == "nonce":
            body = reply("good", other_nonce(query))
        elif mode == "fraction":
            # a whole second gets no fraction: ask again until it has one
            for _ in range(10):
                body = reply("fraction", query)
                if re.search(rb"\x18.\d{14}\.\d+Z", body):
                    break
        else:
            body = reply("good", query)
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *args):
        pass


server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
with open(os.path.join(work, "port.tmp"), "w") as f:
    f.write(str(server.server_address[1]))
os.rename(os.path.join(work, "port.tmp"), os.path.join(work, "port"))
server.serve_forever()
