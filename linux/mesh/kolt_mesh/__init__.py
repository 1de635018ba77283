"""A mesh of network namespaces: real bridges, real links between them that can fail, hosts, and what measures them."""
