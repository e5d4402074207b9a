"""scripts/mutants finds the changes of a source, tells the killed from those that survive, and holds the
list of equivalent ones to the sources.

usage: mutants_test.py ROOT
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "mutants"))

import changes  # noqa: E402

PRESETS = """{"version": 4, "configurePresets": [
  {"name": "dev", "generator": "Ninja", "binaryDir": "${sourceDir}/build/dev",
   "cacheVariables": {"CMAKE_CXX_FLAGS": "-Werror -Wall"}}],
  "buildPresets": [{"name": "dev", "configurePreset": "dev"}]}
"""
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(sample CXX)
add_library(sample SHARED src/part/sample.cpp)
target_include_directories(sample PUBLIC src)
add_executable(sample_test test.cpp)
target_link_libraries(sample_test sample)
add_executable(own_test own.cpp src/part/sample.cpp)
target_include_directories(own_test PRIVATE src)
"""
HALF = """#pragma once
inline int Half(int value)
{
    return value / 2;
}
"""
SAMPLE = """#include "part/half.h"
int HalfOfLarger(int a, int b)
{
    if (a < b)
        return Half(b);
    return Half(a);
}
int Drain(int left)
{
    while (true) {
        if (Half(left) < 4)
            break;
        left = 6;
    }
    return left;
}
bool IsSeven(int value)
{
    return value == 7;
}
"""
TEST = """int HalfOfLarger(int, int);
int Drain(int);
int main() { return HalfOfLarger(4, 8) == 4 && HalfOfLarger(8, 4) == 4 && Drain(20) == 6 && Drain(8) == 6 && Drain(5) == 5 ? 0 : 1; }
"""
OWN_TEST = """bool IsSeven(int);
int main() { return IsSeven(7) && !IsSeven(8) ? 0 : 1; }
"""
PLAN = {
    "preset": "dev", "sources": "src", "library": "sample", "programs": ["sample_test", "own_test"],
    "first": {"src/part": ["sample_test"]}, "patience": 3,
}
LISTED = """# A comment.
file: src/part/sample.cpp

line: if (a < b)
above: {
change: < -> <=
reason: of two that are equal
    either is the larger
"""


def labels(source):
    return [(change.line, change.label) for change in changes.changes_of("src/a.cpp", source)]


class Changes(unittest.TestCase):
    def test_what_is_no_code_stays(self):
        self.assertEqual(labels('// a < b\n/* 1 */\n#define X 1 + \\\n  2\nconst char* t = "1 + 2";\nchar c = \'1\';\n'), [])

    def test_templates_and_assertions_stay(self):
        self.assertEqual(labels("template <int N>\nstd::vector<std::list<int>> v;\nstatic_assert(1 < 2);\n[[gnu::cold]] void F(int& a, int&& b);\n"), [])

    def test_operators(self):
        body = "bool F(int a, int b)\n{\n    return a <= b && !G(a);\n}\n"
        expected = ["! -> nothing", "&& -> ||", "<= -> <", "<= -> >", "returned value -> {}"]
        self.assertEqual(sorted(label for _, label in labels(body)), expected)

    def test_numbers(self):
        self.assertEqual(
            labels("int a = 8u;\nint b = 0x10;\nint c = 0;\nfloat d = 3.9F;\nfloat e = 0x1p-2F;\nint f = 1;\n"),
            [(1, "8u -> 0u"), (1, "8u -> 7u"), (1, "8u -> 9u"), (2, "0x10 -> 0x0"), (2, "0x10 -> 0x11"), (2, "0x10 -> 0xf"),
             (3, "0 -> 1"), (4, "3.9F -> 4.9F"), (5, "0x1p-2F -> 0x1p-1F"), (6, "1 -> 0"), (6, "1 -> 2")],
        )

    def test_statements(self):
        body = "void F()\n{\n    int a;\n    ScopedLock lock(m);\n    a = b;\n    Run([&] { G(); });\n    for (x : y)\n        break;\n    throw;\n}\nstruct S {\n    void G();\n};\n"
        removed = "statement removed"
        self.assertEqual(labels(body), [(4, removed), (5, removed), (6, removed), (6, removed + " #2"), (8, removed), (9, removed)])

    def test_conditions(self):
        body = "void F()\n{\n    if (a)\n        return;\n    while (a)\n        G(b ? c : d);\n}\n"
        true, false, contrary = "condition -> true", "condition -> false", "condition -> its contrary"
        self.assertEqual(
            labels(body),
            [(3, false), (3, contrary), (3, true), (4, "statement removed"), (5, false), (5, contrary), (6, "statement removed"),
             (6, false), (6, contrary), (6, true)],
        )


