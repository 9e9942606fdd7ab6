"""The README's example, as it stands there."""

import re

import numpy as np

import fragments
from fragments_kernels.records import show_record
from support import ROOT


def test_the_product_in_five_lines(capsys):
    code = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)[1]
    assert len(code.splitlines()) == 5
    names = {"np": np, "fragments": fragments}
    exec(code, names)
    assert names["rptr"].tolist() == [0, 2, 3]
    assert names["rsp_rnidxs"].tolist() == [0, 1, 7, 9, 8]
    assert names["rcof"].tolist() == [2.5, 1.7, 1.8]
    result = dict(shape=(2, 1), nelem=2, nnz=3, ptr=0, sp=0, nidxs=2, cof=0)
    show_record((names["rptr"], names["rsp_rnidxs"], names["rcof"]), result)
    assert capsys.readouterr().out.splitlines()[1:] == ["[0, 0]: 2.5 x7 + 1.7 x9", "[1, 0]: 1.8 x8"]
