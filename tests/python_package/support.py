"""What the tests of the packages share. SYLVORA_BUILD in the environment is the build folder."""
import os
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["SYLVORA_BUILD"])
BACKEND = ROOT / "python" / "backend"
sys.path.insert(0, str(BACKEND))


def run(*command, **options):
    """Runs a command and returns its output; if it fails, raises an error with its messages."""
    done = subprocess.run([str(part) for part in command], text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def backend(kind, folder, *settings, root=ROOT):
    """Builds a package as the command line of the backend does; returns its path."""
    environment = dict(os.environ, PYTHONPATH=str(root / "python" / "backend"),
                       PYTHONDONTWRITEBYTECODE="1")
    output = run(sys.executable, "-m", "sylvora_build", kind, folder, *settings, env=environment)
    return Path(output.splitlines()[-1].rpartition(": ")[0])


def target_wheel():
    """The wheel that the target `wheel` has built for this interpreter."""
    import sylvora_build
    return BUILD / "dist" / f"{sylvora_build.base_name()}-{sylvora_build.wheel_tag()}.whl"
