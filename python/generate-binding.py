#!/usr/bin/env python3
"""Reads the public class's header and writes what the Python module binds from it.

    generate-binding.py HEADER STUB_TEMPLATE OUT_DIR

The header is the one description of every operation: its name, its arguments in order, which
are optional or by reference, and the comment above it. From it come OUT_DIR/Methods.inc (one
binding call per method and public variable, included by the module's source; the C++ types are
taken from the member pointers there, so a wrong argument count fails the build) and
OUT_DIR/zrkkvl.pyi (the stub editors read, with the same docstrings).

The stub template is the one description of what the module adds of its own (the module, its
functions, the failure class, the class itself and its call by name): their docstrings go to
OUT_DIR/ModuleDocs.inc, one constant each, which the module's source gives to what it binds.
"""
import ast
import re
import sys
import textwrap

# Declarations of the class that are not operations of their own.
SKIPPED = {"invoke", "CallByName"}

METHOD = re.compile(r"^(?P<type>[\w:<>]+)\s+(?P<name>\w+)\((?P<params>.*)\)(\s+override)?;$")
VARIABLE = re.compile(r"^(?P<type>[\w:<>]+)\s+(?P<name>\w+)\s*=\s*[^;]*;$")
PARAM = re.compile(r"^(?P<type>[\w:<>]+)(?P<ref>[&*]?)\s+(?P<name>\w+)(\s*=\s*.*)?$")

# The header's C++ words in a Python caller's terms.
PYTHON_WORDS = [
    ("empty Variant", "None"),
    ("(see FormObject.h)", "(a dict of controls, each a dict of properties, or an object whose"
     " attributes are controls with attributes)"),
    ("(GameHandle.h)", "(zrkkvl.CloseGameHandle)"),
    ("(DialogBackend.h)", "(zrkkvl.set_dialog_handler answers its message boxes)"),
]

PY_TYPES = {
    "Text": "str",
    "Variant": "Value",
    "int32_t": "int",
    "int64_t": "int",
    "int16_t": "int",
    "bool": "bool",
    "double": "float",
    "void": "None",
    "Dispatch": "Any",
    "FailureInfo": "FailureLike",
}


class Param:
    def __init__(self, text):
        m = PARAM.match(text.strip())
        if not m:
            raise ValueError(f"cannot read the parameter '{text}'")
        base = m["type"]
        self.name = m["name"]
        self.optional = m["ref"] == "*" or base.startswith("std::optional<")
        self.by_reference = m["ref"] == "*" or (m["ref"] == "&" and base != "Dispatch")
        self.form = base == "Dispatch"
        if base.startswith("std::optional<"):
            base = base[len("std::optional<") : -1]
        self.py_type = PY_TYPES[base]
        if self.form:
            self.py_type = "Form"

    def stub(self):
        if self.optional:
            return f"{self.name}: Optional[{self.py_type}] = None"
        return f"{self.name}: {self.py_type}"


class Method:
    def __init__(self, result, name, params, doc):
        self.result = PY_TYPES[result]
        self.name = name
        self.params = [Param(p) for p in params.split(",")] if params.strip() else []
        self.doc = doc

    def by_reference(self):
        return [p for p in self.params if p.by_reference]

    def returns(self):
        slots = self.by_reference()
        if not slots:
            return self.result
        kinds = [f"Optional[{p.py_type}]" if p.optional else p.py_type for p in slots]
        return f"Tuple[{', '.join([self.result] + kinds)}]"

    def full_doc(self):
        doc = self.doc
        slots = self.by_reference()
        if slots:
            names = ", ".join(p.name for p in slots)
            doc += (
                f"\n\nBy reference: {names}. Returns (result, {names}): the result, then the"
                " arguments as the operation left them (None for one not given)."
            )
        return doc


class Variable:
    def __init__(self, kind, name, doc):
        self.py_type = PY_TYPES[kind]
        self.name = name
        self.doc = doc


