#!/usr/bin/env python3
"""Pages of the reference from what Doxygen has found, and a look at what it warns of.

Usage: make_reference.py XML_FOLDER WARNINGS SITE_FOLDER
"""
import pathlib
import re
import sys

# Members that no comment speaks of. More may not become of them; each that gets its words lowers the number.
MOST_UNDOCUMENTED = 1200

FILE = re.compile(r'<compound refid="([^"]+)" kind="file"><name>[^<]*</name>')


def location(xml, refid):
    """The path of a file below src."""
    return re.findall(r'<location file="([^"]*)"', (xml / f"{refid}.xml").read_text())[-1]


def prepare(xml):
    """Files by their whole path, since several have the same name; their classes in them rather than in a namespace that each file repeats; nothing private."""
    index = xml / "index.xml"
    text = index.read_text()
    headers = sorted(location(xml, refid) for refid in FILE.findall(text))
    index.write_text(FILE.sub(lambda m: f'<compound refid="{m[1]}" kind="file"><name>{location(xml, m[1])}</name>', text))
    for path in [*xml.glob("class*.xml"), *xml.glob("struct*.xml")]:
        path.write_text(re.sub(r'<sectiondef kind="private-[^"]*">.*?</sectiondef>', "", path.read_text(), flags=re.S))
    for path in xml.glob("*_8h.xml"):
        path.write_text(re.sub(r"\s*<innernamespace[^>]*>[^<]*</innernamespace>", "", path.read_text()))
    return headers


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
    (site / "cpp.md").write_text(f"# C++\n\nThe public headers, folder by folder. `vela/vela.h` includes all but those of pictures.\n\n```{{toctree}}\n{entries}\n```\n")
    (site / "python.md").write_text("# Python\n\n```{eval-rst}\n.. automodule:: vela\n   :members:\n   :imported-members:\n   :undoc-members:\n```\n")


def faults_in(warnings):
    lines = [line for line in warnings.read_text().splitlines() if "warning:" in line]
    undocumented = [line for line in lines if re.search(r"warning: Member .* is not documented", line)]
    harmless = ("is not documented", "Internal inconsistency: scope for class std::hash", "graph for", "perhaps you forgot to add its directory to INCLUDE_PATH")
    faults = [line for line in lines if line not in undocumented and not any(word in line for word in harmless)]
    faults += [line for line in lines if re.search(r"warning: Compound .* is not documented", line) and "std::hash" not in line]
    if len(undocumented) > MOST_UNDOCUMENTED:
        faults += [*undocumented, f"{len(undocumented)} members are not documented, more than the {MOST_UNDOCUMENTED} of before"]
    print(f"docs: {len(undocumented)} members that no comment speaks of")
    return faults


def main():
    xml, warnings, site = map(pathlib.Path, sys.argv[1:])
    site.mkdir(parents=True, exist_ok=True)
    headers = prepare(xml)
    assert len(headers) > 80, "Doxygen has found few headers"
    write_pages(headers, site)
    faults = faults_in(warnings)
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
