#!/usr/bin/env python3
"""The update tests' web server: serves the files of ROOT over HTTPS (and plain HTTP, for
redirects that leave HTTPS), with a few paths that misbehave on purpose.

    https_server.py ROOT CERT KEY

Prints "PORTS <https> <http>" once listening, then one line "GET <path>" per request.
  /status/N/...      answers with status N
  /redirect/NAME     302 to NAME over HTTPS
  /to-http/NAME      302 to NAME over plain HTTP
  /empty             200 with an empty body
  /short/NAME        NAME's bytes under a Content-Length 1000 bytes larger, then closes
"""
import http.server
import os
import ssl
import sys
import threading

root, cert, key = sys.argv[1:4]
ports = {}
lock = threading.Lock()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def send_body(self, status, body, length=None, headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body) if length is None else length))
        self.end_headers()
        self.wfile.write(body)
        self.wfile.flush()

    def do_GET(self):
        with lock:
            print("GET " + self.path, flush=True)
        parts = self.path.lstrip("/").split("/", 1)
        rest = parts[1] if len(parts) > 1 else ""
        if parts[0] == "status":
            return self.send_body(int(rest.split("/")[0]), b"no")
        if parts[0] in ("redirect", "to-http"):
            scheme, port = ("https", ports["https"]) if parts[0] == "redirect" else ("http", ports["http"])
            location = "%s://127.0.0.1:%d/%s" % (scheme, port, rest)
            return self.send_body(302, b"", headers=[("Location", location)])
        if parts[0] == "empty":
            return self.send_body(200, b"")
        name = rest if parts[0] == "short" else self.path.lstrip("/")
        path = os.path.join(root, name)
        if not os.path.isfile(path):
            return self.send_body(404, b"missing")
        with open(path, "rb") as f:
            body = f.read()
        if parts[0] == "short":
            self.send_body(200, body, length=len(body) + 1000)
            self.close_connection = True
            return
        self.send_body(200, body)


def serve(server):
    server.serve_forever()


secure = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(cert, key)
secure.socket = context.wrap_socket(secure.socket, server_side=True)
plain = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
ports["https"] = secure.server_address[1]
ports["http"] = plain.server_address[1]
threading.Thread(target=serve, args=(plain,), daemon=True).start()
print("PORTS %d %d" % (ports["https"], ports["http"]), flush=True)
serve(secure)
