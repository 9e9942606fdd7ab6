#!/usr/bin/env python3
"""Builds the documentation site: build/docs/index.html. Fails on any warning and any link that leads nowhere.

The sources are copied to build/docs-source, where the pages of the kernels and the pictures are generated beside them.
"""

import shutil
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

HERE = Path(__file__).resolve().parent
BUILD = HERE.parent / "build"
SOURCE, SITE = BUILD / "docs-source", BUILD / "docs"
NORMALIZE = Path("/usr/share/javascript/normalize.css/normalize.css")


class Links(HTMLParser):
    """What a page points to and what may be pointed to in it."""

    def __init__(self, text):
        super().__init__()
        self.targets, self.ids = set(), set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value and not urlsplit(value).scheme and tag != "base":
                self.targets.add(value)
            elif name in ("id", "name"):
                self.ids.add(value)


def broken_links(site):
    """[(page, link)] of all links inside the site whose page or place in it is not there."""
    pages = {file: Links(file.read_text()) for file in site.rglob("*.html")}
    for file, links in pages.items():
        for target in links.targets:
            parts = urlsplit(target)
            to = (file.parent / unquote(parts.path)).resolve() if parts.path else file
            if not to.exists() or (parts.fragment and to in pages and unquote(parts.fragment) not in pages[to].ids):
                yield str(file.relative_to(site)), target


def copy_sources():
    """The sources and what is generated, in SOURCE."""
    shutil.rmtree(SOURCE, ignore_errors=True)
    shutil.copytree(HERE, SOURCE, ignore=shutil.ignore_patterns("__pycache__"))
    sys.path.insert(0, str(SOURCE))
    import kernel_pages
    import pictures

    for folder, text in kernel_pages.tools.FOLDERS.items():
        members = [family for family, _ in kernel_pages.families() if family.folder == folder]
        entries = "\n".join(f"/{kernel_pages.page(family)}" for family in members)
        write(f"kernels/folder-{folder}.md", f"# {text}\n\n```{{toctree}}\n:maxdepth: 1\n\n{entries}\n```\n")
        for family in members:
            name = family.file.relative_to(kernel_pages.ROOT / "src")
            write(f"{kernel_pages.page(family)}.md", f"# {family.title}\n\n```{{family}} {name}\n```\n")
    for name, svg in pictures.draw().items():
        write(f"pictures/{name}.svg", svg)


def mend_theme():
    """Makes the theme's files whole, which Debian leaves in pieces that only its own web server would find, and keeps
    the highlighting of found words out of the titles of pictures, in which it fails."""
    scripts, styles = SITE / "_static" / "scripts", SITE / "_static" / "styles" / "furo.css"
    script = scripts / "furo.js"
    head, text = script.read_text().split("\n", 1)
    if head.startswith("import Gumshoe"):
        script.write_text((scripts / "gumshoe-patched.js").read_text() + text)
    head, text = styles.read_text().split(";", 1)
    if head.startswith("@import") and NORMALIZE.exists():
        styles.write_text(NORMALIZE.read_text() + text)
    highlight = SITE / "_static" / "sphinx_highlight.js"
    text = highlight.read_text()
    highlight.write_text(text.replace("pos >= 0 &&", "pos >= 0 && parent.tagName != 'title' &&", 1))


def write(name, text):
    file = SOURCE / name
    file.parent.mkdir(exist_ok=True)
    file.write_text(text)


def main():
    copy_sources()
    from sphinx.cmd.build import main as sphinx

    # From scratch: the search index has the index entries of pages that were read in this run alone.
    options = ["-q", "-W", "--keep-going", "-n", "-E", "-a", "-j", "2", "-d", str(BUILD / "docs-cache")]
    status = sphinx([*options, str(SOURCE), str(SITE)])
    mend_theme()
    broken = sorted(broken_links(SITE))
    for page, target in broken:
        print(f"{page}: {target} leads nowhere", file=sys.stderr)
    if status or broken:
        raise SystemExit(status or 1)
    print(f"{SITE}/index.html")


if __name__ == "__main__":
    main()
