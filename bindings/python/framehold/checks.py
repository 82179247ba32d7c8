"""Checks of arguments, which name the argument and what is allowed."""

from __future__ import annotations

import math

import numpy as np
import numpy.typing as npt

from .errors import ParameterError

Doubles = npt.NDArray[np.float64]


def require(*arguments: tuple[str, float, bool, str]) -> None:
    """Raises ParameterError for the first of the numbers that is not good, or not finite.

    Args:
        arguments: name, value, True if it is good, and what is allowed.
    """
    for field, value, is_good, allowed in arguments:
        if not (is_good and math.isfinite(value)):
            raise ParameterError(field, value, allowed)


def times_of(field: str, values: npt.ArrayLike, least: int) -> Doubles:
    """Array (N,) of seconds in order, N at least `least`. Raises ParameterError."""
    array = np.asarray(values, np.float64)
    if array.ndim != 1 or len(array) < least or not np.isfinite(array).all():
        raise ParameterError(
            field, f"of shape {array.shape}", f"finite numbers of shape (N,), N at least {least}"
        )
    if (np.diff(array) < 0.0).any():
        raise ParameterError(field, "not in order", "seconds in order of time")
    return array


def vectors_of(field: str, values: npt.ArrayLike, count: int) -> Doubles:
    """Array (count, 3) of finite numbers. Raises ParameterError."""
    array = np.asarray(values, np.float64)
    if array.shape != (count, 3) or not np.isfinite(array).all():
        raise ParameterError(
            field, f"of shape {array.shape}", f"finite numbers of shape ({count}, 3)"
        )
    return array
