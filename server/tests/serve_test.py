#!/usr/bin/env python3
"""`eqdrc serve` over HTTP on 127.0.0.1: the guard's status codes, writes that are
always whole, and a server that keeps answering.

    serve_test.py EQDRC [unittest arguments]
"""
import http.client
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

EQDRC = sys.argv.pop(1) if len(sys.argv) > 1 else "build/tools/eqdrc/eqdrc"
HERE = os.path.dirname(os.path.abspath(__file__))
REFERENCE = os.path.join(HERE, "..", "..", "tunings", "reference.bin")
TOKEN = "0123456789abcdef" * 4


class Server:
    """One `eqdrc serve` on a free loopback port over a copy of the reference tuning."""

    def __init__(self, folder, *extra, token=False):
        self.folder = folder
        self.tuning = os.path.join(folder, "speaker.json")
        subprocess.run([EQDRC, "tuning", "decompile", REFERENCE, "-o", self.tuning], check=True)
        self.site = os.path.join(folder, "site")
        os.makedirs(self.site, exist_ok=True)
        with open(os.path.join(self.site, "index.html"), "w") as f:
            f.write("<p>studio</p>")
        args = [EQDRC, "serve", "--tuning", self.tuning, "--listen", "127.0.0.1:0", "--site", self.site, *extra]
        if token:
            path = os.path.join(folder, "token")
            with open(path, "w") as f:
                f.write(TOKEN + "\n")
            args += ["--token-file", path]
        self.proc = subprocess.Popen(args, stderr=subprocess.PIPE, text=True)
        line = self.proc.stderr.readline()
        m = re.search(r"http://127\.0\.0\.1:(\d+)/", line)
        assert m, line
        self.port = int(m.group(1))
        self.host = f"127.0.0.1:{self.port}"
        self.log = []
        threading.Thread(target=lambda: self.log.extend(self.proc.stderr), daemon=True).start()

    def request(self, method, path, body=None, headers=None, timeout=10):
        c = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        c.putrequest(method, path, skip_host=True, skip_accept_encoding=True)
        h = {"Host": self.host, **(headers or {})}
        if body is not None:
            body = body.encode() if isinstance(body, str) else body
            h["Content-Length"] = str(len(body))
        for k, v in h.items():
            if v is not None:
                c.putheader(k, v)
        c.endheaders(body)
        r = c.getresponse()
        data = r.read()
        c.close()
        return r.status, dict(r.getheaders()), data

    def get_tuning(self, headers=None):
        status, h, body = self.request("GET", "/api/tuning", headers=headers)
        assert status == 200, (status, body)
        return h["ETag"], json.loads(body)

    def put(self, doc, etag, headers=None):
        return self.request("PUT", "/api/tuning", json.dumps(doc), {"If-Match": etag, **(headers or {})})

    def log_lines(self, word, count):
        """The log's lines with `word`, once `count` of them came (or 10 s passed)."""
        deadline = time.monotonic() + 10
        while len([l for l in self.log if word in l]) < count and time.monotonic() < deadline:
            time.sleep(0.05)
        return [l for l in self.log if word in l]

    def stop(self, sig=signal.SIGTERM):
        self.proc.send_signal(sig)
        return self.proc.wait(timeout=10)


def slurp(path):
    with open(path, "rb") as f:
        return f.read()


def with_fc(doc, fc):
    """The tuning with its first channel's fifth EQ band at `fc` Hz: a marker per write."""
    doc = json.loads(json.dumps(doc))
    doc["eq10"]["channels"][0]["bands"][4]["fc"] = fc
    return doc


class Guard(unittest.TestCase):
    """Each rule a client can run into, with its status code."""

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.server = Server(self.dir.name, token=True)
        self.auth = {"Authorization": "Bearer " + TOKEN}

    def tearDown(self):
        self.assertEqual(self.server.stop(), 0)
        self.dir.cleanup()

    def test_token_host_and_origin(self):
        s = self.server
        self.assertEqual(s.request("GET", "/api/tuning")[0], 401)
        self.assertEqual(s.request("GET", "/api/tuning", headers={"Authorization": "Bearer " + TOKEN[:-1] + "0"})[0], 401)
        self.assertEqual(s.request("GET", "/api/status?token=" + TOKEN)[0], 200)
        # DNS rebinding: a name that is not this server's, whatever its port
        self.assertEqual(s.request("GET", "/api/tuning", headers={**self.auth, "Host": "evil.example:%d" % s.port})[0], 403)
        self.assertEqual(s.request("GET", "/api/tuning", headers={**self.auth, "Host": None})[0], 403)
        # a page from another site, even with the token in hand
        etag, doc = s.get_tuning(self.auth)
        status, _, _ = s.put(doc, etag, {**self.auth, "Origin": "http://evil.example"})
        self.assertEqual(status, 403)
        self.assertEqual(s.put(doc, etag, {**self.auth, "Origin": "http://" + s.host})[0], 200)
        self.assertEqual(s.request("GET", "/api/tuning", headers={**self.auth, "Host": "localhost:1"})[0], 200)

    def test_writes_refused_leave_the_file(self):
        s = self.server
        etag, doc = s.get_tuning(self.auth)
        before = slurp(s.tuning)
        self.assertEqual(s.request("PUT", "/api/tuning", json.dumps(doc), self.auth)[0], 428)
        self.assertEqual(s.put(doc, '"0000000000000000"', self.auth)[0], 412)
        self.assertEqual(s.request("PUT", "/api/tuning", "{not json", {**self.auth, "If-Match": etag})[0], 400)
        bad = with_fc(doc, -5.0)
        status, _, body = s.put(bad, etag, self.auth)
        self.assertEqual(status, 422)
        self.assertTrue(any("eq10.channels[0].bands[4].fc" in e for e in json.loads(body)["errors"]))
        big = json.dumps(doc) + " " * (64 * 1024)
        self.assertEqual(s.request("PUT", "/api/tuning", big, {**self.auth, "If-Match": etag})[0], 413)
        self.assertEqual(slurp(s.tuning), before)
        # a write names the version it replaces; the old name is stale afterwards
        status, headers, _ = s.put(with_fc(doc, 1100.0), etag, self.auth)
        self.assertEqual(status, 200)
        self.assertNotEqual(headers["ETag"], etag)
        self.assertEqual(s.put(with_fc(doc, 1200.0), etag, self.auth)[0], 412)
        self.assertEqual(json.loads(slurp(s.tuning))["eq10"]["channels"][0]["bands"][4]["fc"], 1100.0)
        writes = s.log_lines(" wrote ", 1)
        self.assertEqual(len(writes), 1)
        self.assertIn(etag + " -> " + headers["ETag"], writes[0])

    def test_static_files_stay_in_the_site(self):
        s = self.server
        self.assertEqual(s.request("GET", "/")[0], 200)
        with open(os.path.join(self.dir.name, "secret"), "w") as f:
            f.write("x")
        os.symlink(os.path.join(self.dir.name, "secret"), os.path.join(s.site, "link"))
        for path in ["/link", "/../secret", "/%2e%2e/secret", "/..%2fsecret", "/nothing", "/api/nothing"]:
            self.assertEqual(s.request("GET", path, headers=self.auth)[0], 404, path)
        self.assertEqual(s.request("PUT", "/index.html", "x", self.auth)[0], 405)


