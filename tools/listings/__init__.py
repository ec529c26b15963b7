"""Readers of the listings that people post of their cameras and displays."""


class ListingError(Exception):
    """What cannot be read, in one line."""
