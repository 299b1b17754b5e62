"""set_root_path chooses where a program's error log goes: after ZRKKVL_ROOT, before the tree the
module lies in. The root is fixed at a thread's first instance, and the test process has its
own (conftest.py sets ZRKKVL_ROOT), so each case runs in a fresh interpreter."""
import glob
import os
import shutil
import subprocess
import sys

import pytest
import zrkkvl

MODULE_DIR = os.environ["ZRK_PYTHON_MODULE_DIR"]

# Runs the steps given as arguments: "set:PATH" calls set_root_path(PATH), "path:PATH" the same
# with a pathlib.Path, "read:FILE" reads the missing FILE through a new instance (a failure the
# library reports into its error log).
SCRIPT = """
import pathlib
import sys
import zrkkvl
zrkkvl.set_dialog_handler(lambda text, buttons, title: zrkkvl.OK)
for step in sys.argv[1:]:
    what, arg = step.split(":", 1)
    if what == "set":
        zrkkvl.set_root_path(arg)
    elif what == "path":
        zrkkvl.set_root_path(pathlib.Path(arg))
    else:
        assert zrkkvl.clsKVN().ReadFileToString(arg) == ""
"""


def make_root(path):
    """A root an admin made: its settings ask for no error report."""
    os.makedirs(os.path.join(path, "settings"))
    with open(os.path.join(path, "settings", "config.ini"), "w") as f:
        f.write("[Settings]\nReportErrors=0\n")
    return str(path)


def logged(root):
    """The missing files' names recorded in ROOT/ErrorLog.txt, in order; the log is removed."""
    path = os.path.join(root, "ErrorLog.txt")
    if not os.path.exists(path):
        return []
    with open(path, encoding="utf-8", errors="replace") as f:
        text = f.read()
    os.remove(path)
    return [name for name in ("first.txt", "second.txt") if f"{name}" in text]


def test_set_root_path_decides_where_the_error_log_goes(tmp_path):
    # The module lies in a main program's tree, whose root it takes when nothing comes first;
    # the per-user root would catch a log that went nowhere else.
    tree = make_root(tmp_path / "tree")
    library_dir = os.path.join(tree, "dlls", "Main Functions DLL")
    os.makedirs(library_dir)
    for f in glob.glob(os.path.join(MODULE_DIR, "zrkkvl.*.so")):
        shutil.copy(f, library_dir)
    chosen = make_root(tmp_path / "chosen")
    later = make_root(tmp_path / "later")
    env_root = make_root(tmp_path / "env")
    data_home = tmp_path / "data"
    roots = {"tree": tree, "chosen": chosen, "later": later, "env": env_root,
             "per-user": str(data_home / "zrkkvl")}
    first = "read:" + str(tmp_path / "first.txt")
    second = "read:" + str(tmp_path / "second.txt")

    cases = [
        # (ZRKKVL_ROOT, steps, {root: missing files logged there})
        (None, [first], {"tree": ["first.txt"]}),
        (None, [f"set:{chosen}", first], {"chosen": ["first.txt"]}),
        (None, [f"path:{chosen}", first], {"chosen": ["first.txt"]}),
        (env_root, [f"set:{chosen}", first], {"env": ["first.txt"]}),
        (None, [f"set:{chosen}", "set:", first], {"tree": ["first.txt"]}),
        # The log follows a later choice, on a thread already started too.
        (None, [f"set:{chosen}", first, f"set:{later}", second],
         {"chosen": ["first.txt"], "later": ["second.txt"]}),
    ]
    for env_value, steps, expected in cases:
        env = {k: v for k, v in os.environ.items() if k != "ZRKKVL_ROOT"}
        env.update(PYTHONPATH=library_dir, XDG_DATA_HOME=str(data_home), HOME=str(tmp_path))
        if env_value is not None:
            env["ZRKKVL_ROOT"] = env_value
        subprocess.run([sys.executable, "-c", SCRIPT, *steps], check=True, env=env,
                       cwd=tmp_path, timeout=60)
        found = {name: names for name, root in roots.items() if (names := logged(root))}
        assert found == expected, (env_value, steps)


def test_a_root_that_is_no_text_is_refused():
    with pytest.raises(zrkkvl.Failure) as e:
        zrkkvl.set_root_path(b"/srv/game")
    assert e.value.number == 13
    with pytest.raises(TypeError):
        zrkkvl.set_root_path(27960)