def read_class(lines):
    """The methods and variables of class clsKVN, each with the comment above it."""
    methods, variables = [], []
    inside = False
    comment, comment_open = [], False
    for raw in lines:
        line = raw.strip()
        if not inside:
            inside = line.startswith("class ZRK_API clsKVN")
            continue
        if line == "};":
            break
        if line.startswith("//"):
            if not comment_open:
                comment, comment_open = [], True
            comment.append(line[2:].strip())
            continue
        comment_open = False
        if not line:
            comment = []
            continue
        doc = " ".join(comment)
        for cpp, python in PYTHON_WORDS:
            doc = doc.replace(cpp, python)
        method = METHOD.match(line)
        variable = VARIABLE.match(line)
        if method and method["type"] in PY_TYPES and method["name"] not in SKIPPED:
            methods.append(Method(method["type"], method["name"], method["params"], doc))
        elif variable and variable["type"] in PY_TYPES and "(" not in line:
            variables.append(Variable(variable["type"], variable["name"], doc))
        elif line != "public:" and not line.startswith(("clsKVN", "~clsKVN")) and not any(
            f" {s}(" in line for s in SKIPPED
        ):
            print(f"generate-binding.py: not bound: {line}", file=sys.stderr)
    return methods, variables


def cpp_string(text):
    return f'R"zrkdoc({text})zrkdoc"'


def binding_source(methods, variables):
    out = ["// Generated from include/zrkKVL/clsKVN.h by python/generate-binding.py."]
    for v in variables:
        out.append(
            f'bindVariable<&clsKVN::{v.name}>(cls, "{v.name}", {cpp_string(v.doc)});'
        )
    for m in methods:
        names = ", ".join(f'"{p.name}"' for p in m.params)
        out.append(
            f'bindMethod<&clsKVN::{m.name}>(cls, "{m.name}", '
            f"std::array<const char*, {len(m.params)}>{{{names}}}, {cpp_string(m.full_doc())});"
        )
    return "\n".join(out) + "\n"


def docstring(text, indent):
    pad = " " * indent
    paragraphs = [textwrap.fill(p, 96 - indent) for p in text.split("\n\n")]
    body = textwrap.indent("\n\n".join(paragraphs), pad).lstrip().replace("\\", "\\\\")
    if body.endswith('"'):
        body += " "
    return f'{pad}"""{body}"""'


def stub_members(methods, variables):
    out = []
    for v in variables:
        out.append(f"    {v.name}: {v.py_type}")
        out.append(docstring(v.doc, 4))
    for m in methods:
        params = ", ".join(["self"] + [p.stub() for p in m.params])
        out.append(f"    def {m.name}({params}) -> {m.returns()}:")
        out.append(docstring(m.full_doc(), 8))
    return "\n".join(out)


def one_line_paragraphs(doc):
    """A stub docstring as the module gives it: each paragraph on one line."""
    return "\n\n".join(" ".join(p.split()) for p in doc.split("\n\n"))


def template_docs(template):
    """(name, docstring) of the module (named zrkkvl) and of each function and class the
    template writes out, a class's method named CLASS_METHOD, in template order."""
    tree = ast.parse(template.replace("@CLASS_MEMBERS@", ""))
    docs = [("zrkkvl", ast.get_docstring(tree))]
    for node in tree.body:
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)) and ast.get_docstring(node):
            docs.append((node.name, ast.get_docstring(node)))
        if isinstance(node, ast.ClassDef):
            for member in node.body:
                if isinstance(member, ast.FunctionDef) and ast.get_docstring(member):
                    docs.append((f"{node.name}_{member.name}", ast.get_docstring(member)))
    return docs


def docs_source(docs):
    out = [
        "// Generated from python/zrkkvl.pyi.in by python/generate-binding.py.",
        "namespace docs {",
    ]
    for name, doc in docs:
        out.append(f"constexpr const char* {name} = {cpp_string(one_line_paragraphs(doc))};")
    out.append("}  // namespace docs")
    return "\n".join(out) + "\n"


def main():
    header, template, out_dir = sys.argv[1:4]
    with open(header, encoding="utf-8") as f:
        methods, variables = read_class(f.read().splitlines())
    with open(f"{out_dir}/Methods.inc", "w", encoding="utf-8") as f:
        f.write(binding_source(methods, variables))
    with open(template, encoding="utf-8") as f:
        template = f.read()
    with open(f"{out_dir}/ModuleDocs.inc", "w", encoding="utf-8") as f:
        f.write(docs_source(template_docs(template)))
    stub = template.replace("@CLASS_MEMBERS@", stub_members(methods, variables))
    with open(f"{out_dir}/zrkkvl.pyi", "w", encoding="utf-8") as f:
        f.write(stub)


if __name__ == "__main__":
    main()
