"""The peers come from Debian 12; those that are missing are installed, or left out with a line."""

import os
import subprocess

from contestants import PYTHON
from machine import output_of

# What a peer is asked for its version, and the package that brings it.
VERSIONS = {
    "xgboost": ([PYTHON, "-c", "import xgboost; print(xgboost.__version__)"], "python3-xgboost"),
    "sklearn": ([PYTHON, "-c", "import sklearn; print(sklearn.__version__)"], "python3-sklearn"),
    "ranger": (["Rscript", "-e", "cat(as.character(packageVersion('ranger')))"],
               "r-cran-ranger"),
}


def version(peer):
    return output_of(*VERSIONS[peer][0])


def install(packages):
    """Whether apt-get could install them; its last words otherwise."""
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
    """Name and version of each wanted peer that is there in the end."""
    missing = [peer for peer in wanted if not version(peer)]
    complaint = ""
    if missing:
        packages = [VERSIONS[peer][1] for peer in missing]
        print("installing", *packages, flush=True)
        complaint = install(packages)
    present = {peer: version(peer) for peer in wanted}
    for peer in wanted:
        if not present[peer]:
            print(f"{peer}: left out, {VERSIONS[peer][1]} cannot be installed: {complaint}")
    return {peer: text for peer, text in present.items() if text}
