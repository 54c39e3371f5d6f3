"""Parameter optimisation: bounds, direct and layer-by-layer optimisation, and ``run``."""
