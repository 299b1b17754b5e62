"""Loads the built module from a throwaway installation root, so that its error log and
settings lie in a folder of the test's own, and answers every dialog."""
import atexit
import os
import shutil
import sys
import tempfile

import pytest

MODULE_DIR = os.environ.get("ZRK_PYTHON_MODULE_DIR")
if not MODULE_DIR:
    raise RuntimeError("ZRK_PYTHON_MODULE_DIR names the folder of the built module (ctest sets it)")

# The library takes as its root the folder it lies in without "/dlls/Main Functions DLL".
ROOT = tempfile.mkdtemp(prefix="zrkkvl-python-")
atexit.register(shutil.rmtree, ROOT, True)
LIBRARY_DIR = os.path.join(ROOT, "dlls", "Main Functions DLL")
os.makedirs(LIBRARY_DIR)
os.makedirs(os.path.join(ROOT, "settings"))
with open(os.path.join(ROOT, "settings", "config.ini"), "w") as f:
    f.write("[Settings]\nReportErrors=0\n")
for name in os.listdir(MODULE_DIR):
    if name.startswith("zrkkvl.") and name.endswith(".so"):
        shutil.copy(os.path.join(MODULE_DIR, name), LIBRARY_DIR)
sys.path.insert(0, LIBRARY_DIR)
os.environ["ZRKKVL_ROOT"] = ROOT

import zrkkvl  # noqa: E402


@pytest.fixture
def root():
    return ROOT


@pytest.fixture
def kvn():
    return zrkkvl.clsKVN()


class Dialogs:
    """Every message box shown, as (text, buttons, title); each is answered by the next of
    `answers`, OK when none is left."""

    def __init__(self):
        self.shown = []
        self.answers = []

    def __call__(self, text, buttons, title):
        self.shown.append((text, buttons, title))
        return self.answers.pop(0) if self.answers else zrkkvl.OK


@pytest.fixture(autouse=True)
def dialogs():
    handler = Dialogs()
    zrkkvl.set_dialog_handler(handler)
    yield handler
    zrkkvl.set_dialog_handler(None)


@pytest.fixture
def error_log():
    """Reads the root's ErrorLog.txt (empty while there is none)."""

    def read():
        path = os.path.join(ROOT, "ErrorLog.txt")
        if not os.path.exists(path):
            return b""
        with open(path, "rb") as f:
            return f.read()

    return read