class Endurance(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()

    def tearDown(self):
        self.dir.cleanup()

    def test_concurrent_writers_leave_whole_tunings(self):
        s = Server(self.dir.name)
        _, doc = s.get_tuning()
        submitted = {doc["eq10"]["channels"][0]["bands"][4]["fc"]: doc}
        for i in range(1000):
            submitted[1000.0 + i] = with_fc(doc, 1000.0 + i)
        statuses, seen, done = [], [], threading.Event()

        def writer(k):
            for i in range(k, 1000, 8):
                statuses.append(s.put(submitted[1000.0 + i], "*")[0])

        def reader():
            while not done.is_set():
                with open(s.tuning) as f:
                    on_disk = json.load(f)  # never a part: json.load would fail
                seen.append(on_disk == submitted[on_disk["eq10"]["channels"][0]["bands"][4]["fc"]])

        threads = [threading.Thread(target=writer, args=(k,)) for k in range(8)]
        watcher = threading.Thread(target=reader)
        watcher.start()
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        done.set()
        watcher.join()
        self.assertEqual(statuses.count(200), 1000)
        self.assertTrue(seen and all(seen))
        self.assertEqual(s.request("GET", "/api/status")[0], 200)
        self.assertEqual(len(s.log_lines(" wrote ", 1000)), 1000)
        self.assertEqual([f for f in os.listdir(self.dir.name) if "eqdrc-" in f], [])
        self.assertEqual(s.stop(), 0)

    def test_idle_connections_do_not_block_others(self):
        s = Server(self.dir.name)
        idle = [socket.create_connection(("127.0.0.1", s.port)) for _ in range(40)]
        idle[0].sendall(b"GET / HTTP/1.1\r\nHost: ")  # and a request that never ends
        t0 = time.monotonic()
        self.assertEqual(s.request("GET", "/api/status", timeout=20)[0], 200)
        self.assertLess(time.monotonic() - t0, 8)
        for c in idle:
            c.close()
        self.assertEqual(s.stop(), 0)

    def test_killed_mid_write_leaves_old_or_new(self):
        s = Server(self.dir.name)
        etag, doc = s.get_tuning()
        versions = [json.dumps(doc, sort_keys=True)] + [json.dumps(with_fc(doc, 2000.0 + i), sort_keys=True)
                                                        for i in range(200)]

        def writer():
            for i in range(200):
                try:
                    s.put(with_fc(doc, 2000.0 + i), "*")
                except (OSError, http.client.HTTPException):
                    return

        t = threading.Thread(target=writer)
        t.start()
        time.sleep(0.3)
        s.stop(signal.SIGKILL)
        t.join()
        self.assertIn(json.dumps(json.loads(slurp(s.tuning)), sort_keys=True), versions)

    def test_refuses_to_start_unsafely(self):
        folder = self.dir.name
        tuning = os.path.join(folder, "t.json")
        subprocess.run([EQDRC, "tuning", "decompile", REFERENCE, "-o", tuning], check=True)
        run = lambda *a: subprocess.run([EQDRC, "serve", "--tuning", tuning, *a], capture_output=True, text=True,
                                        timeout=10)
        r = run("--listen", "0.0.0.0:0")
        self.assertEqual(r.returncode, 2)
        self.assertIn("--token-file", r.stderr)
        token = os.path.join(folder, "token")
        self.assertEqual(subprocess.run([EQDRC, "serve", "--new-token", token]).returncode, 0)
        self.assertEqual(os.stat(token).st_mode & 0o777, 0o600)
        self.assertGreaterEqual(len(slurp(token).strip()), 32)
        self.assertNotEqual(subprocess.run([EQDRC, "serve", "--new-token", token], capture_output=True).returncode, 0)
        with open(token, "w") as f:
            f.write("short\n")
        r = run("--listen", "0.0.0.0:0", "--token-file", token)
        self.assertIn("too short", r.stderr)


if __name__ == "__main__":
    unittest.main()
