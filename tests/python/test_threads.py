"""Threads: each with its own instance, one file edited by all of them, and other Python threads
running while a long call works."""
import threading
import time

import pytest
import zrkkvl


def run_threads(count, body):
    errors = []

    def guarded(n):
        try:
            body(n)
        except BaseException as e:  # handed to the test's thread
            errors.append(e)

    threads = [threading.Thread(target=guarded, args=(n,)) for n in range(count)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    if errors:
        raise errors[0]


def test_four_threads_with_their_own_instances_edit_one_file_losing_nothing(tmp_path):
    ini = str(tmp_path / "shared.ini")
    keys = 40

    def edit(n):
        kvn = zrkkvl.clsKVN()
        for i in range(keys):
            kvn.WriteIniKey(f"thread{n}", f"key{i}", f"value {n}.{i}", ini)
            kvn.WriteIniKey("common", f"t{n}k{i}", str(i), ini)
        kvn.Unload()

    run_threads(4, edit)
    kvn = zrkkvl.clsKVN()
    for n in range(4):
        lines = kvn.GetIniSection(f"thread{n}", ini)
        assert lines == [f"key{i}=value {n}.{i}" for i in range(keys)] + [""]
    assert len(kvn.GetIniSection("common", ini)) == 4 * keys + 1


def test_an_instance_is_used_on_the_thread_that_made_it(kvn):
    messages = []

    def use(n):
        with pytest.raises(RuntimeError) as e:
            kvn.dllVersion("")
        messages.append(str(e.value))
        with pytest.raises(RuntimeError):
            kvn.CompressedSize = 1

    run_threads(1, use)
    assert "thread that made it" in messages[0]
    assert kvn.dllVersion("") == zrkkvl.__version__


def test_other_threads_run_while_a_long_call_works(kvn, tmp_path):
    path = tmp_path / "big.bin"
    path.write_bytes(bytes(range(256)) * (16 * 1024 * 4))  # 16 MiB
    ticks = []
    stop = threading.Event()

    def ticker():
        while not stop.is_set():
            ticks.append(time.monotonic())
            time.sleep(0.001)

    t = threading.Thread(target=ticker)
    t.start()
    try:
        time.sleep(0.05)
        start = time.monotonic()
        text = kvn.HexRead(str(path))
        end = time.monotonic()
    finally:
        stop.set()
        t.join()
    assert text.startswith("0/1/2/")
    during = [x for x in ticks if start < x < end]
    # A call holding the interpreter lock would let hardly a tick in while it runs; without it
    # the ticker runs on, about once a millisecond.
    assert end - start > 0.02
    assert len(during) >= max(5, (end - start) / 0.02), (end - start, len(during))
