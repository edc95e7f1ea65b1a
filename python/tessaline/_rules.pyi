"""What products can be set to, by the rules of the command ``tessaline``. Needs no device library.

Failures are RefusedError.
"""

from typing import TypedDict

class Product(TypedDict):
    series: int
    sensor: str
    width: int
    height: int
    point_bytes: int
    points_by_mode: bool
    trigger_spacing_us: int
    least_gain: int
    most_gain: int

def product(model: str) -> Product:
    """What a model code means. RefusedError names the nearest code that there is."""

def model_codes() -> list[str]:
    """The codes of all products that are made."""

def recipe_text(text: str, origin: str, model: str) -> str:
    """A recipe's text as the command writes it.

    Args:
        text: JSON.
        origin: a file's name for the errors; may be empty.
        model: the product that it must suit; "": the one it names, or any.
    """
