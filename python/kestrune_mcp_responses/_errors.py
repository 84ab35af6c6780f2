"""The exceptions of kestrune_mcp_responses."""


class EncodingError(ValueError):
    """A response cannot be measured in bytes: a string in it holds a lone
    surrogate, which has no UTF-8 form.

    ``where`` is the path to the first such string in writing order (``$`` for
    the response, ``.key`` for a map's value, ``[i]`` for a list's element, as
    in ``$.sections[1].excerpt``; for a key itself ``key #i of`` and the path
    of its map); ``byte`` is the offset of the bad sequence in that string's
    UTF-8 bytes.
    """

    def __init__(self, message: str, where: str, byte: int) -> None:
        super().__init__(message)
        self.where = where
        self.byte = byte

    def __reduce__(self):
        return (type(self), (self.args[0], self.where, self.byte))