class Runs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="mutants-")
        cls.tree = pathlib.Path(cls.folder.name) / "tree"
        (cls.tree / "src/part").mkdir(parents=True)
        (cls.tree / "mutants").mkdir()
        files = {
            "CMakePresets.json": PRESETS, "CMakeLists.txt": PROJECT, "src/part/half.h": HALF, "src/part/sample.cpp": SAMPLE,
            "test.cpp": TEST, "own.cpp": OWN_TEST, "mutants/plan.json": json.dumps(PLAN),
        }
        for name, text in files.items():
            (cls.tree / name).write_text(text, encoding="utf-8")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def run_tool(self, *options, listed=""):
        (self.tree / "mutants/equivalent.txt").write_text(listed, encoding="utf-8")
        command = [sys.executable, ROOT / "scripts/mutants", "--tree", self.tree, *options]
        return subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)

    def outcomes(self):
        records = json.loads((self.tree / "build/mutants/results.json").read_text(encoding="utf-8"))
        return {(record["text"], record["change"]): record["outcome"] for record in records}

    def test_each_outcome(self):
        result = self.run_tool()
        self.assertEqual(result.returncode, 1, result.stderr)
        outcomes = self.outcomes()
        condition = "if (a < b)"
        self.assertEqual(outcomes[condition, "< -> >="], "killed")
        self.assertEqual(outcomes["return value / 2;", "/ -> *"], "killed")
        self.assertEqual(outcomes["break;", "statement removed"], "timed out")
        self.assertEqual(outcomes["return value == 7;", "7 -> 8"], "killed")
        survivors = [key for key, outcome in outcomes.items() if outcome == "survived"]
        self.assertEqual(survivors, [(condition, "< -> <=")])
        self.assertIn("survived: src/part/sample.cpp:4: < -> <=\n    if (a < b)\n", result.stdout)
        self.assertEqual((self.tree / "src/part/sample.cpp").read_text(encoding="utf-8"), SAMPLE)

        resumed = self.run_tool("--resume")
        self.assertEqual(resumed.returncode, 1)
        self.assertIn(f"{len(outcomes)} changes, 1 of them to try", resumed.stderr)
        self.assertEqual(self.outcomes(), outcomes)

        listed = self.run_tool("--resume", listed=LISTED)
        self.assertEqual((listed.returncode, listed.stderr), (0, ""))
        self.assertEqual(self.outcomes()[condition, "< -> <="], "equivalent")

    def test_an_entry_that_fits_nothing(self):
        for old, new in (("a < b)", "b < a)"), ("< -> <=", "< -> =="), ("above: {", "above: }"), ("sample.cpp", "simple.cpp")):
            result = self.run_tool("--file", "src/part/half.h", listed=LISTED.replace(old, new))
            self.assertEqual(result.returncode, 1)
            self.assertIn("mutants/equivalent.txt: line 4: ", result.stderr)
            self.assertIn("any more", result.stderr)

    def test_an_entry_without_a_reason(self):
        result = self.run_tool(listed="file: src/part/half.h\nline: return value / 2;\nchange: / -> *\n")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("line 2: an entry needs", result.stderr)

    def test_a_sample_is_drawn_by_its_seed(self):
        first, again, other = (self.run_tool("--list", "--sample", "5", "--seed", seed).stdout for seed in ("a", "a", "b"))
        self.assertEqual(len(first.splitlines()), 10)
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)

    def test_a_source_that_is_none(self):
        result = self.run_tool("--file", "src/other")
        self.assertEqual(result.returncode, 2)
        self.assertIn("no source has a change: src/other", result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
