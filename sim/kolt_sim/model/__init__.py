"""The modelled node: what the air, the links, the traffic and the programmed bridge do from tick to tick."""
