"""Sphinx's settings. `make docs` copies docs/ to build/docs-source, adds what is generated, and builds there."""

import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

project = "fragments"
copyright = ""
html_show_copyright = html_show_sphinx = html_show_sourcelink = False
extensions = ["myst_parser", "kernel_pages"]
myst_enable_extensions = ["colon_fence", "deflist"]
myst_heading_anchors = 3
html_theme = "furo"
html_title = "fragments"
html_copy_source = False
html_static_path = ["_static"]
html_favicon = "_static/favicon.svg"
html_css_files = ["site.css"]
templates_path = []
exclude_patterns = []
pygments_style, pygments_dark_style = "tango", "native"
nitpicky = True
html_theme_options = {"navigation_with_keys": True}
