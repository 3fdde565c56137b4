"""The whole programs under test: processes, sockets, engines. Tests in Python and scripts/torture use it."""
