"""Trainings and predictions on a Dask cluster."""
