#!/usr/bin/env python3
"""HTTP peer for the CRL download tests: the client tests' server plus

  /crl/NAME        the file tests/data/crl/NAME (404 when there is none)
  /numbered/N      N bytes, every byte the number of this request (1, 2, ...)
                   modulo 256, sent in pieces with pauses, so that two
                   concurrent downloads overlap and differ
  /endless         200, chunked, a body that never ends
  /count           how many requests the server answered before this one

Prints its port on the first line, as the client tests' server does.
"""
import os
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "support", "net"))
import http_test_server as base  # noqa: E402

DATA = os.path.join(os.path.dirname(__file__), "..", "data", "crl")
lock = threading.Lock()
served = 0


class Handler(base.Handler):
    def route(self):
        global served
        parts = self.path.split("/")[1:]
        head = parts[0] if parts else ""
        arg = parts[1] if len(parts) > 1 else ""
        if head == "count":
            with lock:
                n = served
            return self.send_body(200, str(n).encode(), "text/plain")
        with lock:
            served += 1
            number = served
        if head == "crl":
            path = os.path.join(DATA, os.path.basename(arg))
            if not os.path.isfile(path):
                return self.send_body(404, b"no such CRL", "text/plain")
            with open(path, "rb") as f:
                return self.send_body(200, f.read(), "application/pkix-crl")
        if head == "numbered":
            n = int(arg)
            self.send_response(200)
            self.send_header("Content-Length", str(n))
            self.end_headers()
            piece = bytes([number & 0xFF]) * 65536
            for off in range(0, n, len(piece)):
                self.wfile.write(piece[:min(len(piece), n - off)])
                self.wfile.flush()
                time.sleep(0.01)
            return
        if head == "endless":
            self.send_response(200)
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            piece = b"\x30" * 65536
            try:
                while True:
                    self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
            except (BrokenPipeError, ConnectionResetError):
                self.close_connection = True
            return
        return base.Handler.route(self)


def main():
    server = base.Server(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
