"""What a person sees of a run: live, as plain lines, as a table, as a page."""
