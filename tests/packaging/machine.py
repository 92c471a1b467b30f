# SPDX-License-Identifier: Apache-2.0

"""Uses the packages, the units and the host of the machine that the tests of the packages run on."""

import os
import pwd
import subprocess
import sys
import time

PACKAGES, SOURCE = sys.argv[1:3]
NAMES = ["lorx-naming-service", "lorx-naming-service-host", "libqvclient1", "lorx-naming-service-dev",
         "python3-qvclient"]
SERVICE, SOCKET_UNIT = "lorx-naming-service.service", "lorx-naming-service.socket"
STATE = "/var/lib/Vornak/LorxCore"
CONFIGURATION = STATE + "/namingService.conf.plist"
LOG = "/var/log/Vornak/LorxCore/namingService.log"
SOCKET = "/run/Vornak/LorxCore/namingService.sock"


def run(*command, **options):
    """Returns what the command prints. Raises AssertionError with its output if the command fails."""
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def listing():
    return run("qvhost", "list", "--csv").replace("\r", "").split("\n")[1:-1]


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def as_user(name, *groups):
    entry = pwd.getpwnam(name)

    def change():
        os.setgroups(groups)
        os.setgid(entry.pw_gid)
        os.setuid(entry.pw_uid)

    return change


def systemctl(*arguments):
    return run("systemctl", *arguments)


def shown(unit, *properties):
    """Returns the values of a unit's properties in the service manager."""
    lines = systemctl("show", "--property=" + ",".join(properties), unit).splitlines()
    values = dict(line.split("=", 1) for line in lines)
    return tuple(values[name] for name in properties)


def state(unit):
    return shown(unit, "ActiveState", "UnitFileState")


def main_process():
    return int(shown(SERVICE, "MainPID")[0])


def runs_again_after(process):
    """Tells whether another process than the given one serves. Asks once, because the service changes meanwhile."""
    active, now = shown(SERVICE, "ActiveState", "MainPID")
    return active == "active" and int(now) not in (0, process)


def start():
    # Resets the count of starts, because the manager refuses to start a service very often.
    subprocess.run(["systemctl", "reset-failed", SERVICE], capture_output=True, check=False)
    systemctl("start", SERVICE)


def wait_until(condition):
    end = time.monotonic() + 20
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(systemctl("show", SERVICE, SOCKET_UNIT))
        time.sleep(0.05)


def running():
    return run("systemctl", "list-units", "--quiet", "--plain", "lorx-*").splitlines()


def left():
    return run("find", "/etc", "/run", "/usr", "/var", "-ignore_readdir_race",
               "(", "-iname", "*lorx*", "-o", "-iname", "*qvclient*", ")")


def list_as(name, *groups):
    return subprocess.run(["qvhost", "list"], preexec_fn=as_user(name, *groups),
                          capture_output=True, text=True)
