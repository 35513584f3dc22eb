// Planted: a header of another effect.
