"""Many pictures through the same commands, on this machine or on a cluster of dask.distributed.

    python3 -m tarn.batch --cluster tcp://10.0.0.1:8786 'in/*.tif' out/ -- resize 25% -- colors --bits 8

Pictures, outputs and the installed ``tarn`` lie on storage that all machines see under the same names. Each picture is
one run of the tool, so the bytes are those of ``tarn batch``, and so are the rules: names are checked before any work,
outputs appear whole or not at all, and the journal in the folder of outputs says what is done already, whoever did it.
Without --cluster the work is that of ``tarn batch`` itself.

The tool is the one that TARN_TOOL names, the one installed with this package, or the first in PATH.
"""

from __future__ import annotations

import argparse
import dataclasses
import fcntl
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Iterable, Iterator, Sequence
from typing import Any, Optional

__all__ = ["Failed", "Summary", "ToolError", "find_tool", "run"]

_JOURNAL = ".tarn-batch"  # its format is that of tools/BatchJournal.h
_FILE_OPTIONS = ("format", "storage", "compression", "quality", "page", "max-pixels", "tile-size", "max-memory")


class ToolError(Exception):
    """The batch has not begun: wrong arguments, names that clash, no tool, machines with different tools.

    ``code`` is an exit code of the tool.
    """

    def __init__(self, message: str, code: int) -> None:
        super().__init__(message)
        self.code = code


@dataclasses.dataclass(frozen=True)
class Failed:
    """A picture that has no output: ``code`` is the tool's exit code, ``reason`` its line."""

    input: str
    code: int
    reason: str


@dataclasses.dataclass
class Summary:
    """What became of a batch. ``left`` pictures were not come to."""

    done: int = 0
    skipped: int = 0
    left: int = 0
    seconds: float = 0.0
    failed: list[Failed] = dataclasses.field(default_factory=list)


def find_tool() -> str:
    """The tool's path; ToolError where there is none."""
    named = os.environ.get("TARN_TOOL")
    if named:
        return named
    here = os.path.dirname(os.path.abspath(globals().get("__file__", "")))
    # PREFIX/lib/python3/dist-packages/tarn: the tool is in PREFIX/bin.
    beside = os.path.normpath(os.path.join(here, "..", "..", "..", "..", "bin", "tarn"))
    found = beside if os.access(beside, os.X_OK) else shutil.which("tarn")
    if not found:
        raise ToolError("tarn: the tool is not installed; TARN_TOOL may name it", 2)
    return found


def run(
    inputs: Iterable[str | os.PathLike[str]],
    folder: str | os.PathLike[str],
    chain: Sequence[str] = (),
    *,
    cluster: Any = None,
    jobs: int = 0,
    suffix: str = "",
    again: bool = False,
    stop_on_error: bool = False,
    options: Sequence[str] = (),
) -> Summary:
    """Takes pictures through the words of ``chain``, commands with ``--`` between them.

    ``cluster`` is the address of a scheduler or a ``distributed.Client``; without one the pictures are done here,
    ``jobs`` at a time. ``options`` go to the tool's reading and writing, as ``["--compression", "lzw"]``; what they
    say of memory holds for each picture on a cluster. ToolError before the work, nothing after it has begun.
    """
    arguments = [*(os.fspath(name) for name in inputs), os.fspath(folder)]
    if suffix:
        arguments += ["--suffix", suffix]
    if again:
        arguments.append("--again")
    arguments += options
    words = ["--", *chain] if chain else []
    if cluster is not None:
        return _Cluster(arguments, os.fspath(folder), list(options), list(chain), stop_on_error).run(cluster)
    if jobs:
        arguments += ["--jobs", str(jobs)]
    if stop_on_error:
        arguments.append("--stop-on-error")
    begun = time.monotonic()
    ended = subprocess.run([find_tool(), "batch", *arguments, "--quiet", *words], capture_output=True, check=False)
    return _read_summary(ended, time.monotonic() - begun)


# ---- On this machine -------------------------------------------------------------------------------------------------


def _read_summary(ended: subprocess.CompletedProcess[bytes], seconds: float) -> Summary:
    text = os.fsdecode(ended.stdout)
    counts = re.search(r"^(\d+) done, (\d+) skipped, (\d+) failed(?:, (\d+) left)?", text, re.MULTILINE)
    if not counts:
        raise ToolError(os.fsdecode(ended.stderr).strip(), ended.returncode)
    summary = Summary(int(counts[1]), int(counts[2]), int(counts[4] or 0), seconds)
    for line in re.finditer(r"^failed \((\d+)\): (.*?): (.*)$", text[counts.end():], re.MULTILINE):
        summary.failed.append(Failed(line[2], int(line[1]), f"tarn: {line[2]}: {line[3]}"))
    return summary


