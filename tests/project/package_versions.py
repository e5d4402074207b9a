"""Every package states the version of include/tarn/Version.h, and recipes the licence as it is.

usage: package_versions.py ROOT
"""

import hashlib
import pathlib
import re
import sys


def stated(root):
    """(where, what it states)"""
    debian = (root / "packaging/debian/changelog").read_text(encoding="utf-8")
    yield "packaging/debian/changelog", re.match(r"plexa-tarn \(([0-9.]+)-\d+\)", debian).group(1)
    for recipe in (root / "packaging/yocto").glob("*.bb"):
        yield recipe.name, re.match(r"plexa-tarn_([0-9.]+)\.bb", recipe.name).group(1)
    changes = (root / "CHANGELOG.md").read_text(encoding="utf-8")
    released = re.findall(r"^## \[([0-9.]+)\]", changes, re.M)
    if released:
        yield "CHANGELOG.md", released[0]


def conan_version(root):
    """Run as Conan would, with a stand-in for it."""
    source = (root / "packaging/conan/conanfile.py").read_text(encoding="utf-8")
    body = re.search(r"    def set_version\(self\):\n((?:        .*\n)+)", source).group(1)
    recipe = type("Recipe", (), {"recipe_folder": str(root / "packaging/conan")})()
    scope = {"self": recipe, "pathlib": pathlib, "re": re}
    exec("\n".join(line[8:] for line in body.splitlines()), scope)  # pylint: disable=exec-used
    return recipe.version


def faults(root):
    header = (root / "include/tarn/Version.h").read_text(encoding="utf-8")
    numbers = dict(re.findall(r"#define TARN_VERSION_(MAJOR|MINOR|PATCH) (\d+)", header))
    version = ".".join(numbers[part] for part in ("MAJOR", "MINOR", "PATCH"))
    packages = list(stated(root)) + [("packaging/conan", conan_version(root))]
    if len(packages) < 3:
        yield f"only {packages} were found"
    for where, what in packages:
        if what != version:
            yield f"{where} states {what}, include/tarn/Version.h {version}"
    licence = hashlib.md5((root / "LICENSE").read_bytes()).hexdigest()
    for recipe in (root / "packaging/yocto").glob("*.bb"):
        if licence not in recipe.read_text(encoding="utf-8"):
            yield f"{recipe.name} states another LICENSE; its sum is {licence}"
    print(f"{len(packages)} packages state {version}")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    found = list(faults(pathlib.Path(sys.argv[1])))
    for fault in found:
        print(fault)
    sys.exit(1 if found else 0)


main()
