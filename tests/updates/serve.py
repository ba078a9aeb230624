#!/usr/bin/env python3
"""The update server on loopback: serves a folder laid out by `dataprep serve-tree` on 127.0.0.1, on a free
port that it prints as its first line. Each --cut PATH is answered with its full length announced and only
half of its bytes sent before the connection closes, as a cut line would."""
import argparse
import functools
import http.server
import os
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    cut = set()

    def do_GET(self):
        if self.path not in self.cut:
            return super().do_GET()
        path = self.translate_path(self.path)
        with open(path, "rb") as f:
            data = f.read()
        self.send_response(200)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data[: len(data) // 2])
        self.wfile.flush()
        self.close_connection = True

    def log_message(self, *args):
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--cut", action="append", default=[])
    args = parser.parse_args()
    Handler.cut = set(args.cut)
    handler = functools.partial(Handler, directory=os.path.abspath(args.folder))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
