"""Checks of arguments, which name the argument and what is allowed."""

from __future__ import annotations

import math
import operator

import numpy as np
import numpy.typing as npt

from .errors import ParameterError

Doubles = npt.NDArray[np.float64]


def integer(field: str, value: object, low: int, high: int, step: int = 1) -> int:
    """The value as an integer, a multiple of `step`. Raises ParameterError."""
    allowed = f"{low} to {high}" if step == 1 else f"even, {low} to {high}"
    try:
        result = operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        raise ParameterError(field, repr(value), f"an integer, {allowed}") from None
    if not low <= result <= high or result % step != 0:
        raise ParameterError(field, result, allowed)
    return result


def number(
    field: str,
    value: object,
    allowed: str,
    *,
    least: float = -math.inf,
    above: float = -math.inf,
    most: float = math.inf,
) -> float:
    """The value as a finite number. Raises ParameterError, which says what is `allowed`."""
    try:
        result = float(value)  # type: ignore[arg-type]
    except (TypeError, ValueError, OverflowError):
        raise ParameterError(field, repr(value), allowed) from None
    if not (math.isfinite(result) and least <= result <= most and result > above):
        raise ParameterError(field, result, allowed)
    return result


def seconds_of(field: str, value: object, *, least: float = -math.inf) -> float:
    """The value as a finite number of seconds. Raises ParameterError."""
    allowed = "a finite number (seconds)" if least == -math.inf else f"at least {least:g} (seconds)"
    return number(field, value, allowed, least=least)


def focal_length_of(field: str, value: object) -> float:
    """The value as a focal length. Raises ParameterError."""
    return number(field, value, "above 0 (pixels)", above=0.0)


def _array(field: str, values: npt.ArrayLike, allowed: str) -> Doubles:
    try:
        return np.asarray(values, np.float64)
    except (TypeError, ValueError):
        raise ParameterError(field, f"a {type(values).__name__}", allowed) from None


def times_of(field: str, values: npt.ArrayLike, least: int) -> Doubles:
    """Array (N,) of seconds in order, N at least `least`. Raises ParameterError."""
    allowed = f"finite numbers of shape (N,), N at least {least}"
    array = _array(field, values, allowed)
    if array.ndim != 1 or len(array) < least or not np.isfinite(array).all():
        raise ParameterError(field, _described(array), allowed)
    if (np.diff(array) < 0.0).any():
        raise ParameterError(field, "not in order", "seconds in order of time")
    return array


def vectors_of(field: str, values: npt.ArrayLike, count: int) -> Doubles:
    """Array (count, 3) of finite numbers. Raises ParameterError."""
    allowed = f"finite numbers of shape ({count}, 3)"
    array = _array(field, values, allowed)
    if array.shape != (count, 3) or not np.isfinite(array).all():
        raise ParameterError(field, _described(array), allowed)
    return array


def _described(array: Doubles) -> str:
    finite = "" if np.isfinite(array).all() else ", not all finite"
    return f"of shape {array.shape}{finite}"
