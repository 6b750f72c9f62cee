#!/usr/bin/env python3
"""Asks the tests whether they would notice: changes one operator or constant of the core at a time, builds, runs the
suite and tells which changes it did not fail on.

A change that compiles to the same object is no change, and neither is one that tests/mutants.txt has: somebody looked
at it and found no input that tells it from the original. A suite that hangs has noticed. Places are drawn from a seed;
one worker in a tree of its own runs on each processor.
"""
import argparse
import concurrent.futures
import hashlib
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCES = ("Common", "Kernels", "Codec", "Platform", "include", "cmake", "tests", "fuzz", "examples")
OPERATORS = (
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "), (r" == ", " != "), (r" != ", " == "),
    (r" \+ ", " - "), (r" - ", " + "), (r" && ", " || "), (r" \|\| ", " && "), (r" & ", " | "), (r" \| ", " & "),
    (r" << ", " >> "), (r" >> ", " << "), (r" \* ", " + "), (r" % ", " / "), (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"), (r"\+\+", "--"), (r" \+= ", " -= "), (r"(?<=[(&| ])!(?=[a-z(])", ""))
NUMBER = re.compile(r"(?<![\w.'])(\d+)(?=[),;\]: }])")
# Lines whose text is no code, or no code that runs.
SKIP = re.compile(r"^\s*(//|#|static_assert|template|using|namespace|case |constexpr uint32_t kSites)|TARN_HERE|operator|\"")


class Mutant:
    def __init__(self, file, line, column, old, new):
        self.file, self.line, self.column, self.old, self.new = file, line, column, old, new
        self.state, self.by, self.seconds = "", "", 0.0

    def key(self):
        """What mutants.txt has of it: the place is told by the text of its line."""
        text = (ROOT / self.file).read_text().split("\n")[self.line]
        marked = text[:self.column] + "[" + self.old.strip() + "]" + text[self.column + len(self.old):]
        return "%s: %s -> %s" % (self.file, " ".join(marked.split()), self.new.strip())

    def changed(self, text):
        lines = text.split("\n")
        at = lines[self.line]
        lines[self.line] = at[:self.column] + self.new + at[self.column + len(self.old):]
        return "\n".join(lines)

    def __str__(self):
        place = "%s:%d:%d" % (self.file, self.line + 1, self.column + 1)
        return "%-9s %s  %r -> %r  %s (%.0f s)" % (self.state, place, self.old.strip(), self.new.strip(), self.by,
                                                  self.seconds)


def places(folders):
    """Everything that could be changed, by line."""
    found = []
    for folder in folders:
        for path in sorted((ROOT / folder).rglob("*.cpp")):
            file = path.relative_to(ROOT).as_posix()
            if "Win" in path.name:
                continue
            for number, text in enumerate(path.read_text().split("\n")):
                code = text.split("//")[0]
                if SKIP.search(code):
                    continue
                here = [Mutant(file, number, m.start(), m.group(), new) for old, new in OPERATORS
                        for m in re.finditer(old, code)]
                here += [Mutant(file, number, m.start(), m.group(), str(int(m.group()) + 1))
                         for m in NUMBER.finditer(code)]
                if here:
                    found.append(here)
    return found


def known_equal():
    """The changes of tests/mutants.txt; lines that begin with # say why."""
    lines = (ROOT / "tests" / "mutants.txt").read_text().split("\n")
    return {line.strip() for line in lines if line.strip() and not line.startswith("#")}


class Tree:
    """A copy of the sources with its build."""

    def __init__(self, folder):
        self.folder = folder
        self.build = folder / "build" / "checked"  # as deep as it is in the original: a compiler cache may know it
        folder.mkdir(parents=True, exist_ok=True)
        for name in SOURCES:
            # Times are kept, and with them what was built before.
            shutil.rmtree(folder / name, ignore_errors=True)
            shutil.copytree(ROOT / name, folder / name)
        shutil.copy2(ROOT / "CMakeLists.txt", folder)
        (folder / "LICENSE").touch()
        (folder / "README.md").touch()
        command = ["cmake", "-G", "Ninja", "-S", str(folder), "-B", str(self.build), "-DTARN_TOOL=OFF",
                   "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_C_FLAGS_RELEASE=-O3 -g1",
                   "-DCMAKE_CXX_FLAGS_RELEASE=-O3 -g1 -D_GLIBCXX_ASSERTIONS"]  # as ./dev test has it, and has built
        if shutil.which("ccache"):
            command += ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        self.clean = {}

    def make(self, jobs=1):
        made = subprocess.run(["cmake", "--build", str(self.build), "--target", "tarn_tests", "-j", str(jobs)],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return made.returncode == 0, made.stdout

    def object_of(self, file):
        for target in ("tarn_objects", "tarn_codec_objects"):
            path = self.build / "CMakeFiles" / (target + ".dir") / (file + ".o")
            if path.exists():
                return hashlib.sha256(path.read_bytes()).hexdigest()
        return ""

    def run(self, pattern, limit):
        """The first case that fails, "hangs", or nothing."""
        try:
            ran = subprocess.run([str(self.build / "tests" / "tarn_tests"), "--gtest_fail_fast", "--gtest_brief=1",
                                  "--gtest_filter=" + pattern], cwd=self.build / "tests", stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=limit, check=False)
        except subprocess.TimeoutExpired:
            return "hangs"
        if ran.returncode == 0:
            return ""
        failed = re.search(r"\[  FAILED  \] ([\w./]+)", ran.stdout.decode(errors="replace"))
        return failed.group(1) if failed else "ends with %d" % ran.returncode


def stages(file, everything):
    """Filters in the order in which they are likely to notice."""
    name = pathlib.PurePath(file).stem
    topic = re.sub(r"(_portable|_avx2|_avx512|Store|Run|Wave|Rows)$", "", name)
    topic = re.sub(r"(Area|Linear|Spline|Ink|Stream|Quarter|Angle|Disk|Read|Header|Runs|Warp|Fused|Stages)$", "", topic)
    near = "*%s*" % (topic[:1].upper() + topic[1:])
    slow = "Sweep.*:Hostile.*:Kill.*:DiskFull.*:StorageMatrix.*:Threads.*"
    first = near + ":" + ("Kernels.*:Differential.*" if file.startswith("Kernels") else "Differential.*")
    return [first + "-" + slow, "*-" + slow] + (["*"] if everything else [])


def try_mutant(tree, mutant, everything, limit):
    path = tree.folder / mutant.file
    text = path.read_text()
    began = time.monotonic()
    path.write_text(mutant.changed(text))
    try:
        built, output = tree.make()
        if not built:
            mutant.state = "invalid"
            mutant.by = next((line for line in output.split("\n") if "error:" in line), "")[-90:]
        elif tree.object_of(mutant.file) == tree.clean[mutant.file]:
            mutant.state = "same"
        else:
            mutant.state = "survived"
            for pattern in stages(mutant.file, everything):
                mutant.by = tree.run(pattern, limit)
                if mutant.by:
                    mutant.state = "killed"
                    break
    finally:
        path.write_text(text)
        mutant.seconds = time.monotonic() - began
    return mutant


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("count", nargs="?", type=int, default=60, help="changes to try")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--folder", type=pathlib.Path, default=ROOT / "build" / "mutate")
    parser.add_argument("--sources", default="Common,Kernels", help="folders to change")
    parser.add_argument("--quick", action="store_true", help="without the sweeps and the other slow cases")
    parser.add_argument("--minutes", type=float, default=1e9, help="none is begun later than that")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    options = parser.parse_args()

    lines = places(options.sources.split(","))
    chance = random.Random(options.seed)
    chosen = [chance.choice(here) for here in chance.sample(lines, min(len(lines), 2 * options.count))]
    equal = known_equal()
    print("%d lines could change; %d of them do, seed %d" % (len(lines), options.count, options.seed), flush=True)

    trees = queue.Queue()
    seconds = 0.0
    for number in range(options.jobs):
        tree = Tree(options.folder / ("tree%d" % number))
        built, output = tree.make(options.jobs)
        if not built:
            sys.exit(output[-4000:])
        tree.clean = {mutant.file: tree.object_of(mutant.file) for mutant in chosen}
        if number == 0:
            began = time.monotonic()
            wrong = tree.run("*", 3600)
            seconds = time.monotonic() - began
            if wrong:
                sys.exit("without a change %s fails" % wrong)
            print("the suite takes %.0f s" % seconds, flush=True)
        trees.put(tree)

    def work(mutant):
        if mutant.key() in equal:
            mutant.state = "same"
            return mutant
        tree = trees.get()
        try:
            return try_mutant(tree, mutant, not options.quick, 3 * seconds + 60)
        finally:
            trees.put(tree)

    end = time.monotonic() + 60 * options.minutes
    count = {"killed": 0, "survived": 0, "same": 0, "invalid": 0}
    report = []
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        waiting = iter(chosen)
        running = {pool.submit(work, mutant) for _, mutant in zip(range(options.jobs), waiting)}
        while running:
            done, running = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in done:
                mutant = future.result()
                count[mutant.state] += 1
                report.append(str(mutant))
                print(mutant, flush=True)
                if mutant.state == "survived":
                    print("          %s" % mutant.key(), flush=True)
                if count["killed"] + count["survived"] + len(running) < options.count and time.monotonic() < end:
                    for following in waiting:
                        running.add(pool.submit(work, following))
                        break
    (options.folder / "report.txt").write_text("\n".join(sorted(report)) + "\n")
    judged = count["killed"] + count["survived"]
    share = 100.0 * count["killed"] / judged if judged else 0.0
    print("%d killed, %d survived (%.0f %% killed), %d the same code, %d that do not compile" %
          (count["killed"], count["survived"], share, count["same"], count["invalid"]))
    return 0 if share >= 90 else 1


if __name__ == "__main__":
    sys.exit(main())
