"""Every public name of the C++ headers is in the module, or python/tests/unbound.txt says where its work is done."""

import fnmatch
import inspect
import pathlib
import re

import clang.cindex
import pytest

import vela

from conftest import ROOT

MODULES = [vela, vela.ovo, vela.tarn, vela.scene, vela.picture, vela.selection, vela.asset, vela.log, vela.look]
# Classes that have another name here.
CLASSES = {"Box3": "Box3f", "Ray": "Ray3f", "BraeGlobalChannelManager": "GlobalChannelManager", "HitDetectModel": "HitDetector",
           "SceneCamera": "Camera"}
KINDS = clang.cindex.CursorKind
HIDDEN = (clang.cindex.AccessSpecifier.PRIVATE, clang.cindex.AccessSpecifier.PROTECTED)


def public_headers():
    return sorted(path for path in (ROOT / "src").rglob("*.h")
                  if "detail" not in path.parts and not path.name.startswith("Test") and "_test" not in path.name
                  # Of the build, for the library's own sources.
                  and path.name != "ForEachInstructionSet.h")


def collect(cursor, scope, names):
    """What a namespace or a class has for everybody: qualified names, with their kinds."""
    for found in cursor.get_children():
        file = found.location.file
        if file is None or not file.name.startswith(str(ROOT / "src")) or found.access_specifier in HIDDEN:
            continue
        name = "::".join([*scope, found.spelling])
        if found.kind == KINDS.NAMESPACE:
            if found.spelling and found.spelling != "detail":
                collect(found, [*scope, found.spelling], names)
        elif found.kind in (KINDS.CLASS_DECL, KINDS.STRUCT_DECL, KINDS.CLASS_TEMPLATE):
            if found.spelling and found.is_definition():
                names[name] = "class"
                collect(found, [*scope, found.spelling], names)
        elif found.kind == KINDS.ENUM_DECL and found.spelling and "(" not in found.spelling:
            names[name] = "class"
        elif found.kind in (KINDS.FUNCTION_DECL, KINDS.CXX_METHOD, KINDS.FUNCTION_TEMPLATE, KINDS.FIELD_DECL):
            if found.spelling and not found.spelling.startswith("operator"):
                names.setdefault(name, "member")


@pytest.fixture(scope="module")
def names():
    text = "".join(f'#include "{path.relative_to(ROOT / "src").as_posix()}"\n' for path in public_headers())
    system = sorted(path for path in pathlib.Path("/usr/lib/gcc").glob("*/*/include") if path.is_dir())
    # Instructions are left out: the compiler's headers for them are written for one compiler each.
    arguments = ["-x", "c++", "-std=c++17", "-U__SSE__", "-U__SSE2__", f"-I{ROOT / 'src'}", f"-isystem{system[-1]}"]
    parsed = clang.cindex.Index.create().parse("all.cpp", arguments, [("all.cpp", text)],
                                               clang.cindex.TranslationUnit.PARSE_SKIP_FUNCTION_BODIES)
    errors = [str(told) for told in parsed.diagnostics if told.severity >= clang.cindex.Diagnostic.Error]
    assert not errors, errors[:5]
    found = {}
    collect(parsed.cursor, [], found)
    assert len(found) > 1500
    return found


def snake(name):
    name = re.sub(r"(?<=[a-z0-9])([A-Z])", r"_\1", name)
    return re.sub(r"([A-Z]+)([A-Z][a-z])", r"\1_\2", name).lower()


def spellings(name):
    """What a C++ name may be called here."""
    plain = snake(name)
    found = {plain, name}
    for prefix in ("get_", "set_", "calc_", "num_", "is_", "has_", "build_", "make_", "read_", "generate_", "to_", "type_", "new_"):
        if plain.startswith(prefix):
            found |= {plain[len(prefix):], f"is_{plain[len(prefix):]}"}
    return found | {f"{text}s" for text in found}


def python_classes():
    """Classes by name, nested ones as Outer.Inner and, joined, OuterInner."""
    found = {}
    for module in MODULES:
        for name, thing in vars(module).items():
            if inspect.isclass(thing) and not name.startswith("_"):
                found.setdefault(name, thing)
                for inner, part in vars(thing).items():
                    if inspect.isclass(part):
                        found.setdefault(f"{name}{inner}", part)
    return found


def missing_names(names):
    classes = python_classes()
    public = {name for module in MODULES for name in vars(module) if not name.startswith("_")}

    def class_of(parts):
        *outer, name = parts
        joined = (outer[-1] if outer else "") + name
        return classes.get(joined) or classes.get(CLASSES.get(name, name))

    missing = []
    for name, kind in names.items():
        parts = name.split("::")
        owner = "::".join(parts[:-1])
        if kind == "class":
            is_there = class_of(parts) is not None
        elif names.get(owner) == "class":
            holder = class_of(parts[:-1])
            is_there = holder is not None and any(hasattr(holder, text) for text in spellings(parts[-1]))
            is_there = is_there or parts[-1] == parts[-2]
        else:
            is_there = bool(spellings(parts[-1]) & public)
        if not is_there:
            missing.append(name)
    return missing


def test_every_public_name_is_bound_or_listed(names):
    lines = (ROOT / "python/tests/unbound.txt").read_text().splitlines()
    reasons = dict(line.split(": ", 1) for line in lines if line and not line.startswith("#"))
    assert all(len(reason) > 2 for reason in reasons.values())
    missing = missing_names(names)
    assert len(missing) < len(names) / 2
    unsaid = [name for name in missing if not any(fnmatch.fnmatchcase(name, pattern) for pattern in reasons)]
    assert not unsaid, "neither bound nor listed:\n" + "\n".join(unsaid)
    stale = [pattern for pattern in reasons if not fnmatch.filter(missing, pattern)]
    assert not stale, "listed, and there is nothing to list: " + ", ".join(stale)


def test_a_name_that_is_nowhere_is_found(names):
    assert missing_names({**names, "vela::SceneTracer::fly": "member", "vela::Nowhere": "class", "vela::scene::nowhere": "member"})[
        -3:] == ["vela::SceneTracer::fly", "vela::Nowhere", "vela::scene::nowhere"]
