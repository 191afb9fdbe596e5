"""Addresses of prims."""

from __future__ import annotations


class Path(str):
    """The address of a prim in a scene, such as ``/World/Chair``: a text with a few questions.

    Every text is a path, and none is checked: one that is no address finds no prim. Wherever a path
    is asked for a plain text does.

    >>> chair = vela.Path("/World/Chair")
    >>> chair.parent, chair.name, chair.child("Leg")
    (Path('/World'), 'Chair', Path('/World/Chair/Leg'))
    >>> chair == "/World/Chair"
    True
    """

    __slots__ = ()

    @classmethod
    def absolute_root(cls) -> Path:
        """``/``, the address of a stage's root."""
        return cls("/")

    @property
    def parent(self) -> Path:
        """What stands before the last ``/``: ``/A`` of ``/A/B``, ``/`` of ``/A``; empty for ``/`` and without one."""
        cut = self.rfind("/")
        if cut < 0 or len(self) == 1:
            return Path("")
        return Path(self[:cut]) if cut > 0 else Path("/")

    @property
    def name(self) -> str:
        """What stands behind the last ``/``, or the whole text without one; empty for ``/``."""
        return str(self)[self.rfind("/") + 1 :]

    def child(self, name: str) -> Path:
        """This path with one more name; an empty name gives this path itself."""
        if not name:
            return self
        if not self:
            return Path(name)
        return Path(f"/{name}" if self == "/" else f"{self}/{name}")

    def has_prefix(self, prefix: str) -> bool:
        """True when this is `prefix` or lies below it, by whole names; False when either is empty.

        >>> vela.Path("/A/B").has_prefix("/A"), vela.Path("/AB").has_prefix("/A")
        (True, False)
        """
        if not prefix or not self.startswith(prefix):
            return False
        return len(self) == len(prefix) or prefix.endswith("/") or self[len(prefix)] == "/"

    def __repr__(self) -> str:
        return f"Path({str.__repr__(self)})"

    def __str__(self) -> str:
        return str.__str__(self)
