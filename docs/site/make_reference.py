#!/usr/bin/env python3
"""Pages of the reference from what Doxygen has found. A fault is what Doxygen warns of, and what of the interface no comment speaks of.

Imports the Python module, to see which of its parts have the same things.

Usage: make_reference.py XML_FOLDER WARNINGS SOURCE_FOLDER SITE_FOLDER
"""
import importlib
import pathlib
import re
import sys
import xml.etree.ElementTree as ET

MODULES = ("vela", "vela.tarn", "vela.ovo", "vela.scene", "vela.selection", "vela.asset", "vela.log", "vela.look", "vela.picture", "vela.interop",
           "vela.trimesh", "vela.dask")
# Need packages that the environment of the documentation lacks; conf.py stands in for those.
MODULES_OF_OTHER_PACKAGES = ("vela.trimesh", "vela.dask")

# The section of a class that members of a kind belong to; one of a file has the same name without the protection and "attrib" spelled "var".
SECTIONS = {"function": "func", "variable": "attrib", "typedef": "type", "enum": "type", "friend": "friend", "define": "define", "property": "property"}


def location(compound):
    place = compound.find("location")
    return (place.get("file"), int(place.get("line") or 0)) if place is not None else ("", 0)


def is_private(element):
    return element.get("prot") == "private" or element.get("kind", "").startswith("private-")


def home_of(member, in_file):
    """The kind of the section that a member stands in when no group of comments holds it."""
    kind = member.get("kind")
    if kind in ("friend", "define"):
        return kind
    if in_file:
        return {"function": "func", "variable": "var", "typedef": "typedef", "enum": "enum"}[kind]
    static = "static-" if member.get("static") == "yes" else ""
    return f"{member.get('prot')}-{static}{SECTIONS[kind]}"


def tidy(compound, undefined):
    """Takes out what is no interface, and members out of groups that only share a comment: these would stand apart, without a title."""
    in_file = compound.get("kind") in ("file", "namespace")
    for inner in [*compound.findall("innerclass"), *compound.findall("sectiondef")]:
        if is_private(inner):
            compound.remove(inner)
    for section in compound.findall("sectiondef"):
        for member in section.findall("memberdef"):
            is_befriended = member.get("kind") == "friend" and re.match(r"(friend )+(class|struct) ", member.findtext("definition") or "")
            if is_private(member) or is_befriended or (member.get("kind") == "define" and member.findtext("name") in undefined):
                section.remove(member)
    for group in compound.findall("sectiondef[@kind='user-defined']"):
        if group.find("header") is not None:
            continue
        for member in group.findall("memberdef"):
            kind = home_of(member, in_file)
            home = compound.find(f"sectiondef[@kind='{kind}']")
            if home is None:
                home = ET.Element("sectiondef", kind=kind)
                compound.insert(list(compound).index(group), home)
            home.append(member)
        compound.remove(group)
    for section in compound.findall("sectiondef"):
        members = section.findall("memberdef")
        section[:] = [e for e in section if e.tag != "memberdef"] + sorted(members, key=lambda m: location(m)[1])
        if not members:
            compound.remove(section)


def take_home(namespace, files):
    """Brings what stands in a namespace, by its whole name, to the file that has it: Doxygen lists it with the namespace alone, and each file of a
    folder would repeat that."""
    for section in namespace.findall("sectiondef"):
        for member in section.findall("memberdef"):
            member.find("name").text = member.findtext("qualifiedname") or member.findtext("name")
            compound = files[location(member)[0]]
            kind = home_of(member, True)
            home = compound.find(f"sectiondef[@kind='{kind}']")
            if home is None:
                home = ET.SubElement(compound, "sectiondef", kind=kind)
            home.append(member)
        namespace.remove(section)


def prepare(xml, sources):
    """Files by their whole path, since several have the same name, and with all that they declare."""
    ET.register_namespace("xsi", "http://www.w3.org/2001/XMLSchema-instance")
    compounds, paths, trees = [], {}, {}
    for path in sorted(xml.glob("*.xml")):
        tree = ET.parse(path)
        compound = tree.getroot().find("compounddef")
        if compound is None or compound.get("kind") not in ("class", "struct", "union", "file", "namespace"):
            continue
        undefined = set()
        if compound.get("kind") == "file":
            paths[compound.get("id")] = location(compound)[0]
            undefined = set(re.findall(r"^ *# *undef +(\w+)", (sources / location(compound)[0]).read_text(), flags=re.M))
            for inner in compound.findall("innernamespace"):
                compound.remove(inner)
        tidy(compound, undefined)
        trees[path] = tree
        compounds.append(compound)
    files = {location(compound)[0]: compound for compound in compounds if compound.get("kind") == "file"}
    for compound in compounds:
        if compound.get("kind") == "namespace":
            take_home(compound, files)
    for path, tree in trees.items():
        tree.write(path, encoding="UTF-8", xml_declaration=True)
    index = ET.parse(xml / "index.xml")
    for compound in index.getroot().findall("compound[@kind='file']"):
        compound.find("name").text = paths[compound.get("refid")]
    index.write(xml / "index.xml", encoding="UTF-8", xml_declaration=True)
    return compounds, sorted(paths.values())


