"""The README's example, as it stands there."""

import re

import numpy as np

import fragments
from support import ROOT


def test_the_product_in_five_lines():
    code = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)[1]
    assert len(code.splitlines()) == 5
    names = {"np": np, "fragments": fragments}
    exec(code, names)
    assert names["rptr"].tolist() == [0, 2, 3]
    assert names["rsp_rnidxs"].tolist() == [0, 1, 7, 9, 8]
    assert names["rcof"].tolist() == [2.5, 1.7, 1.8]
