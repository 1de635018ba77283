"""What scripts/tidy promises: sources that are looked at together show what each would show alone."""
import json
import shutil
import subprocess
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
CLEAN = "int clean_{0}(int a) {{\n    return a + {0};\n}}\n"
OWN_NAME = "namespace {{\nint own() {{\n    return {0};\n}}\n}} // namespace\nint other_{0}() {{\n    return own();\n}}\n"
UNUSED = "int bad(int a, int b) {\n    return a;\n}\n"


@pytest.fixture
def tree(tmp_path):
    """A tree of its own with the same script and settings: writes sources, runs the script over them."""
    class Tree:
        def __init__(self) -> None:
            self.sources = []
            self.asked = tmp_path / "asked"
            (tmp_path / "scripts").mkdir()
            (tmp_path / "bin").mkdir()
            shutil.copy(TOP / "scripts/tidy", tmp_path / "scripts")
            shutil.copy(TOP / ".clang-tidy", tmp_path)
            tidy = tmp_path / "bin/clang-tidy"
            tidy.write_text(f'#!/bin/sh\necho "$@" >>{self.asked}\nexec /usr/bin/clang-tidy "$@"\n')
            tidy.chmod(0o755)

        def add(self, name: str, text: str) -> None:
            (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
            (tmp_path / name).write_text(text)
            self.sources.append(name)

        def run(self, **variables: str) -> tuple[int, str]:
            build = tmp_path / "build/release"
            build.mkdir(parents=True, exist_ok=True)
            commands = [{"directory": str(build), "file": str(tmp_path / name),
                         "command": f"/usr/bin/c++ -std=c++20 -o {name}.o -c {tmp_path / name}"} for name in self.sources]
            (build / "compile_commands.json").write_text(json.dumps(commands))
            done = subprocess.run([tmp_path / "scripts/tidy", *self.sources], capture_output=True, text=True,
                                  env={"PATH": f"{tmp_path}/bin:/usr/bin:/bin"} | variables)
            return done.returncode, done.stdout + done.stderr

        def runs(self) -> int:
            return len(self.asked.read_text().splitlines())
    return Tree()


def test_clean_sources_of_a_folder_are_looked_at_at_once_and_analysed_one_by_one(tree):
    for number in range(8):
        tree.add(f"src/core/{number}.cpp", CLEAN.format(number))
    assert tree.run() == (0, "")
    assert tree.runs() == 1 + 8


def test_the_full_analysis_goes_to_the_end_of_each_way(tree):
    tree.add("src/core/0.cpp", CLEAN.format(0))
    for variables, bounded in ({}, 1), ({"KOLT_ANALYSIS": "full"}, 0):
        tree.asked.unlink(missing_ok=True)
        assert tree.run(**variables) == (0, "")
        assert tree.asked.read_text().count("max-nodes=") == bounded


@pytest.mark.parametrize("text, check", [
    (UNUSED, "misc-unused-parameters"),
    ("int bad(int a) {\n    int zero = 0;\n    return a / zero;\n}\n", "clang-analyzer-core.DivideZero"),
    ("#include <cstdlib>\nchar bad() {\n    char *a = static_cast<char *>(calloc(3, 1));\n    free(a);\n    return a[0];\n}\n",
     "clang-analyzer-unix.Malloc"),
    ("namespace {\nint BadName(int a) {\n    return a;\n}\n} // namespace\nint bad(int a) {\n    return BadName(a);\n}\n",
     "readability-identifier-naming"),
    ("#include <utility>\nusing std::move;\n", "misc-unused-using-decls"),
    ("namespace some {}\nnamespace same = some;\n", "misc-unused-alias-decls"),
    ("int bad(int a) {\n    return a + b;\n}\n", "clang-diagnostic-error")])
def test_a_finding_in_one_of_them_is_told(tree, text, check):
    tree.add("src/core/0.cpp", CLEAN.format(0))
    tree.add("src/core/1.cpp", text)
    tree.add("src/core/2.cpp", CLEAN.format(2))
    status, out = tree.run()
    assert status == 1
    [finding] = {line for line in out.splitlines() if " error: " in line}
    assert "src/core/1.cpp:" in finding and f"[{check}" in finding


def test_a_function_that_another_source_calls_well_is_analysed_all_the_same(tree):
    tree.add("src/core/0.cpp", "int sink(int a, int b);\nint sink(int a, int b) {\n    return b != 0 ? a : a / b;\n}\n")
    tree.add("src/core/1.cpp", "int sink(int a, int b);\nint call() {\n    return sink(1, 1);\n}\n")
    status, out = tree.run()
    assert status == 1 and "src/core/0.cpp:3:" in out and "[clang-analyzer-core.DivideZero" in out


def test_names_that_two_of_them_have_are_no_finding(tree):
    for number in range(4):
        tree.add(f"src/core/{number}.cpp", OWN_NAME.format(number))
    assert tree.run() == (0, "")


def test_a_finding_beside_names_that_two_of_them_have_is_told(tree):
    tree.add("src/core/0.cpp", OWN_NAME.format(0))
    tree.add("src/core/1.cpp", OWN_NAME.format(1) + UNUSED)
    status, out = tree.run()
    assert status == 1 and "src/core/1.cpp:9:20: error: parameter 'b' is unused" in out


def test_a_folder_s_own_settings_hold_for_its_sources(tree, tmp_path):
    for folder in ("src", "compat"):
        for number in range(2):
            tree.add(f"{folder}/{number}.cpp", f"int bad_{folder}_{number}(int a, int b) {{\n    return a;\n}}\n")
    (tmp_path / "compat/.clang-tidy").write_text("InheritParentConfig: true\nChecks: -misc-unused-parameters\n")
    status, out = tree.run()
    assert status == 1 and "src/0.cpp" in out and "src/1.cpp" in out and "compat/" not in out


def test_a_source_that_nothing_compiles_is_looked_at_alone(tree, tmp_path):
    tree.add("src/0.cpp", CLEAN.format(0))
    tree.run()
    (tmp_path / "src/1.cpp").write_text(UNUSED)
    done = subprocess.run([tmp_path / "scripts/tidy", "src/0.cpp", "src/1.cpp"], capture_output=True, text=True)
    assert done.returncode == 1 and "src/1.cpp:1:" in done.stdout


def test_a_run_that_cannot_be_made_fails(tree, tmp_path):
    tree.add("src/0.cpp", CLEAN.format(0))
    (tmp_path / "bin/clang-tidy").write_text("#!/bin/sh\nexit 9\n")
    assert tree.run() == (1, 2 * "clang-tidy ended with status 9\n")