def has_words(element):
    return any("".join(part.itertext()).strip() for part in (element.find("briefdescription"), element.find("detaileddescription")) if part is not None)


def speaks_for_itself(member):
    """What the compiler writes, what is not there, and destructors: there is nothing to say that the class's comment does not."""
    return member.findtext("name").startswith("~") or re.search(r"= ?(default|delete)$", member.findtext("argsstring") or "") is not None


def faults_in(compounds):
    """Classes, members and enumerators without a comment, by the place where they stand."""
    silent = set()

    def look_at(element, name, place):
        if not has_words(element):
            silent.add((*place, name))

    for compound in compounds:
        if is_private(compound):
            continue
        if compound.get("kind") != "namespace":
            look_at(compound, compound.findtext("compoundname"), location(compound))
        for member in compound.iterfind("sectiondef/memberdef"):
            if not speaks_for_itself(member):
                name = (member.findtext("definition") or member.findtext("name")) + (member.findtext("argsstring") or "")
                look_at(member, name, location(member))
            for value in member.findall("enumvalue"):
                look_at(value, f"{member.findtext('qualifiedname') or member.findtext('name')}::{value.findtext('name')}", location(member))
    return [f"{path}:{line}: error: no comment speaks of {name}" for path, line, name in sorted(silent)]


def warnings_in(file):
    harmless = ("Internal inconsistency: scope for class std::hash", "graph for", "perhaps you forgot to add its directory to INCLUDE_PATH")
    return [line for line in file.read_text().splitlines() if "warning:" in line and not any(word in line for word in harmless)]


def write_pages(headers, site):
    folders = {}
    for header in headers:
        folders.setdefault(header.rpartition("/")[0], []).append(header)
    names = []
    for folder, inside in sorted(folders.items()):
        names.append(folder.replace("/", "_"))
        lines = [".. highlight:: cpp", "", folder, "=" * len(folder), ""]
        for header in inside:
            lines += [header, "-" * len(header), "", f".. doxygenfile:: {header}", "   :project: Vela", ""]
        (site / f"{names[-1]}.rst").write_text("\n".join(lines))
    entries = "\n".join(names)
    (site / "cpp.md").write_text(f"# C++\n\nThe public headers, folder by folder. `vela/vela.h` includes all but those of pictures.\n\n```{{toctree}}\n:maxdepth: 2\n\n{entries}\n```\n")


def write_python_page(site):
    """What several modules have is shown where it is shortest to write, and nothing of what a module imports from elsewhere."""
    lines, shown = ["# Python\n"], set()
    for name in MODULES:
        lines.append(f"## {name}\n\n```{{eval-rst}}\n.. automodule:: {name}\n   :members:\n   :undoc-members:")
        if name not in MODULES_OF_OTHER_PACKAGES:
            module = importlib.import_module(name)
            inside = {n: getattr(module, n) for n in dir(module) if not n.startswith("_")}
            again = [n for n, thing in inside.items() if id(thing) in shown or not getattr(thing, "__module__", "vela").startswith("vela")]
            shown |= {id(thing) for thing in inside.values() if callable(thing)}
            lines.append("   :imported-members:" + (f"\n   :exclude-members: {', '.join(again)}" if again else ""))
        lines.append("```\n")
    (site / "python.md").write_text("\n".join(lines))


def main():
    xml, warnings, sources, site = map(pathlib.Path, sys.argv[1:])
    site.mkdir(parents=True, exist_ok=True)
    compounds, headers = prepare(xml, sources)
    assert len(headers) > 80, "Doxygen has found few headers"
    write_pages(headers, site)
    write_python_page(site)
    faults = [*warnings_in(warnings), *faults_in(compounds)]
    print("\n".join(faults) or f"docs: {len(headers)} headers, each member with a comment")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
