"""Runs tshark with the dissector, and the command, for the tests."""

import json
import os
import subprocess

TSHARK = os.environ["TSHARK"]
TARN = os.environ["TARN_COMMAND"]
DISSECTOR = os.environ["TARN_DISSECTOR"]
PROJECT = os.environ["PROJECT_DIRECTORY"]

# What Wireshark writes where a dissector in Lua has failed.
SIGNS_OF_FAILURE = ("Lua Error", "Dissector bug", "[Malformed Packet", "stack traceback")


class Failed(Exception):
    pass


def tshark(capture, *options, environment=None):
    """Standard output and standard error; the user's own plugins and preferences stay outside."""
    command = [TSHARK, "-X", "lua_script:" + DISSECTOR, "-r", str(capture), *options]
    variables = {**os.environ, "WIRESHARK_CONFIG_DIR": os.path.dirname(str(capture)),
                 "HOME": os.path.dirname(str(capture)), **(environment or {})}
    variables.pop("TARN_NAMES", None)
    done = subprocess.run(command, capture_output=True, env=variables, timeout=500)
    output, errors = done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")
    if done.returncode != 0:
        raise Failed(f"{command}: exit status {done.returncode}: {errors}")
    return output, errors


def columns(capture, fields, *options, environment=None):
    """A dictionary a packet: of each field the list of what stands in it."""
    wanted = [argument for field in fields for argument in ("-e", field)]
    output, errors = tshark(
        capture, "-T", "fields", "-E", "occurrence=a", "-E", "aggregator=|", *wanted, *options,
        environment=environment,
    )
    if any(sign in output + errors for sign in SIGNS_OF_FAILURE):
        raise Failed(f"the dissector failed: {errors}{output[:2000]}")
    rows = []
    for line in output.splitlines():
        parts = line.split("\t")
        rows.append({f: p.split("|") if p else [] for f, p in zip(fields, parts, strict=True)})
    return rows


class Real(float):
    """A number that knows how it was written."""

    def __new__(cls, text):
        number = super().__new__(cls, text)
        number.text = text
        return number

    def __str__(self):
        return self.text


def whole_or_minus_zero(text):
    return Real(text) if text == "-0" else int(text)


def decode(capture, *options):
    """The objects that the command prints of the Tarn messages."""
    done = subprocess.run(
        [TARN, "decode", "-q", "--json", *options, str(capture)], capture_output=True, timeout=500
    )
    if done.returncode != 0:
        raise Failed(f"tarn decode: exit status {done.returncode}: {done.stderr.decode()}")
    lines = done.stdout.decode().splitlines()
    return [json.loads(line, parse_float=Real, parse_int=whole_or_minus_zero) for line in lines]
