"""Batches on a cluster: a scheduler and two workers on the loopback interface, one of which is killed midway."""

import importlib.util
import os
import pathlib
import signal
import subprocess
import sys
import time

import pytest

_MODULE = pathlib.Path(__file__).parents[1] / "tarn" / "batch.py"
_TOOL = os.environ.get("TARN_TOOL", "")

pytestmark = pytest.mark.skipif(not os.access(_TOOL, os.X_OK), reason="TARN_TOOL names no tool")


@pytest.fixture(name="batch")
def _batch():
    found = importlib.util.spec_from_file_location("tarn_batch", _MODULE)
    module = importlib.util.module_from_spec(found)
    sys.modules["tarn_batch"] = module
    found.loader.exec_module(module)
    return module


@pytest.fixture(name="pictures")
def _pictures(tmp_path):
    source = _MODULE.parents[2] / "tests" / "data" / "landscape.jpg"
    (tmp_path / "in" / "b").mkdir(parents=True)
    for number in range(16):
        place = tmp_path / "in" / ("b" if number % 4 == 3 else "") / f"p {number}.png"
        subprocess.run([_TOOL, "resize", source, place, f"{20 + number}x"], check=True)
    return tmp_path


def _contents(folder):
    return {str(path.relative_to(folder)): path.read_bytes()
            for path in sorted(folder.rglob("*")) if path.is_file() and path.name != ".tarn-batch"}


def _run_module(*words, tool=_TOOL):
    return subprocess.run([sys.executable, _MODULE, *map(str, words)], env={**os.environ, "TARN_TOOL": str(tool)},
                          capture_output=True, text=True, check=False, timeout=120)


def test_without_a_cluster_it_is_the_tool(batch, pictures):
    reference, out = pictures / "reference", pictures / "out"
    (pictures / "in" / "x.png").write_bytes(b"no picture")
    words = [str(pictures / "in" / "**")], ["resize", "50%", "--", "flip"]
    subprocess.run([_TOOL, "batch", *words[0], reference, "--", *words[1]], check=False, capture_output=True)
    summary = batch.run(words[0], out, words[1], jobs=2)
    assert (summary.done, summary.skipped, summary.left) == (16, 0, 0)
    assert [(failed.input, failed.code) for failed in summary.failed] == [(str(pictures / "in" / "x.png"), 3)]
    assert _contents(out) == _contents(reference)
    ended = _run_module(*words[0], out, "--", *words[1])
    assert ended.returncode == 3 and "0 done, 16 skipped, 1 failed" in ended.stdout
    with pytest.raises(batch.ToolError, match="matches no file") as refused:
        batch.run([str(pictures / "*.bmp")], out)
    assert refused.value.code == 2


class _LoopbackCluster:
    def __init__(self, folder, tool):
        environment = {**os.environ, "TARN_TOOL": str(tool), "DASK_DISTRIBUTED__COMM__TIMEOUTS__CONNECT": "10s"}
        self._file = folder / "scheduler.json"
        common = ["--scheduler-file", str(self._file), "--no-dashboard"]
        self._log = open(folder / "cluster.log", "wb")
        self._folder = folder

        def start(kind, *options):
            return subprocess.Popen([sys.executable, "-m", f"distributed.cli.dask_{kind}", *common, *options], cwd=folder,
                                    env=environment, stdout=self._log, stderr=self._log)

        self.scheduler = start("scheduler", "--host", "127.0.0.1", "--port", "0")
        self.workers = [start("worker", "--nthreads", "1", "--no-nanny", "--host", "127.0.0.1") for _ in range(2)]

    def address(self):
        from distributed import Client

        until = time.monotonic() + 60
        while not self._file.exists():
            assert time.monotonic() < until, (self._folder / "cluster.log").read_text()
            time.sleep(0.05)
        with Client(scheduler_file=str(self._file), timeout="60s") as client:
            client.wait_for_workers(2, timeout=60)
            return client.scheduler.address

    def close(self):
        for process in [*self.workers, self.scheduler]:
            process.kill()
            process.wait()
        self._log.close()


def test_a_cluster_loses_a_worker_midway(pictures):
    pytest.importorskip("distributed")
    out, reference = pictures / "out", pictures / "reference"
    chain = ["resize", "300%", "--", "colors", "--bits", "4"]
    pattern = pictures / "in" / "**"
    (pictures / "in" / "x.png").write_bytes(b"no picture")
    subprocess.run([_TOOL, "batch", pattern, reference, "--", *chain], check=False, capture_output=True)
    # A tool that takes its time and notes each start, so that there is a middway to kill at.
    slow, starts = pictures / "slow", pictures / "starts"
    slow.write_text(f'#!/bin/sh\n[ "$1" != run ] || {{ echo "$2" >>"{starts}"; sleep 0.2; }}\nexec "{_TOOL}" "$@"\n')
    slow.chmod(0o755)
    cluster = _LoopbackCluster(pictures, slow)
    try:
        address = cluster.address()
        client = subprocess.Popen(
            [sys.executable, _MODULE, "--cluster", address, pattern, out, "--", *chain],
            env={**os.environ, "TARN_TOOL": str(slow)}, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        until = time.monotonic() + 60
        while not starts.exists() or starts.read_text().count("\n") < 5:
            assert client.poll() is None and time.monotonic() < until, client.communicate()
            time.sleep(0.02)
        cluster.workers[0].send_signal(signal.SIGKILL)
        printed, errors = client.communicate(timeout=120)
        assert client.returncode == 3, errors
        assert "16 done, 0 skipped, 1 failed; " in printed
        assert f"failed (3): {pictures / 'in' / 'x.png'}: " in printed

        # The same bytes, nothing else, each once in the journal; either way of working knows what the other has done.
        assert _contents(out) == _contents(reference)
        names = [line.split(" ", 3)[3] for line in (out / ".tarn-batch").read_text().splitlines()]
        assert sorted(names) == sorted(_contents(reference))
        ended = subprocess.run([_TOOL, "batch", pattern, out, "--", *chain], capture_output=True, text=True, check=False)
        assert "0 done, 16 skipped, 1 failed" in ended.stdout
        (out / "p 0.png").unlink()
        ended = _run_module("--cluster", address, pattern, out, "--", *chain, tool=slow)
        assert ended.returncode == 3 and "1 done, 15 skipped, 1 failed; " in ended.stdout, ended.stderr
        assert _contents(out) == _contents(reference)
    finally:
        cluster.close()


def test_machines_with_other_tools_are_refused(pictures):
    pytest.importorskip("distributed")
    other = pictures / "other"
    other.write_text(f'#!/bin/sh\n[ "$1" != --version ] || {{ echo another; exit 0; }}\nexec "{_TOOL}" "$@"\n')
    other.chmod(0o755)
    cluster = _LoopbackCluster(pictures, other)
    try:
        ended = _run_module("--cluster", cluster.address(), pictures / "in", pictures / "out", "--", "flip")
        assert ended.returncode == 1 and "has another tool: 'another'" in ended.stderr
        assert not _contents(pictures / "out")
    finally:
        cluster.close()
