"""The machines of the tests are fixtures of the lab."""

pytest_plugins = ["lab.pytest_machines"]
