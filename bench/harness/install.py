"""Installs missing peers from Debian 12. Reports and skips those that cannot be installed."""

import os
import subprocess

from contestants import PYTHON
from machine import output_of

# By peer: the command that prints its version, and its Debian package.
VERSIONS = {
    "xgboost": ([PYTHON, "-c", "import xgboost; print(xgboost.__version__)"], "python3-xgboost"),
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
    missing = [peer for peer in wanted if not version(peer)]
    complaint = ""
    if missing:
        packages = [VERSIONS[peer][1] for peer in missing]
        print("installing", *packages, flush=True)
        complaint = install(packages)
    present = {peer: version(peer) for peer in wanted}
    for peer in wanted:
        if not present[peer]:
            print(f"{peer}: skipped, {VERSIONS[peer][1]} cannot be installed: {complaint}")
    return {peer: text for peer, text in present.items() if text}
