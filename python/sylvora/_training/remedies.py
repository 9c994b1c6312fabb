"""What to do about errors of the library, in terms of this package."""

from __future__ import annotations

import re

from .. import _core

_REMEDIES = (
    # A file of the command.
    (
        re.escape("a label map (labelTran) can rename them!"),
        "write them so, for example by numpy.where(y == label, 1, 0), or use SylvoraClassifier",
    ),
    (
        '(label should be "-1" or "[+]1" when using loss function "[^"]*")!',
        r"\1; write them so, for example by numpy.where(y == label, 1, -1), or use "
        "SylvoraClassifier",
    ),
    (
        "(Class id must be consecutive integers.* but label: .* found)!",
        r"\1; number the classes 0, 1, ..., for example by numpy.unique(y, return_inverse=True)[1],"
        " or use SylvoraForestClassifier or SylvoraTreeClassifier",
    ),
    ("raise valSmpRt", "raise subsample"),
)


def with_remedy(error: _core.TrainingError) -> _core.TrainingError:
    """The same error, whose text says what to do in Python."""
    text = str(error)
    for pattern, remedy in _REMEDIES:
        text = re.sub(pattern, remedy, text)
    return type(error)(text)
