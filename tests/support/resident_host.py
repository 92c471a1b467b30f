# SPDX-License-Identifier: Apache-2.0

"""Runs resident hosts for tests in Python.

    with tempfile.TemporaryDirectory() as folder, ResidentHost(qvhost, folder) as host:
        host.start()
        ...               # host.socket is the path of the host's socket
        host.kill()
        host.start()      # serves the same directory
"""

import atexit
import os
import pathlib
import signal
import subprocess
import sys


def serve(qvhost, arguments, environment):
    """Starts a host and returns its process when the host serves. Exits if the host does not serve."""
    process = subprocess.Popen([qvhost, *arguments], env=environment, stderr=subprocess.PIPE, text=True)
    # It must not outlive a failure.
    atexit.register(process.kill)
    said = ""
    for line in process.stderr:
        said += line
        if "serving on" in line:
            return process
    sys.exit(f"the host does not serve: {said}")


def end(process):
    """Stops a host as the system does. Exits if the host fails to end well."""
    process.send_signal(signal.SIGTERM)
    with process.stderr:
        said = process.stderr.read()
    if process.wait() != 0:
        sys.exit(f"the host ended with {process.returncode}: {said}")


class ResidentHost:
    """A host whose files are all in one folder. The directory is empty at first."""

    def __init__(self, qvhost, folder):
        self.qvhost = qvhost
        self.socket = str(pathlib.Path(folder, "namingService.sock"))
        self.environment = dict(os.environ, QV_RUN_DIR=str(folder), QV_LOG_DIR=str(folder), QV_CONFIG_DIR=str(folder))
        self._process = None
        subprocess.run([qvhost, "init"], env=self.environment, check=True, stdout=subprocess.DEVNULL)

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        if self._process is not None:
            self.kill()

    def start(self, *options):
        self._process = serve(self.qvhost, ["serve", *options], self.environment)

    def stop(self):
        process, self._process = self._process, None
        end(process)

    def kill(self):
        process, self._process = self._process, None
        process.kill()
        process.wait()
        process.stderr.close()
