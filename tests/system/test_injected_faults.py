"""Each system call of an operation fails once: nothing breaks, and the next pass succeeds."""

import pytest

from lab.injected_faults import OPERATIONS, play


@pytest.mark.faults
@pytest.mark.parametrize("operation", OPERATIONS, ids=lambda operation: operation.name)
def test_no_failing_call_leaves_more_than_its_own_failure(machine, operation):
    assert play(machine, operation) == []
