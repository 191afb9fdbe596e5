"""Sphinx: the pages of the tree as a site. scripts/docs calls it on a copy of the tree and says where the reference lies."""

import os

from sphinx.util import logging

project = "Vela"
release = os.environ["VELA_DOCS_VERSION"]
copyright = "the Vela developers"
extensions = ["myst_parser", "breathe", "sphinx.ext.autodoc"]
root_doc = "index"
# Of the tree only what the index leads to.
exclude_patterns = ["abi", "build", "examples", "packaging", "scripts", "docs/site"]
# Overloads by macro; texts within examples that are no C++.
suppress_warnings = ["duplicate_declaration.cpp", "duplicate_declaration.c", "misc.highlighting_failure"]
myst_heading_anchors = 4

breathe_projects = {"Vela": os.environ["VELA_DOCS_XML"]}
breathe_default_project = "Vela"
cpp_id_attributes = ["VELA_API", "VELA_PICTURE_API", "OVO_API"]

# The docstrings begin with the call as it is written in the stubs.
autodoc_member_order = "bysource"
autodoc_docstring_signature = True
# What vela.trimesh and vela.dask are made for. Their own signatures and docstrings do not depend on it.
autodoc_mock_imports = ["dask", "distributed", "trimesh"]

html_theme = "furo"
html_title = f"Vela {release}"
html_static_path = ["static"]
html_js_files = ["search.js"]
html_copy_source = False
html_show_sourcelink = False


def demand_docstring(app, what, name, obj, options, lines):
    """Warns of what has no docstring, which fails the build. Enumerators and other values are told of by what they belong to."""
    if what not in ("attribute", "data") and not any(line.strip() for line in lines):
        logging.getLogger(__name__).warning("no docstring: %s %s", what, name)


def setup(app):
    app.connect("autodoc-process-docstring", demand_docstring)
