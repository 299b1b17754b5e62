"""A running game's memory read from Python by module and symbol."""
import os
import subprocess

import pytest
import zrkkvl

GAME = os.environ.get("ZRK_FAKE_GAME")


@pytest.fixture
def game():
    if not GAME:
        pytest.skip("ZRK_FAKE_GAME names the stand-in game (ctest sets it)")
    proc = subprocess.Popen([GAME], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert proc.stdout.readline().strip() == b"ready"
    yield proc
    proc.stdin.close()
    proc.wait(timeout=10)


def test_a_game_is_read_by_module_and_symbol(kvn, game):
    assert kvn.ProcessRunning(game.pid) is True
    handle = kvn.AttachToGame(game.pid)
    assert handle != 0
    try:
        name = os.path.basename(GAME)
        base = kvn.GetModuleBase(handle, name)
        assert isinstance(base, int) and base > 2**32  # an ordinary program lies above 4 GiB
        score = kvn.GetSymbolAddress(handle, name, "gameScore")
        title = kvn.GetSymbolAddress(handle, name, "gameTitle")
        assert base < score and base < title
        assert kvn.ReadLong64(handle, score) == 4242
        assert kvn.ReadStr64(handle, title) == "Stand-in Arena"
        # The ELF header at the base: 0x7F "ELF".
        assert kvn.ReadLong64(handle, base) == 0x464C457F
        # By name an address is a float, which holds it exactly, and may be given as one.
        assert kvn.call("GetSymbolAddress", handle, name, "gameScore") == float(score)
        assert kvn.call("ReadLong64", handle, float(score)) == 4242
        # Memory holding the bytes 0x80..0xFF reads as one character per byte.
        assert zrkkvl.to_bytes(kvn.ReadStr(handle, 0x30000300)) == bytes(range(0x80, 0x100))
        assert kvn.GetModuleBase(handle, "no-such-module.so") == 0
    finally:
        assert zrkkvl.CloseGameHandle(handle) is True
    assert zrkkvl.CloseGameHandle(handle) is False


def test_a_handle_reads_nothing_once_the_game_has_ended(kvn, game):
    handle = kvn.AttachToGame(game.pid)
    score = kvn.GetSymbolAddress(handle, os.path.basename(GAME), "gameScore")
    game.stdin.close()
    game.wait(timeout=10)
    assert kvn.ReadLong64(handle, score) == 0
    assert kvn.call("CloseGameHandle", handle) is True
