"""Installs missing peers from Debian 12. Reports and skips those that cannot be installed."""

import os
import subprocess

from contestants import PYTHON
from machine import output_of

# By peer: the command that prints its version, and its Debian package, if there is one.
VERSIONS = {
    "xgboost": ([PYTHON, "-c", "import xgboost; print(xgboost.__version__)"], "python3-xgboost"),
    "lightgbm": ([PYTHON, "-c", "import lightgbm; print(lightgbm.__version__)"], None),
    "sklearn": ([PYTHON, "-c", "import sklearn; print(sklearn.__version__)"], "python3-sklearn"),
    "ranger": (["Rscript", "-e", "cat(as.character(packageVersion('ranger')))"],
               "r-cran-ranger"),
}


def version(peer):
    return output_of(*VERSIONS[peer][0])


def install(packages):
    """Installs packages with apt-get. Returns its last error line, or "" on success."""
    rights = [] if os.geteuid() == 0 else ["sudo", "-n"]
    apt = rights + ["env", "DEBIAN_FRONTEND=noninteractive", "apt-get", "-q", "-y",
                    "-o", "DPkg::Lock::Timeout=120"]
    for action in (["update"], ["install", "--no-install-recommends", *packages]):
        try:
            done = subprocess.run(apt + action, capture_output=True, text=True, check=False)
        except OSError as error:
            return str(error)
        if done.returncode != 0:
            return (done.stderr.strip().splitlines() or ["apt-get failed"])[-1]
    return ""


def present_peers(wanted):
    """Installs missing peers. Returns the versions of those that are present then, by name."""
    packages = [VERSIONS[peer][1] for peer in wanted if VERSIONS[peer][1] and not version(peer)]
    complaint = ""
    if packages:
        print("installing", *packages, flush=True)
        complaint = install(packages)
    found = present(wanted)
    for peer in wanted:
        if peer not in found:
            reason = f"{VERSIONS[peer][1]} cannot be installed: {complaint}" \
                if VERSIONS[peer][1] else "it is not in Debian, and not installed"
            print(f"{peer}: skipped, {reason}")
    return found


def present(wanted):
    """The versions of the peers that are installed, by name."""
    return {peer: text for peer, text in ((peer, version(peer)) for peer in wanted) if text}


def versions_text(versions):
    """The versions of all peers, on one line."""
    return ", ".join(f"{name} {versions.get(name, '(not installed)')}" for name in VERSIONS)
