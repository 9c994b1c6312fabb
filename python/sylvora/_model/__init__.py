"""Models and their trees."""
