"""The whole program under test: processes, sockets, engines. tests/process and scripts/torture stand on it."""
