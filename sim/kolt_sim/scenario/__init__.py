"""Scenarios: what a file may say, how it is checked, and the records it becomes."""
