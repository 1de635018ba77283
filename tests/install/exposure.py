"""How much of the system each service sees: of ten, by systemd's own count; less is better."""
EXPOSURE = {"kolt": 2.1, "kolt-bridged": 2.5, "kolt-ubusd": 0.7}
