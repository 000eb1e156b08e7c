"""Runs the development ad server on loopback for a test and says how a host reaches it."""
import os
import re
import subprocess
import tempfile


class AdServer:
    """Starts tovani-adserver with a scenario; `mappings` are the host mappings that send the
    compiled-in host names to it, `ca_file` the certificate bundle of its https port."""

    def __init__(self, program, scenario):
        self._state = tempfile.TemporaryDirectory(prefix="tovani-adserver-")
        env = dict(os.environ, ASAN_OPTIONS="detect_leaks=0")
        self._process = subprocess.Popen(
            [program, "--scenario", scenario, "--bind", "127.0.0.1", "--quiet",
             "--state-dir", self._state.name],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=env)
        banner = {}
        for line in self._process.stdout:
            match = re.match(r"\s+(https?|CA file)\s+(\S+)(?:\s+serves (.*))?$", line)
            if match:
                banner[match.group(1)] = (match.group(2), match.group(3))
            if line.startswith("Press Ctrl-C"):
                break
        if "http" not in banner or "https" not in banner or "CA file" not in banner:
            self.stop()
            raise RuntimeError("the ad server did not start: %r" % banner)
        http = banner["http"][0].split("//")[1]
        https = banner["https"][0].split("//")[1]
        hosts = [h.strip() for h in banner["http"][1].split(",")]
        hosts.append(banner["https"][1].split(" ")[0])
        self.ca_file = banner["CA file"][0]
        self.mappings = []
        for host in hosts:
            self.mappings.append("%s:80:%s" % (host, http))
            self.mappings.append("%s:443:%s" % (host, https))

    def stop(self):
        if self._process.poll() is None:
            self._process.terminate()
            try:
                self._process.wait(10)
            except subprocess.TimeoutExpired:
                self._process.kill()
        self._process.stdout.close()
        self._state.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.stop()
