"""What the records of the native module are pickled and copied by."""

from __future__ import annotations

import typing


def restore(kind: type[typing.Any], values: dict[str, typing.Any]) -> typing.Any:
    """A record of that class with these fields."""
    made = kind()
    for name, value in values.items():
        setattr(made, name, value)
    return made


def refuse(reason: str) -> typing.Callable[[typing.Any], typing.NoReturn]:
    """A `__reduce__` that says why there is nothing to pickle."""

    def __reduce__(self: typing.Any) -> typing.NoReturn:
        raise TypeError(reason)

    return __reduce__
