"""Trainings, cross-validation and their parameters."""
