"""The kernels of the module `fragments` under their names.

    from fragments_kernels import write_sparse_product    # fragments._c_closure_472 itself, at no cost per call
    from fragments_kernels import call                    # by keywords, for development
    from fragments_kernels.records import check_record, show_record

A kernel with several numbers has the name of all of them; the function is that of the lowest.
"""

from typing import Any, List, Union

import fragments

from ._names import *  # noqa: F401,F403
from ._names import SIGNATURES

__version__ = "@version@"

NAMES = {number: name for name, (numbers, _) in SIGNATURES.items() for number in numbers}


def _is_checked() -> bool:
    """Only the bounds-checked build refuses a read-only array for one that is written, here 0 slots of it."""
    try:
        fragments._c_closure_333(0, memoryview(bytes(8)).cast("d"), 0)
    except ValueError:
        return True
    return False


checked = _is_checked()  # whether the loaded build is the one that checks bounds


def kernel(number_or_name: Union[int, str]) -> Any:
    """The kernel of a number or a name. LookupError if there is none."""
    number: Any = number_or_name
    if number_or_name in SIGNATURES:
        (number, *_), _ = SIGNATURES[str(number_or_name)]
    if number not in NAMES:
        raise LookupError(f"there is no kernel {number_or_name!r}{_hint(number_or_name, SIGNATURES)}")
    return getattr(fragments, f"_c_closure_{number}")


def call(number_or_name: Union[int, str], /, **arguments: Any) -> Any:
    """Calls a kernel with its parameters by name, `from` and `pass` also as `from_` and `pass_`.

    Nothing is converted or filled in, so that the call can be written by position later. TypeError if parameters are
    missing, unknown or given twice, with all of them in one message; LookupError if there is no such kernel.
    """
    function = kernel(number_or_name)
    name: Any = number_or_name if number_or_name in SIGNATURES else NAMES[int(number_or_name)]
    numbers, text = SIGNATURES[name]
    kinds = dict(parameter.split(":") for parameter in text.split())
    faults: List[str] = []
    for word in ("from", "pass"):
        if word in kinds and f"{word}_" in arguments:
            value = arguments.pop(f"{word}_")
            if word in arguments:
                faults.append(f"given twice: {word}")
            arguments[word] = value
    missing = [f"{parameter} ({kind})" for parameter, kind in kinds.items() if parameter not in arguments]
    left = [parameter for parameter in kinds if parameter not in arguments]
    unknown = [f"{given}{_hint(given, left)}" for given in arguments if given not in kinds]
    faults += [f"missing: {', '.join(missing)}"] * bool(missing) + [f"unknown: {', '.join(unknown)}"] * bool(unknown)
    if faults:
        raise TypeError(f"{name} ({', '.join(map(str, numbers))}): {'; '.join(faults)}")
    return function(*(arguments[parameter] for parameter in kinds))


def _hint(word: Any, candidates: Any) -> str:
    from difflib import get_close_matches  # not for those who only want the names

    close = get_close_matches(str(word), candidates, n=1)
    return f" (did you mean {close[0]}?)" if close else ""
