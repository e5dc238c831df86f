#!/usr/bin/env python3
"""HTTP peer for the client tests. Listens on 127.0.0.1, on a port the system
picks, and prints that port on the first line of its standard output.

Routes (GET unless noted):
  /bytes/N             N bytes of a fixed pattern, with Content-Length
  /chunked/N           the same N bytes, chunked, without Content-Length
  /redirect/K          302 chain of K hops ending at /bytes/100
  /redirect-to/CODE    a CODE redirect to /echo (any verb)
  /redirect-file       a redirect to a file: URL
  /status/CODE         that status, with a small error page as the body
  /slow/SECONDS        sleeps, then answers "late"
  /truncated           announces 1000 bytes, sends 100, closes
  /gzip                a gzip-encoded body, labelled Content-Encoding: gzip
  /headers             the request headers as "Name: value" lines
  /echo                (any verb) the request body back, with the request's
                       method and content type in X-Echo-Method and
                       X-Echo-Content-Type
"""
import gzip
import http.server
import sys
import time


def pattern(n):
    return bytes((i * 7 + 3) & 0xFF for i in range(n))


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def send_body(self, code, body, ctype="application/octet-stream", extra=()):
        self.send_response(code)
        self.send_header("Content-Type", ctype)
        self.send_header("Content-Length", str(len(body)))
        for name, value in extra:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def redirect(self, code, location):
        self.send_response(code)
        self.send_header("Location", location)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def read_body(self):
        n = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(n) if n else b""

    def route(self):
        parts = self.path.split("/")[1:]
        head = parts[0] if parts else ""
        arg = parts[1] if len(parts) > 1 else ""
        if head == "echo":
            body = self.read_body()
            extra = (("X-Echo-Method", self.command),
                     ("X-Echo-Content-Type", self.headers.get("Content-Type", "")))
            return self.send_body(200, body, extra=extra)
        self.read_body()
        if head == "bytes":
            return self.send_body(200, pattern(int(arg)))
        if head == "chunked":
            self.send_response(200)
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            data = pattern(int(arg))
            for i in range(0, len(data), 4096):
                piece = data[i:i + 4096]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
            self.wfile.write(b"0\r\n\r\n")
            return
        if head == "redirect":
            k = int(arg)
            return self.redirect(302, "/bytes/100" if k <= 1 else "/redirect/%d" % (k - 1))
        if head == "redirect-file":
            return self.redirect(302, "file:///etc/hostname")
        if head == "redirect-to":
            return self.redirect(int(arg), "/echo")
        if head == "status":
            code = int(arg)
            return self.send_body(code, b"<html>error page %d</html>" % code, "text/html")
        if head == "slow":
            time.sleep(float(arg))
            return self.send_body(200, b"late")
        if head == "truncated":
            self.send_response(200)
            self.send_header("Content-Length", "1000")
            self.end_headers()
            self.wfile.write(pattern(100))
            self.wfile.flush()
            self.close_connection = True
            return
        if head == "gzip":
            return self.send_body(200, gzip.compress(pattern(5000)),
                                  extra=(("Content-Encoding", "gzip"),))
        if head == "headers":
            text = "".join("%s: %s\n" % (k, v) for k, v in self.headers.items())
            return self.send_body(200, text.encode(), "text/plain")
        return self.send_body(404, b"no such route", "text/plain")

    def handle_one_request(self):
        try:
            super().handle_one_request()
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def do_GET(self):
        self.route()

    do_POST = do_PUT = do_DELETE = do_PATCH = do_HEAD = do_GET


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True


def main():
    server = Server(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
