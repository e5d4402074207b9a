"""Runs tshark with the dissector, and the command, for the tests."""

import json
import os
import shutil
import subprocess
import sys

SKIPPED = 77
TSHARK = shutil.which("tshark")
if TSHARK is None:
    print("tshark is missing: scripts/setup wireshark installs it")
    sys.exit(SKIPPED)
TARN = os.environ["TARN_COMMAND"]
PROJECT = os.environ["PROJECT_DIRECTORY"]
DISSECTOR = os.path.join(PROJECT, "tools/wireshark/tarn.lua")

# What Wireshark writes where a dissector in Lua has failed; in columns it is an expert's message.
SIGNS_OF_FAILURE = ("Lua Error", "Lua: Error", "Dissector bug", "stack traceback")
EXPERTS = "_ws.expert.message"


class Failed(Exception):
    pass


def tshark(capture, *options, dissector=DISSECTOR, environment=None):
    """Standard output and standard error; the user's own plugins and preferences stay outside."""
    folder = os.path.dirname(str(capture))
    script = ["-X", "lua_script:" + dissector] if dissector else []
    command = [TSHARK, *script, "-r", str(capture), *options]
    variables = {**os.environ, "HOME": folder, "XDG_CONFIG_HOME": folder, "LC_ALL": "C.UTF-8"}
    done = subprocess.run(
        command, capture_output=True, env={**variables, **(environment or {})}, timeout=500
    )
    output, errors = done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")
    if done.returncode != 0 or any(sign in output + errors for sign in SIGNS_OF_FAILURE):
        signs = [line for line in output.splitlines() if "rror" in line][:5]
        raise Failed(f"{command}: exit status {done.returncode}: {errors} {signs}")
    return output, errors


def columns(capture, fields, *options, **settings):
    """A dictionary a packet: of each field the list of what stands in it."""
    wanted = [argument for field in [*fields, EXPERTS] for argument in ("-e", field)]
    output, _ = tshark(
        capture, "-T", "fields", "-E", "occurrence=a", "-E", "aggregator=|", *wanted, *options,
        **settings,
    )
    rows = []
    for line in output.splitlines():
        parts = line.split("\t")[:-1]
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
