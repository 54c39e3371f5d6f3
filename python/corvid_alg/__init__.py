"""corvid algorithms."""
