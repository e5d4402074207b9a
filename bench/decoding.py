"""Measures `tarn decode` beside log2asc of can-utils, on logs that it writes once."""

import os
import random
import statistics
import subprocess
import time

LINES = 2_000_000
FEWER_LINES = 200_000
REPETITIONS = 3


def write_log(path, lines):
    """A log of DATA responses with one to three U16 values, the same at every call."""
    if path.exists():
        return
    numbers = random.Random(1)
    partial = path.with_suffix(".partial")
    with open(partial, "w", encoding="ascii") as log:
        for line in range(lines):
            header = 0x0F000000 | numbers.randrange(256) << 14 | numbers.randrange(127) << 7 | numbers.randrange(127)
            payload = numbers.randbytes(2 * numbers.randrange(1, 4)).hex().upper()
            milliseconds = f"{1_700_000_000 + line // 1000}.{line % 1000:03}000"
            log.write(f"({milliseconds}) can0 {header:08X}#{payload}59\n")
    partial.rename(path)


def peak_memory(process):
    """The most memory that a running process has had, in KiB. Read from the system while it runs: what
    it says afterwards counts this program too, from which the process was forked."""
    peak = 0
    while process.poll() is None:
        try:
            with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
                peak = max([peak] + [int(line.split()[1]) for line in status if line.startswith("VmHWM")])
        except OSError:
            pass
        time.sleep(0.01)
    return peak


def seconds(command):
    """The processor time of a command, which other processes do not add to."""
    before = os.times()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = os.times()
    return after.children_user + after.children_system - before.children_user - before.children_system


def memory(command):
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        return peak_memory(process)


def measure(tarn, folder):
    """Median seconds by name, and the peak of memory by number of lines."""
    log, short_log = folder / "long.log", folder / "short.log"
    write_log(log, LINES)
    write_log(short_log, FEWER_LINES)
    commands = {
        "log2asc": ["log2asc", "-I", log, "can0"],
        "text": [tarn, "decode", log],
        "json": [tarn, "decode", "--json", log],
    }
    times = {name: [] for name in commands}
    for _ in range(REPETITIONS):
        for name, command in commands.items():
            times[name].append(seconds(command))
    memories = {
        lines: max(memory([tarn, "decode", "--json", path]), memory([tarn, "decode", path]))
        for lines, path in ((LINES, log), (FEWER_LINES, short_log))
    }
    return {name: statistics.median(values) for name, values in times.items()}, memories