# ---- On a cluster ----------------------------------------------------------------------------------------------------


@dataclasses.dataclass(frozen=True)
class _Job:
    key: str
    input: str
    output: str


def _unescaped(name: str) -> str:
    return re.sub(r"\\([0-7]{3})", lambda octal: chr(int(octal[1], 8)), name)


def _escaped(name: str) -> str:
    return re.sub(r"[\x00-\x1f\x7f\\]", lambda char: f"\\{ord(char[0]):03o}", name)


def _local_tool(tool: str) -> str:
    """On a machine of the cluster: its own setting, the same place as at the start, or the first in PATH."""
    return os.environ.get("TARN_TOOL") or (tool if os.access(tool, os.X_OK) else shutil.which("tarn") or tool)


def _version(tool: str) -> str:
    try:
        return subprocess.run([_local_tool(tool), "--version"], capture_output=True, text=True, check=False).stdout
    except OSError as error:
        return str(error)


def _do(job: _Job, tool: str, options: list[str], chain: list[str], directory: str) -> tuple[int, str, str, int, int]:
    """One picture, on a machine of the cluster. It may be begun twice, when its machine was thought to be lost: either
    run gives the output its name in one moment, with the same bytes.

    Returns the exit code, standard output and error, and the output's size and time of change as seen here.
    """
    os.makedirs(os.path.dirname(job.output), exist_ok=True)
    command = [_local_tool(tool), "run", job.input, *options, "--quiet", "--", *chain, job.output]
    ended = subprocess.run(
        command, stdin=subprocess.DEVNULL, capture_output=True, check=False,
        cwd=directory if os.path.isdir(directory) else None)
    code, error = ended.returncode, os.fsdecode(ended.stderr)
    if code < 0:  # a crash; a kill is the kernel's answer to a lack of memory
        code, error = (6 if code == -signal.SIGKILL else 7), f"tarn: {job.input}: its process ended by signal {-code}"
    if code != 0:
        return code, os.fsdecode(ended.stdout), error, 0, 0
    made = os.stat(job.output)
    return 0, os.fsdecode(ended.stdout), error, made.st_size, made.st_mtime_ns


class _Journal:
    """Keeps other batches away from the folder and notes what is done."""

    def __init__(self, folder: str) -> None:
        self._file = os.open(
            os.path.join(folder, _JOURNAL), os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o666)
        try:
            fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            os.close(self._file)
            raise ToolError(f"tarn: {folder}: another batch writes into this folder", 5) from None
        except OSError:
            pass  # a file system that has no locks

    def add(self, key: str, size: int, changed: int, name: str) -> None:
        try:
            os.write(self._file, os.fsencode(f"{key} {size} {changed} {_escaped(name)}\n"))
        except OSError:
            pass  # the picture will be done again

    def close(self) -> None:
        os.close(self._file)


