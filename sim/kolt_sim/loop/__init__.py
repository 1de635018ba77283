"""The closed loop: the model reaches the daemon as a node's files, tables and messages, and its calls come back."""
