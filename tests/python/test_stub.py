"""The stub editors read names every method and function the module has, with the same
arguments, and every operation the library answers to by name is a method of the module."""
import ast
import os
import re

import zrkkvl

STUB = os.path.join(os.environ["ZRK_PYTHON_MODULE_DIR"], "zrkkvl.pyi")


def stub_tree():
    with open(STUB, encoding="utf-8") as f:
        return ast.parse(f.read())


def public(names):
    return {n for n in names if not n.startswith("_")}


def stub_names(body):
    """Functions, classes and declared names; plain assignments are the stub's own aliases."""
    names = {}
    for node in body:
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            names[node.name] = node
        elif isinstance(node, ast.AnnAssign):
            names[node.target.id] = node
    return names


def signature_of(function):
    """(argument names, names with a default) from pybind11's first docstring line."""
    first = function.__doc__.splitlines()[0]
    params = re.match(r"\w+\((.*)\) ->", first).group(1)
    names, defaults = [], []
    for p in filter(None, (s.strip() for s in params.split(","))):
        name = p.split(":")[0].strip()
        names.append(name)
        if "=" in p:
            defaults.append(name)
    return names, defaults


def test_the_stub_names_everything_the_module_has():
    top = stub_names(stub_tree().body)
    assert public(top) - {"__version__"} == public(dir(zrkkvl))
    cls = stub_names(top["clsKVN"].body)
    assert public(cls) == public(dir(zrkkvl.clsKVN))


def test_the_stubs_arguments_are_the_modules():
    cls = stub_names(stub_names(stub_tree().body)["clsKVN"].body)
    checked = 0
    for name, node in cls.items():
        member = getattr(zrkkvl.clsKVN, name)
        if not isinstance(node, ast.FunctionDef) or name in ("__init__", "call"):
            continue
        args = [a.arg for a in node.args.args]
        with_default = args[len(args) - len(node.args.defaults):] if node.args.defaults else []
        assert signature_of(member) == (args, with_default), name
        # Every method says what it does beyond its signature.
        assert len(member.__doc__.splitlines()) > 2, name
        assert ast.get_docstring(node), name
        checked += 1
    assert checked > 50


def test_every_operation_by_name_is_a_method_or_function():
    names = zrkkvl._call_names()
    assert len(names) > 50
    missing = [n for n in names if not hasattr(zrkkvl.clsKVN, n) and not hasattr(zrkkvl, n)]
    assert missing == []


def words(text):
    return " ".join(text.split())


def test_the_stubs_docstrings_are_the_modules():
    """The module, its functions and classes and every method say what their stub says: the
    same words after the signature line the module puts first."""
    tree = stub_tree()
    pairs = [(zrkkvl, tree)]
    for name, node in stub_names(tree.body).items():
        if isinstance(node, ast.ClassDef):
            cls = getattr(zrkkvl, name)
            pairs.append((cls, node))
            members = stub_names(node.body).items()
            pairs += [(getattr(cls, n), m) for n, m in members if isinstance(m, ast.FunctionDef)]
        elif isinstance(node, ast.FunctionDef):
            pairs.append((getattr(zrkkvl, name), node))
    checked = 0
    for member, node in pairs:
        doc = ast.get_docstring(node)
        if not doc:
            continue
        assert words(member.__doc__).endswith(words(doc)), getattr(member, "__name__", member)
        checked += 1
    assert checked > 60
