"""`cmake --install` puts the module and its stub into the Python folder below the prefix, from
where the interpreter imports it with nothing else installed."""
import glob
import os
import subprocess
import sys

import pytest

BUILD = os.environ.get("ZRK_BUILD_DIR")
INSTALL_DIR = os.environ.get("ZRK_PYTHON_INSTALL_DIR")


def test_the_installed_module_imports_from_its_folder(tmp_path):
    if not BUILD or not INSTALL_DIR:
        pytest.skip("ZRK_BUILD_DIR and ZRK_PYTHON_INSTALL_DIR name the build (ctest sets them)")
    if not os.access(BUILD, os.W_OK):
        pytest.skip("cmake --install writes its manifest into the build folder")
    prefix = tmp_path / "prefix"
    subprocess.run(["cmake", "--install", BUILD, "--prefix", str(prefix), "--component", "python"],
                   check=True, stdout=subprocess.DEVNULL)
    folder = prefix / INSTALL_DIR
    installed = sorted(os.path.basename(f) for f in glob.glob(str(folder / "*")))
    assert len(installed) == 2 and installed[1] == "zrkkvl.pyi"
    assert installed[0].startswith("zrkkvl.") and installed[0].endswith(".so")
    # The module links nothing of the prefix, so it carries no search path.
    dynamic = subprocess.run(["readelf", "-d", str(folder / installed[0])], check=True,
                             capture_output=True, text=True).stdout
    assert "RUNPATH" not in dynamic and "RPATH" not in dynamic
    script = "import zrkkvl; print(zrkkvl.__file__); print(zrkkvl.clsKVN().CheckAlphaNumeric('a1'))"
    env = {"PYTHONPATH": str(folder), "ZRKKVL_ROOT": str(tmp_path), "PATH": "/usr/bin:/bin"}
    out = subprocess.run([sys.executable, "-c", script], check=True, capture_output=True,
                         text=True, env=env, cwd=tmp_path).stdout.split()
    assert out == [str(folder / installed[0]), "True"]
