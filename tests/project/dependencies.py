"""docs/dependencies.md lists every package of scripts/setup and every library that ours need.

usage: dependencies.py ROOT [BINARY...] | --self-test

Each package stands there with its groups, a licence, and the version that is installed or the beginning
of it. On another system than Debian 12 versions are not compared.
"""

import pathlib
import re
import subprocess
import sys

GROUP = re.compile(r'^  \[([\w-]+)\]="([^"]*)"', re.MULTILINE)
ROW = re.compile(r"^\| (.+) \|$", re.MULTILINE)
OURS = re.compile(r"libplexa_\w+\.so|ld-linux")


def rows(page, heading):
    """The cells of the table below a heading, without its own first two lines."""
    text = page.partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    return [row.split(" | ") for row in ROW.findall(text)][1:]


def groups_by_package(setup):
    found = {}
    for group, packages in GROUP.findall(setup):
        for package in packages.split():
            found.setdefault(package, []).append(group)
    return found


def upstream(version):
    """Of Debian's 1:2.3+dfsg-4: 2.3"""
    version = version.partition(":")[2] or version
    version = version.rpartition("-")[0] or version
    return re.split(r"[+~]", version)[0]


def begins_with(version, beginning):
    return f"{version}.".startswith(f"{beginning}.")


def versions_wrong(listed, installed):
    for package, version in listed:
        found = installed(package)
        if found and not begins_with(upstream(found), version):
            yield f"{package} is listed with version {version}, installed is {found}"


def packages_wrong(listed, needed):
    names = [row[0] for row in listed]
    for package, groups in needed.items():
        if names.count(package) != 1:
            yield f"{package} of scripts/setup is listed {names.count(package)} times"
    for package, _, licence, groups in listed:
        if groups.split(", ") != needed.get(package, []):
            yield f"{package} is listed for {groups}, not for {needed.get(package, 'nothing')}"
        if not licence.strip():
            yield f"{package} is listed without a licence"


def libraries_wrong(listed, needed):
    known = " ".join(row[0] for row in listed)
    for library in sorted(needed):
        if f"`{library}`" not in known and not OURS.match(library):
            yield f"{library} is needed at run time, but not listed"


def installed_version(package):
    command = ["dpkg-query", "-W", "-f", "${db:Status-Status} ${Version}", package]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    status, _, version = run.stdout.partition(" ")
    return version if status == "installed" else ""


def is_debian_12():
    release = pathlib.Path("/etc/os-release")
    text = release.read_text(encoding="utf-8") if release.exists() else ""
    return "\nID=debian" in text and 'VERSION_ID="12"' in text


def needed_libraries(binary):
    command = ["readelf", "-d", binary]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.*)\]", text)


def check(root, binaries):
    page = (root / "docs/dependencies.md").read_text(encoding="utf-8")
    setup = (root / "scripts/setup").read_text(encoding="utf-8")
    at_run_time, to_build = rows(page, "At run time"), rows(page, "To build, test and check")
    wrong = list(packages_wrong(to_build, groups_by_package(setup)))
    needed = {library for binary in binaries for library in needed_libraries(binary)}
    wrong += libraries_wrong(at_run_time, needed)
    listed = [row[:2] for row in to_build] + [row[1:3] for row in at_run_time]
    if is_debian_12():
        wrong += versions_wrong(listed, installed_version)
    print(f"{len(listed)} packages listed, {len(needed)} libraries needed; {len(wrong)} wrong")
    return wrong if at_run_time and to_build else wrong + ["the tables were not found"]


def self_test():
    page = "\n## One\n\n| a | b |\n|---|---|\n| x | y, z |\n\n## Two\n| c |\n"
    assert rows(page, "One") == [["x", "y, z"]], rows(page, "One")
    setup = '  [build]="g++ cmake"\n  [test]="cmake"\n'
    needed = groups_by_package(setup)
    assert needed == {"g++": ["build"], "cmake": ["build", "test"]}, needed
    good = [["g++", "12.2", "GPL", "build"], ["cmake", "3.25", "BSD", "build, test"]]
    assert not list(packages_wrong(good, needed))
    assert len(list(packages_wrong(good[:1], needed))) == 1
    assert len(list(packages_wrong(good + [["more", "1", "MIT", "test"]], needed))) == 1
    assert len(list(packages_wrong([["g++", "12", " ", "test"], good[1]], needed))) == 2
    assert upstream("1:7.2+dfsg-7+deb12u18") == "7.2" and upstream("1.0.128+nmu2") == "1.0.128"
    assert begins_with("4.0.17", "4.0") and not begins_with("4.01", "4.0")
    assert list(versions_wrong([["a", "2"], ["b", "1"]], {"a": "1.9-1", "b": ""}.get))
    libraries = [["`libc.so.6`, `libm.so.6`", "libc6"]]
    assert list(libraries_wrong(libraries, {"libz.so.1", "libm.so.6", "libplexa_can.so.1"})) == [
        "libz.so.1 is needed at run time, but not listed"
    ]
    print("self-test passed")
    return []


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    if sys.argv[1:] == ["--self-test"]:
        wrong = self_test()
    else:
        wrong = check(pathlib.Path(sys.argv[1]), sys.argv[2:])
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


main()
