"""The whole program under test: processes, sockets, engines. tests/process, tests/client and scripts/torture use it."""
