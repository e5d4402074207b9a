"""Runs the benchmarks and judges them.

usage: report.py [--check | --plots] BUILD_DIR

Without an option: times, which only a quiet machine tells rightly. With --check: instruction counts, which are the same
on every machine of a kind; the exit status is 1 when one is above its limit. With --plots: draws how cost grows, into docs/performance/.
"""

import collections
import json
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

import decoding
import limits
import svg

REPETITIONS = 11
PASSES = 200  # that callgrind counts of each path


def run_benchmarks(program, choice, typical=statistics.median):
    """The nanoseconds of every path that is chosen. They take turns in random order, so that what else
    the machine does meanwhile falls on all of them alike."""
    command = [
        program,
        f"--benchmark_filter={choice}",
        "--benchmark_format=json",
        "--benchmark_enable_random_interleaving=true",
        f"--benchmark_repetitions={REPETITIONS}",
        "--benchmark_min_time=0.05",
    ]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    repetitions = collections.defaultdict(list)
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] == "iteration":
            has_own_clock = run["name"].endswith("/manual_time")
            name = run["name"].removesuffix("/manual_time")
            repetitions[name].append(run["real_time" if has_own_clock else "cpu_time"])
    return {name: typical(times) for name, times in repetitions.items()}


def count_instructions(program):
    """The instructions of one pass of every path."""
    with tempfile.TemporaryDirectory() as folder:
        command = [
            "valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out",
            program, "--instructions", str(PASSES),
        ]  # fmt: skip
        subprocess.run(command, check=True, capture_output=True)
        dumps = [path.read_text() for path in pathlib.Path(folder).iterdir()]
    named = [(re.search(r"^desc: Trigger: Client Request: (.*)$", dump, re.M), dump) for dump in dumps]
    return {
        name[1]: int(re.search(r"^totals: (\d+)", dump, re.M)[1]) / PASSES
        for name, dump in named
        if name
    }


def duration(nanoseconds):
    return f"{nanoseconds / 1000:.1f} us" if nanoseconds >= 10_000 else f"{nanoseconds:.0f} ns"


def line(text, measured, reference, value, limit, good):
    verdict = "ok" if good else "ABOVE"
    return f"{text:<45}{measured:>12}{reference:>12}{value:>9}{limit:>9}  {verdict}"


def time_line(row, times):
    measured, reference = times[row.path], times[row.reference]
    ratio = measured / reference
    return line(
        row.text, duration(measured), duration(reference), f"{ratio:.3f}", f"{row.limit:.3f}",
        ratio <= row.limit,
    )  # fmt: skip


def bus_line(times):
    rate = 1e9 / times["bus/threaded_frame"]
    return line(
        "virtual bus, threaded, frames a second", f"{rate / 1e6:.2f} M", "", "",
        f"{limits.BUS_FRAMES_PER_SECOND / 1e6:.0f} M", rate >= limits.BUS_FRAMES_PER_SECOND,
    )  # fmt: skip


def table(times):
    yield f"{'path':<45}{'measured':>12}{'reference':>12}{'ratio':>9}{'limit':>9}  verdict"
    for row in limits.TIME_LIMITS:
        yield time_line(row, times)
    yield bus_line(times)
    for name in limits.SHOWN:
        yield f"{name:<45}{duration(times[name]):>12}"


def decode_lines(times, memories):
    for way, limit in limits.DECODE_LIMITS.items():
        ratio = times[way] / times["log2asc"]
        yield line(
            f"tarn decode, {way}, 2 million lines", f"{times[way]:.2f} s", f"{times['log2asc']:.2f} s",
            f"{ratio:.3f}", f"{limit:.3f}", ratio <= limit,
        )  # fmt: skip
    most, less = memories[decoding.LINES], memories[decoding.FEWER_LINES]
    yield line(
        "its memory, beside a tenth of the lines", f"{most} KiB", f"{less} KiB", f"{most / less:.3f}",
        f"{limits.DECODE_MEMORY:.3f}", most <= limits.DECODE_MEMORY * less,
    )  # fmt: skip


def instruction_lines(rows, counts, references):
    """A line and a verdict for each row."""
    for row in rows:
        measured, reference = counts[row.path], references[row.reference]
        ratio = measured / reference
        good = ratio <= row.limit
        yield good, line(
            row.text, f"{measured:.0f}", f"{reference:.0f}", f"{ratio:.3f}", f"{row.limit:.3f}", good
        )  # fmt: skip


def check(build):
    counts = count_instructions(build / "bench" / "tarn_bench")
    untraced = count_instructions(build / "bench" / "tarn_bench_untraced")
    print(line("instructions", "measured", "reference", "ratio", "limit", True).replace("ok", "verdict"))
    lines = list(instruction_lines(limits.INSTRUCTION_LIMITS, counts, counts))
    lines += instruction_lines(limits.UNTRACED_LIMITS, counts, untraced)
    for _, text in lines:
        print(text)
    above = sum(not good for good, _ in lines)
    print(f"{len(lines)} limits, {above} of them broken")
    return 1 if above else 0


def show_times(build):
    for text in table(run_benchmarks(build / "bench" / "tarn_bench", "-curve/")):
        print(text)
    for text in decode_lines(*decoding.measure(build / "tools" / "tarn" / "tarn", build / "bench")):
        print(text)
    return 0


def points(times, name, scale=1):
    """The curve of a benchmark that was measured at several arguments."""
    runs = [(path.split("/"), time) for path, time in times.items() if path.startswith(f"curve/{name}/")]
    return sorted((int(parts[2]), round(scale * time, 1)) for parts, time in runs)


def draw(build):
    # Several threads take the longer, the more else runs: the least of all runs is the nearest to what they need.
    times = run_benchmarks(build / "bench" / "tarn_bench", "^curve/", min)
    plots = {
        "subscriptions": svg.plot(
            "A frame, by the number of subscriptions", "subscriptions", "ns a frame",
            {
                "of another address": points(times, "entries_elsewhere"),
                "of the frame's address": points(times, "entries_here"),
            },
            logarithmic=True,
        ),
        "payload": svg.plot(
            "A frame, by its payload", "payload bytes", "ns a frame",
            {"received": points(times, "receive_payload"), "sent": points(times, "send_payload")},
        ),
        "threads": svg.plot(
            "Operations of several threads at once, on two processors", "threads", "ns an operation, all together",
            {
                "frames into one dispatcher": points(times, "dispatch_threads"),
                "sending one message": points(times, "send_same_threads"),
                "sending a message each": points(times, "send_threads"),
            },
        ),
    }  # fmt: skip
    folder = pathlib.Path("docs/performance")
    folder.mkdir(exist_ok=True)
    for name, content in plots.items():
        (folder / f"{name}.svg").write_text(content, encoding="utf-8")
    print("Microseconds from a frame to its handler:")
    return subprocess.run([build / "bench" / "tarn_bench", "--latency"], check=True).returncode


def main(arguments):
    if len(arguments) == 1 and not arguments[0].startswith("-"):
        return show_times(pathlib.Path(arguments[0]))
    if len(arguments) == 2 and arguments[0] == "--check":
        return check(pathlib.Path(arguments[1]))
    if len(arguments) == 2 and arguments[0] == "--plots":
        return draw(pathlib.Path(arguments[1]))
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
