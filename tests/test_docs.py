"""The examples of the documentation, page by page, as they stand there."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import fragments
from support import ROOT

DOCS = ROOT / "docs"
BLOCK = re.compile(r"^```python\n(.*?)^```\n(?:```text\n(.*?)^```\n)?", re.MULTILINE | re.DOTALL)
PAGES = [file for file in sorted(DOCS.rglob("*.md")) if BLOCK.search(file.read_text())]


@pytest.mark.parametrize("page", PAGES, ids=lambda file: str(file.relative_to(DOCS)))
def test_the_examples_of_a_page_print_what_it_says(page):
    """The blocks of a page run one after the other, in one process of their own: a wrong one may crash it."""
    blocks = BLOCK.findall(page.read_text())
    script = "\n".join(code + "print('----', flush=True)" for code, _ in blocks)
    paths = [Path(fragments.__file__).parent, DOCS, ROOT / "examples"]
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(map(str, paths)))
    run = subprocess.run([sys.executable, "-c", script], env=environment, capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    assert run.stdout.split("----\n")[:-1] == [output for _, output in blocks]
