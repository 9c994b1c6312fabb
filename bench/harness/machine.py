"""The machine: its description, its load, and how much other processes use it during a run."""

import os
import platform
import resource
import subprocess
import time
from pathlib import Path

# A run counts as disturbed if other processes used more than this many cores meanwhile.
DISTURBED = 0.2

# The instruction sets that can affect a figure.
FLAGS = ("sse4_2", "avx", "avx2", "bmi2", "avx512f", "avx512bw", "avx512dq", "avx512vl")
KERNEL_FLAGS = {"avx512": FLAGS[4:], "avx2": ("avx2",), "baseline": (), "": ()}


def cpu_field(name):
    """A field of the first processor in /proc/cpuinfo."""
    with open("/proc/cpuinfo", encoding="ascii") as info:
        for line in info:
            key, _, value = line.partition(":")
            if key.strip() == name:
                return value.strip()
    return ""


def cache_sizes(folder=Path("/sys/devices/system/cpu/cpu0/cache")):
    """By level, the sizes in KiB of the first processor's L2 and L3 caches. The "cache size" of
    /proc/cpuinfo is no help: it is that of L2 or of L3, depending on the vendor."""
    sizes = {}
    for cache in sorted(folder.glob("index*")):
        level, size = ((cache / name).read_text(encoding="ascii").strip()
                       for name in ("level", "size"))
        if level != "1":
            sizes[int(level)] = int(size.removesuffix("K"))
    return sizes


def available_bytes():
    """Memory that new processes can use."""
    with open("/proc/meminfo", encoding="ascii") as info:
        return next(int(line.split()[1]) * 1024 for line in info
                    if line.startswith("MemAvailable:"))


def readable(kib):
    return f"{kib} KiB" if kib % 1024 else f"{kib // 1024} MiB"


def caches():
    """As in "L2 cache 1 MiB, L3 cache 32 MiB"."""
    return ", ".join(f"L{level} cache {readable(kib)}"
                     for level, kib in cache_sizes().items()) or "caches unknown"


def instruction_set():
    """The best instruction set for which we have kernels."""
    return next(title for title, kernel in (("AVX-512", "avx512"), ("AVX2", "avx2"), ("SSE2", ""))
                if not missing_flags(kernel))


def machine_class():
    """What the speed depends on most, as in "AVX-512, 1 MiB of L2"."""
    level2 = cache_sizes().get(2)
    return f"{instruction_set()}, " + (f"{readable(level2)} of L2" if level2 else "L2 unknown")


def processor():
    return f"{cpu_field('model name')}, {os.cpu_count()} processors"


def machine_id():
    """Names the machine's file of stored results. Two machines have the same name if they have the
    same class, processor and number of processors."""
    vendor = {"AuthenticAMD": "amd", "GenuineIntel": "intel"}.get(cpu_field("vendor_id"), "other")
    return (f"{instruction_set().lower().replace('-', '')}-l2-{cache_sizes().get(2, 0)}k-{vendor}-"
            f"{cpu_field('cpu family')}-{cpu_field('model')}-{os.cpu_count()}-processors")


def missing_flags(kernel):
    """The instruction sets that a kernel of ours needs and the processor lacks."""
    return [flag for flag in KERNEL_FLAGS[kernel] if flag not in cpu_field("flags").split()]


def load():
    return " ".join(f"{average:.1f}" for average in os.getloadavg())


def output_of(*command):
    try:
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def commit(root):
    """The commit that is measured, with a plus if the library's sources differ from it."""
    name = output_of("git", "-C", root, "rev-parse", "--short", "HEAD")
    changed = output_of("git", "-C", root, "status", "--porcelain", "src")
    return name + ("+" if changed else "")


def description():
    """Lines that describe the machine and the environment of the measurements."""
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2 ** 30
    flags = cpu_field("flags").split()
    switches = [f"{key}={value}" for key, value in sorted(os.environ.items())
                if key.startswith("SYLVORA_")]
    lines = [
        f"{cpu_field('model name')}, {os.cpu_count()} cores, {memory:.0f} GiB, {caches()}",
        "instruction sets: " + " ".join(flag for flag in FLAGS if flag in flags),
        f"Linux {platform.release()}, {output_of('g++', '--version').splitlines()[0]}",
    ]
    return lines + (["switches: " + " ".join(switches)] if switches else [])


class Others:
    """Measures how many cores processes other than our children used, on average, during a `with`
    block. The result is `cores`, set at the end of the block."""

    def __enter__(self):
        self.before = self.sample()
        return self

    def __exit__(self, *_):
        seconds, busy, own = (after - before
                              for after, before in zip(self.sample(), self.before))
        self.cores = max(0.0, busy - own) / seconds

    @staticmethod
    def sample():
        """The clock, the machine's busy seconds, and those of finished children."""
        with open("/proc/stat", encoding="ascii") as stat:
            ticks = [int(field) for field in stat.readline().split()[1:9]]
        user, nice, system, _idle, _iowait, irq, softirq, steal = ticks
        busy = (user + nice + system + irq + softirq + steal) / os.sysconf("SC_CLK_TCK")
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return time.monotonic(), busy, usage.ru_utime + usage.ru_stime


def wait_until_quiet(patience):
    """Waits, at most `patience` seconds, for two seconds without disturbance by other processes."""
    end = time.monotonic() + patience
    while time.monotonic() < end:
        with Others() as others:
            time.sleep(2)
        if others.cores <= DISTURBED:
            return
