"""Runs `vela view`, which answers until it is told to end."""
import contextlib
import http.client
import json
import re
import signal
import subprocess
import urllib.parse

ADDRESS = re.compile(r"http://\S+:(\d+)/([0-9a-f]{32})/")


class Server:
    """One that runs. `url`, `port` and `token` are those of its address."""

    def __init__(self, process, line):
        self.process = process
        self.url = line.strip()
        found = ADDRESS.fullmatch(self.url)
        assert found, f"no address was printed: {line!r}\n{process.communicate(timeout=60)[1]}"
        self.port, self.token = int(found[1]), found[2]
        self.host = urllib.parse.urlsplit(self.url).hostname

    def request(self, method, path, body=None, headers=None):
        """Status, headers and body of a request; the path as it stands, with its token."""
        connection = http.client.HTTPConnection(self.host, self.port, timeout=120)
        try:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()
        finally:
            connection.close()

    def get(self, path):
        return self.request("GET", f"/{self.token}{path}")

    def ask(self, question, /, **body):
        """As the page asks."""
        return self.request("POST", f"/{self.token}{question}", json.dumps(body), {"Content-Type": "application/json"})

    def json(self, question, /, **body):
        status, _, text = self.ask(question, **body)
        assert status == 200, f"{question}: {status} {text!r}"
        return json.loads(text)

    def end(self, number=signal.SIGINT):
        """The exit code, and what was said on standard error."""
        self.process.send_signal(number)
        said = self.process.communicate(timeout=60)[1]
        return self.process.returncode, said


@contextlib.contextmanager
def serving(command, *words, **options):
    process = subprocess.Popen([*command, *map(str, words)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)
    try:
        yield Server(process, process.stdout.readline())
    finally:
        if process.poll() is None:
            process.kill()
            process.communicate()
        for stream in (process.stdout, process.stderr):
            stream.close()


def serves(command, *words, **options):
    """Empty when it gives its page and ends well at Ctrl-C, else what it did."""
    with serving(command, *words, **options) as server:
        status, _, page = server.get("/")
        code, said = server.end()
        return "" if (status, code) == (200, 0) and b"<title>Vela" in page else f"status {status}, exit code {code}\n{said}"
