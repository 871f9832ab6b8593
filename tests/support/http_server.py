#!/usr/bin/env python3
"""HTTP server of the tests, on the loopback interface.

usage: http_server.py PORT_FILE FOLDER [--detach]

Writes its port into PORT_FILE when it is ready. Ends by a GET of /stop, or after five minutes without a request.
  /files/NAME      a file of FOLDER, with ranges, ETag and Last-Modified
  /bytes/N         N bytes, byte i is i * 31 % 251, with ranges
  /norange/N       the same, whatever range is asked for
  /echo            the request's header lines
  /status/CODE     an empty answer with this status; 301 and 302 lead to /bytes/10
  /chunked/N       N bytes in chunks
  /cut/N           promises N bytes and closes after half of them
"""
import email.utils
import http.server
import os
import re
import sys
import threading
import time


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def send(self, body, status=200, headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def send_ranged(self, body, headers=()):
        headers = list(headers) + [("Accept-Ranges", "bytes")]
        match = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        if not match:
            return self.send(body, 200, headers)
        first = int(match[1])
        last = min(int(match[2]) if match[2] else len(body) - 1, len(body) - 1)
        if first > last:
            return self.send(b"", 416, headers + [("Content-Range", "bytes */%d" % len(body))])
        headers.append(("Content-Range", "bytes %d-%d/%d" % (first, last, len(body))))
        return self.send(body[first:last + 1], 206, headers)

    def do_GET(self):
        self.server.last_request = time.monotonic()
        parts = self.path.split("?")[0].strip("/").split("/", 1)
        kind, rest = parts[0], parts[1] if len(parts) > 1 else ""
        pattern = lambda n: (bytes(i * 31 % 251 for i in range(251)) * (n // 251 + 1))[:n]
        if kind == "files":
            path = os.path.join(self.server.folder, os.path.basename(rest))
            try:
                with open(path, "rb") as file:
                    body = file.read()
            except OSError:
                return self.send(b"", 404)
            stat = os.stat(path)
            return self.send_ranged(body, [("ETag", '"%x-%x"' % (stat.st_mtime_ns, stat.st_size)),
                                           ("Last-Modified", email.utils.formatdate(stat.st_mtime, usegmt=True))])
        if kind == "bytes":
            return self.send_ranged(pattern(int(rest)), [("X-Kiv-Test", "  some value ")])
        if kind == "norange":
            return self.send(pattern(int(rest)))
        if kind == "echo":
            return self.send(str(self.headers).encode())
        if kind == "status":
            extra = [("Location", "/bytes/10")] if rest in ("301", "302") else []
            return self.send(b"", int(rest), extra)
        if kind == "chunked":
            self.send_response(200)
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            body = pattern(int(rest))
            for i in range(0, len(body), 1000):
                part = body[i:i + 1000]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(part), part))
            self.wfile.write(b"0\r\n\r\n")
            return None
        if kind == "cut":
            self.send_response(200)
            self.send_header("Content-Length", rest)
            self.end_headers()
            self.wfile.write(pattern(int(rest) // 2))
            self.close_connection = True
            return None
        if kind == "stop":
            self.send(b"")
            threading.Thread(target=self.server.shutdown).start()
            return None
        return self.send(b"", 404)

    do_HEAD = do_GET


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, *_):
        pass  # a client that went away


def main():
    port_file, folder = sys.argv[1:3]
    server = Server(("127.0.0.1", 0), Handler)
    server.folder = folder
    server.last_request = time.monotonic()
    if "--detach" in sys.argv and os.fork() != 0:
        os._exit(0)
    if "--detach" in sys.argv:
        os.setsid()
        null = os.open(os.devnull, os.O_RDWR)
        for fd in (0, 1, 2):
            os.dup2(null, fd)
    with open(port_file + ".new", "w") as file:
        file.write("%d\n" % server.server_address[1])
    os.rename(port_file + ".new", port_file)

    def watch():
        # A whole run of the tests lies between two requests.
        while time.monotonic() - server.last_request < 3600:
            time.sleep(5)
        server.shutdown()

    threading.Thread(target=watch, daemon=True).start()
    server.serve_forever()


main()
