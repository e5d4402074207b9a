"""manual_pages.py TARN FOLDER: the man pages and the completion know all that the command knows."""
import os
import re
import subprocess
import sys

SKIPPED = 77


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options)


def check_page(path, text):
    """The page has every option of the help text, and its format is accepted without a warning."""
    result = run("groff", "-man", "-ww", "-Tascii", "-P-cbou", path)
    assert not result.stderr, result.stderr
    shown = re.sub(r"\s+", " ", result.stdout)
    options = re.findall(r"^  (-\S+)", text, re.M)
    assert len(options) >= 2, path
    for option in options:
        assert re.search(rf"(^| ){re.escape(option)} ", shown), f"{path}: {option} is missing"
    for example in re.findall(r"^  (tarn .*|echo .*)", text.partition("\nExamples:\n")[2], re.M):
        assert re.sub(r"\s+", " ", example)[:60] in shown, f"{path}: {example} is missing"


def complete(script, *words):
    code = f"""source {script}
compopt() {{ :; }}
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
_tarn
echo "${{COMPREPLY[*]}}" """
    return run("bash", "-c", code, "bash", *words).stdout.strip()


def check_completion(script):
    for words, expected in (
        (("tarn", "du"), "dump"),
        (("tarn", "re"), "request record replay"),
        (("tarn", "dump", "--ti"), "--time"),
        (("tarn", "dump", "--time", "r"), "relative"),
        (("tarn", "record", "--time", "r"), ""),
        (("tarn", "dump", "-b", "virt"), "virtual:"),
        (("tarn", "encode", "file"), ""),
    ):
        shown = complete(script, *words)
        assert shown == expected, f"{' '.join(words)}: {shown!r} instead of {expected!r}"


def main(tarn, folder):
    if subprocess.run(["bash", "-c", "command -v groff"], capture_output=True, check=False).returncode:
        print("no groff here")
        return SKIPPED
    overview = run(tarn, "--help").stdout
    verbs = re.findall(r"^  (\w+) ", overview.partition("\nSubcommands:\n")[2], re.M)
    assert len(verbs) >= 8, verbs
    for verb in verbs:
        check_page(os.path.join(folder, f"tarn-{verb}.1"), run(tarn, verb, "--help").stdout)
    with open(os.path.join(folder, "tarn.1"), encoding="utf-8") as page:
        listed = re.findall(r"^\.B (\w+)$", page.read(), re.M)
    assert set(verbs) <= set(listed), listed
    check_completion(os.path.join(folder, "tarn.bash"))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
