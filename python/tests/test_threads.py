"""Other threads run while one works; a bitmap has one worker at a time; keys and callables stop the work."""

import concurrent.futures
import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
import tarn
from tarn import Bitmap


def large():
    return Bitmap.from_array(np.random.default_rng(1).integers(0, 256, (1500, 1500, 3), dtype="uint8"))


def test_other_threads_run_during_work():
    bitmap, seen = large(), []
    done = threading.Event()

    def count():
        while not done.is_set():
            seen.append(time.perf_counter())
            time.sleep(0.0005)

    counter = threading.Thread(target=count)
    counter.start()
    time.sleep(0.01)
    began = time.perf_counter()
    bitmap.rotate(12.3)
    ended = time.perf_counter()
    done.set()
    counter.join()
    assert sum(began < at < ended for at in seen) > 3


def test_one_bitmap_by_many_threads():
    """Each waits for its turn; nothing is torn, and operations on two bitmaps in either order never lock up."""
    a, b = Bitmap.from_array(np.full((90, 90), 1, "uint8")), Bitmap.from_array(np.full((90, 90), 2, "uint8"))

    def work(number):
        for step in range(30):
            first, second = (a, b) if (number + step) % 2 else (b, a)
            first.combine(second, operation=tarn.Combine.MAXIMUM)
            first.resize(80 + (number + step) % 20, 90)
            copy = first.clone()
            assert copy.height == 90 and len(copy.rows(0, 90)) == 90 * copy.pixel_bytes
            first.convert(8 if step % 3 else 24)
            repr(first), first.palette, first.same_pixels(second)
        return True

    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        assert all(pool.map(work, range(6)))


def test_settings_and_progress_are_a_threads_own():
    told = []

    def work():
        tarn.set_default_resolution(10, 10)
        large().flip()
        return Bitmap(3, 3, 8).resolution

    with tarn.progress(told.append), concurrent.futures.ThreadPoolExecutor(1) as pool:
        assert pool.submit(work).result() == (10, 10)
    assert told == [] and Bitmap(3, 3, 8).resolution != (10, 10)


def test_progress_is_told_and_stops():
    bitmap = large()
    before = bitmap.clone()
    told, inner = [], []
    with tarn.progress(told.append):
        bitmap.clone().rotate(10)
        with tarn.progress(inner.append):
            bitmap.clone()
        seen = len(told)
        bitmap.convert(32)
    assert told[0] <= 1 and told[-1] == 100 and len(told) > seen and inner[-1] == 100
    bitmap = before.clone()
    for answer, error in ((False, tarn.Cancelled), (KeyError("stop"), KeyError)):

        def ask(percent):
            if percent < 30:
                return None
            if isinstance(answer, Exception):
                raise answer
            return answer

        with tarn.progress(ask), pytest.raises(error):
            bitmap.rotate(5)
        assert bitmap.same_pixels(before)
    with tarn.progress(lambda percent: 0):  # only False stops
        bitmap.flip()


def test_a_callable_leaves_its_bitmap_alone_but_may_use_others():
    bitmap, made = large(), []

    def meddle(percent):
        made.append(Bitmap(4, 4, 24))
        made[-1].rotate(5)  # of this nobody is told
        return bitmap.width

    with tarn.progress(meddle), pytest.raises(RuntimeError, match="under way"):
        bitmap.rotate(5)
    assert len(made) == 1 and bitmap.width == 1500


def test_a_view_waits_for_the_work():
    bitmap = large()
    worker = threading.Thread(target=lambda: [bitmap.rotate_quarter() for _ in range(4)])
    worker.start()
    for _ in range(5):
        try:
            np.asarray(bitmap)[0, 0] = 1
        except BufferError:
            pass
        bitmap.width
    worker.join()
    assert bitmap.views == 0


def test_the_interrupt_key_stops_work():
    bitmap = large()
    bitmap.resize(4000, 4000)
    before = bitmap.clone()
    timer = threading.Timer(0.05, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    began = time.perf_counter()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(100):
            bitmap.rotate(33)
            bitmap = before.clone()
    assert time.perf_counter() - began < 20
    timer.join()
    assert bitmap.same_pixels(before)


def test_processes_that_end_at_work_leave_nothing(tmp_path):
    code = (
        "import tarn, threading, os\n"
        f"b = tarn.Bitmap(3000, 3000, 24, storage=tarn.Storage.DISK)\n"
        "threading.Thread(target=lambda: b.rotate(10), daemon=True).start()\n"
    )
    run = subprocess.run([sys.executable, "-c", code], env={**os.environ, "TMPDIR": str(tmp_path)}, timeout=60)
    assert run.returncode == 0 and os.listdir(tmp_path) == []
