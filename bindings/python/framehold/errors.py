"""Exceptions of the package."""


class ParameterError(ValueError):
    """A value that is not allowed.

    Attributes:
        field: name of the parameter, argument or field.
        value: the value that was given, as text.
        allowed: the range or kind of values that are allowed, as text.
    """

    field: str
    value: str
    allowed: str

    def __init__(self, field: str, value: object, allowed: str) -> None:
        super().__init__(field, value, allowed)
        self.field = field
        self.value = str(value)
        self.allowed = allowed

    def __str__(self) -> str:
        return f"{self.field} is {self.value}; allowed: {self.allowed}"
