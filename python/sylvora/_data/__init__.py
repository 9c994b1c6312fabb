"""What users pass, as tables and arrays."""
