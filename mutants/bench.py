"""Builds mutants of a library and runs the tests on them.

The sources, the objects and the test programs of a build are copied first, so that neither is the
user's tree touched nor does it matter when it changes meanwhile. A mutant is one source compiled anew,
without optimization, and the library linked with it; the test programs are those of the build and find
the mutant by LD_LIBRARY_PATH. Programs that compile the changed file themselves are built anew too,
and run last.
"""

import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import time

MEMORY_KIB = 4 * 1024 * 1024
COMPILE_SECONDS = 120
SOURCE_SUFFIXES = {".cpp", ".h"}
KILLED, TIMED_OUT, NOT_BUILT, SURVIVED = "killed", "timed out", "did not build", "survived"


class BenchError(Exception):
    pass


def run(command, cwd, check=True):
    result = subprocess.run(command, cwd=cwd, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if check and result.returncode != 0:
        raise BenchError(f"{shlex.join(map(str, command))}: exit status {result.returncode}\n{result.stdout[-4000:]}")
    return result.stdout


def value_after(words, option):
    return words[words.index(option) + 1]


class Target:
    """What one link makes: a library or a program."""

    def __init__(self, command):
        self.command = command
        self.output = value_after(command, "-o")

    def inputs(self):
        return [word for word in self.command if word.endswith((".o", ".a")) or ".so" in word]


class Bench:
    def __init__(self, root, plan, work):
        self.root = root
        self.plan = plan
        self.work = work
        self.build = root / "build" / plan["preset"]
        self.base = work / "base"
        self.tree = work / "tree"
        self.limits = {}

    # The copy of a build.

    def prepare(self):
        self.build_targets()
        self.read_links()
        self.read_compilations()
        self.copy_all()
        self.precompile()
        self.compile_plainly()

    def build_targets(self):
        if not (self.build / "build.ninja").exists():
            run(["cmake", "--preset", self.plan["preset"]], self.root)
        targets = [self.plan["library"], *self.plan["programs"]]
        run(["cmake", "--build", self.build, "--parallel", str(os.cpu_count()), "--target", *targets], self.root)

    def read_links(self):
        targets = [self.plan["library"], *self.plan["programs"]]
        self.targets = {}
        for line in run(["ninja", "-t", "commands", *targets], self.build).splitlines():
            words = shlex.split(re.sub(r"^: && (.*?) && .*$", r"\1", line))
            if "-o" in words and "-c" not in words:
                target = Target(words)
                self.targets.setdefault(self.name_of(target), target)
        self.library = self.targets.get(self.plan["library"])
        missing = [name for name in targets if name not in self.targets]
        if missing:
            raise BenchError(f"the build links no {', '.join(missing)}; mutants/plan.json names targets of the preset")

    @staticmethod
    def name_of(target):
        match = re.fullmatch(r"lib(.*?)\.so[.\d]*", pathlib.PurePath(target.output).name)
        return match[1] if match else pathlib.PurePath(target.output).name

    def read_compilations(self):
        """Of each object of the targets: its command, and the sources that it is made of."""
        objects = {word for target in self.targets.values() for word in target.inputs() if word.endswith(".o")}
        self.commands = {}
        for line in run(["ninja", "-t", "commands", self.plan["library"], *self.plan["programs"]], self.build).splitlines():
            words = shlex.split(line) if " -c " in line else []
            if words and value_after(words, "-o") in objects:
                self.commands[value_after(words, "-o")] = self.without_dependencies(words)
        self.made_of = {name: set() for name in objects}
        current = None
        for line in run(["ninja", "-t", "deps"], self.build).splitlines():
            if line and not line[0].isspace():
                current = self.made_of.get(line.split(":")[0])
            elif current is not None and line.strip().startswith(str(self.root / self.plan["sources"])):
                current.add(str(pathlib.Path(line.strip()).relative_to(self.root)))

    @staticmethod
    def without_dependencies(words):
        kept = []
        skipping = False
        for word in words:
            if not skipping and word not in ("-MD", "-MT", "-MF"):
                kept.append(word)
            skipping = word in ("-MT", "-MF")
        return kept

    def copy_all(self):
        shutil.rmtree(self.work, ignore_errors=True)
        shutil.copytree(self.root, self.tree, ignore=self.left_out, ignore_dangling_symlinks=True)
        for target in self.targets.values():
            for name in [target.output, *target.inputs()]:
                if not os.path.isabs(name) and (self.build / name).exists():
                    self.copy(self.build / name, self.base / name)

    def left_out(self, folder, names):
        return {"build", ".git"} & set(names) if pathlib.Path(folder) == self.root else set()

    @staticmethod
    def copy(source, destination):
        if not destination.exists():
            destination.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, destination)

    def own(self, word):
        """A word of a command, with the copy of the tree in place of the tree."""
        return re.sub(re.escape(str(self.root)) + r"/(?!build/)", str(self.tree) + "/", word)

    def source_of(self, name):
        return str(pathlib.Path(self.commands[name][-1]).relative_to(self.root))

    def sources(self):
        folder = self.tree / self.plan["sources"]
        return sorted(str(path.relative_to(self.tree)) for path in folder.rglob("*") if path.suffix in SOURCE_SUFFIXES)

    # Compiling.

    def library_objects(self):
        return [name for name in self.library.inputs() if name in self.commands]

    def precompile(self):
        """The headers of others, once for all mutants."""
        includes = set()
        for path in (self.tree / self.plan["sources"]).rglob("*"):
            if path.suffix in SOURCE_SUFFIXES:
                includes.update(re.findall(r"^#include (<(?:Poco/[\w/]+\.h|[a-z_0-9]+)>)", path.read_text(encoding="utf-8"), re.M))
        header = self.work / "precompiled" / "all.h"
        header.parent.mkdir(parents=True)
        header.write_text("".join(f"#include {include}\n" for include in sorted(includes)), encoding="utf-8")
        command = [self.own(word) for word in self.commands[self.library_objects()[0]]]
        command[command.index("-o") + 1] = f"{header}.gch"
        command[command.index("-c") : command.index("-c") + 2] = ["-x", "c++-header", str(header)]
        run(command + ["-O0", "-g0", "-w"], self.base)
        self.precompiled = str(header)

    def compile_plainly(self):
        """The library without a change, as mutants are built: only so its tests tell a mutant from it."""
        for name in self.library_objects():
            run(self.compilation(name, None, self.base / name), self.base)
        run(self.linking(self.library, {}, self.base / "lib"), self.base)

    def compilation(self, name, overlay, output):
        """The command for an object; files below overlay take the place of those of the tree."""
        words = [self.own(word) for word in self.commands[name]]
        words[words.index("-o") + 1] = str(output)
        if name in self.library_objects():
            words += ["-O0", "-g0", "-include", self.precompiled]
        if overlay is not None:
            source = self.source_of(name)
            if (overlay / source).exists():
                words[words.index("-c") + 1] = str(overlay / source)
            words.insert(1, f"-I{overlay / self.plan['sources']}")
        return words + ["-w"]

    def linking(self, target, replaced, folder):
        """The command for a target in the folder, with the objects that replace those of the build."""
        folder.mkdir(parents=True, exist_ok=True)
        words = [str(replaced.get(word, word)) for word in target.command]
        name = pathlib.PurePath(target.output).name
        soname = next((word.partition("-soname,")[2] for word in words if "-soname," in word), name)
        words[words.index("-o") + 1] = str(folder / soname)
        return [self.own(word) for word in words]

    def objects_with(self, path, target):
        return [name for name in target.inputs() if path in self.made_of.get(name, ())]

    def build_target(self, target, path, overlay, folder):
        """True when the target, with what stands in overlay, is built in the folder."""
        replaced = {}
        for name in self.objects_with(path, target):
            replaced[name] = folder / "objects" / name.replace("/", "_")
            replaced[name].parent.mkdir(parents=True, exist_ok=True)
            if not self.succeeds(self.compilation(name, overlay, replaced[name])):
                return False
        return self.succeeds(self.linking(target, replaced, folder))

    def succeeds(self, command):
        return self.execute(command, COMPILE_SECONDS, None) == 0

    # Running.

    def execute(self, command, seconds, library_folder):
        """The exit status, or None when it took longer. Neither memory nor time are without limit."""
        environment = dict(os.environ)
        if library_folder is not None:
            environment["LD_LIBRARY_PATH"] = str(library_folder)
        limited = ["sh", "-c", f'ulimit -c 0 -v {MEMORY_KIB}; exec "$@"', "sh", *map(str, command)]
        process = subprocess.Popen(
            limited, cwd=self.base, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, start_new_session=True,
        )
        try:
            return process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            return None
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()

    def test(self, program, seconds, library_folder):
        return self.execute([program, "--gtest_fail_fast", "--gtest_brief=1"], seconds, library_folder)

    def measure(self, name):
        """How long the program takes without a change, when it passes."""
        started = time.monotonic()
        status = self.test(self.base / self.targets[name].output, 600, self.base / "lib")
        if status != 0:
            raise BenchError(f"{name} fails without any change: exit status {status}")
        self.limits[name] = self.plan["patience"] + 10 * (time.monotonic() - started)

    def order(self, path):
        first = next((names for folder, names in self.plan["first"].items() if path.startswith(folder + "/")), [])
        return [*first, *(name for name in self.plan["programs"] if name not in first)]

    def verdict(self, change, source, folder):
        """What became of the mutant, and by which program."""
        shutil.rmtree(folder, ignore_errors=True)
        mutant = folder / "overlay" / change.path
        mutant.parent.mkdir(parents=True)
        mutant.write_text(change.applied(source), encoding="utf-8")
        if not self.build_target(self.library, change.path, folder / "overlay", folder / "lib"):
            return NOT_BUILT, ""
        names = self.order(change.path)
        return self.run_built(names, folder) or self.run_rebuilt(names, change, folder) or (SURVIVED, "")

    def run_built(self, names, folder):
        for name in names:
            if self.library.output in self.targets[name].command:
                outcome = self.judge(name, self.base / self.targets[name].output, folder)
                if outcome:
                    return outcome, name
        return None

    def run_rebuilt(self, names, change, folder):
        """The programs that are made of the changed file themselves."""
        for name in names:
            target = self.targets[name]
            if self.objects_with(change.path, target):
                if not self.build_target(target, change.path, folder / "overlay", folder / name):
                    return NOT_BUILT, name
                outcome = self.judge(name, folder / name / pathlib.PurePath(target.output).name, folder)
                if outcome:
                    return outcome, name
        return None

    def judge(self, name, program, folder):
        status = self.test(program, self.limits[name], folder / "lib")
        return TIMED_OUT if status is None else KILLED if status != 0 else None