class _Cluster:
    def __init__(
        self, arguments: list[str], folder: str, options: list[str], chain: list[str], stop_on_error: bool
    ) -> None:
        self._arguments = arguments
        self._folder = folder
        self._options = options
        self._chain = chain or ["convert"]
        self._stop_on_error = stop_on_error
        self._tool = find_tool()
        self._summary = Summary()

    def run(self, cluster: Any) -> Summary:
        import distributed

        client_type: Any = distributed.Client

        jobs = self._plan()
        os.makedirs(self._folder, exist_ok=True)
        journal = _Journal(self._folder)
        try:
            jobs = self._plan()  # again: another batch may have been at work until just now
            begun = time.monotonic()
            if jobs and isinstance(cluster, client_type):
                self._distribute(cluster, jobs, journal)
            elif jobs:
                with client_type(cluster, timeout="30s") as client:
                    self._distribute(client, jobs, journal)
            self._summary.seconds = time.monotonic() - begun
        finally:
            journal.close()
        return self._summary

    def _list(self, *more: str) -> list[_Job]:
        command = [self._tool, "batch", *self._arguments, "--plan", *more, "--", *self._chain]
        ended = subprocess.run(command, capture_output=True, check=False)
        if ended.returncode != 0:
            raise ToolError(os.fsdecode(ended.stderr).strip(), ended.returncode)
        lines = (line.split("\t") for line in os.fsdecode(ended.stdout).splitlines())
        return [_Job(key, _unescaped(source), _unescaped(target)) for key, source, target in lines]

    def _plan(self) -> list[_Job]:
        jobs = self._list()
        if "--again" not in self._arguments:
            self._summary.skipped = len(self._list("--again")) - len(jobs)
        return [_Job(job.key, os.path.abspath(job.input), os.path.abspath(job.output)) for job in jobs]

    def _distribute(self, client: Any, jobs: list[_Job], journal: _Journal) -> None:
        here = _version(self._tool)
        for worker, version in client.run(_version, self._tool).items():
            if version != here:
                raise ToolError(f"tarn: {worker} has another tool: {version.strip()!r}, not {here.strip()!r}", 1)
        futures = client.map(
            _do, jobs, tool=self._tool, options=self._options, chain=self._chain, directory=os.getcwd(), pure=False)
        by_key = {future.key: job for future, job in zip(futures, jobs)}
        try:
            for future in self._ended(futures):
                job = by_key.pop(future.key)
                self._hear(job, future, journal)
                future.release()
                if self._summary.failed and self._stop_on_error:
                    break
        finally:
            self._summary.left = len(by_key)
            if by_key:
                client.cancel([future for future in futures if future.key in by_key], force=True)

    def _ended(self, futures: list[Any]) -> Iterator[Any]:
        import distributed  # has no annotations

        as_completed: Any = distributed.as_completed
        shown = sys.stderr.isatty()
        begun = time.monotonic()
        for count, future in enumerate(as_completed(futures), 1):
            yield future
            if shown:
                rate = count / max(time.monotonic() - begun, 1e-6)
                sys.stderr.write(f"\r{count} of {len(futures)}, {rate:.1f}/s\033[K")
        if shown:
            sys.stderr.write("\r\033[K")

    def _hear(self, job: _Job, future: Any, journal: _Journal) -> None:
        try:
            code, printed, error, size, changed = future.result()
        except Exception as lost:  # the cluster's own: machines that went away again and again, a full disk
            code, printed, error, size, changed = 7, "", f"tarn: {job.input}: {lost}", 0, 0
        if printed:
            sys.stdout.write(f"{job.input}: {printed}")
        if error:
            sys.stderr.write(error if error.endswith("\n") else error + "\n")
        if code == 0:
            self._summary.done += 1
            journal.add(job.key, size, changed, os.path.relpath(job.output, os.path.abspath(self._folder)))
        else:
            self._summary.failed.append(Failed(job.input, code, error.strip()))


# ---- From the command line -------------------------------------------------------------------------------------------


def _main(words: list[str]) -> int:
    cut = words.index("--") if "--" in words else len(words)
    own, chain = words[:cut], words[cut + 1:]
    parser = argparse.ArgumentParser(
        prog="python3 -m tarn.batch", description="Many pictures through the same commands, on one machine or many.",
        epilog="Without commands pictures are converted to what --format says.",
        usage="%(prog)s [--cluster ADDRESS] IN... OUT [OPTION...] -- COMMAND ... -- COMMAND ...", allow_abbrev=False)
    parser.add_argument("names", nargs="+", metavar="IN... OUT", help="as with tarn batch")
    parser.add_argument("--cluster", metavar="ADDRESS", help="of a dask.distributed scheduler, tcp://HOST:PORT")
    parser.add_argument("--jobs", type=int, default=0, metavar="N", help="pictures at a time, without --cluster")
    parser.add_argument("--suffix", default="", metavar="TEXT", help="of the outputs' names, as with tarn batch")
    parser.add_argument("--again", action="store_true", help="do what has been done already, too")
    parser.add_argument("--stop-on-error", action="store_true", help="begin no further picture after one that fails")
    for option in _FILE_OPTIONS:
        parser.add_argument(f"--{option}", metavar="N", help="as with tarn run")
    given = parser.parse_args(own)
    options: list[str] = []
    for option in _FILE_OPTIONS:
        value: Optional[str] = getattr(given, option.replace("-", "_"))
        if value is not None:
            options += [f"--{option}", value]
    if given.cluster is None:
        tool = find_tool()
        os.execv(tool, [tool, "batch", *own, *(["--", *chain] if chain else [])])
    if len(given.names) < 2:
        parser.error("pictures and the folder to write into are needed")
    summary = run(
        given.names[:-1], given.names[-1], chain, cluster=given.cluster, suffix=given.suffix, again=given.again,
        stop_on_error=given.stop_on_error, options=options)
    print(f"{summary.done} done, {summary.skipped} skipped, {len(summary.failed)} failed"
          + (f", {summary.left} left" if summary.left else "")
          + f"; {summary.seconds:.1f} s, {summary.done / max(summary.seconds, 1e-6):.1f} pictures/s")
    for failed in summary.failed:
        print(f"failed ({failed.code}): {failed.reason.removeprefix('tarn: ')}")
    return summary.failed[0].code if summary.failed else 0


if __name__ == "__main__":
    try:
        sys.exit(_main(sys.argv[1:]))
    except ToolError as refused:
        print(refused, file=sys.stderr)
        sys.exit(refused.code)
    except KeyboardInterrupt:
        # What is under way elsewhere comes to its end or is dropped; no output is there in part.
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        os.kill(os.getpid(), signal.SIGINT)
