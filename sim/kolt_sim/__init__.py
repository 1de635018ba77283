"""A modelled mesh node in closed loop with the daemon: scenarios, the model, the run, its judgement and its views."""
