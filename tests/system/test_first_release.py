"""The page that leads a stranger from a checkout to an updated machine."""

import pytest

from lab.first_release import follow_page

RUNNING = "/usr/bin/vantrell-harbor infinity\n"


@pytest.mark.long
def test_each_command_of_the_page_works_as_it_stands(tmp_path):
    _, published, night, after, refused, back = follow_page(tmp_path)
    assert "RELEASE OK: prod 1.1 is proved and its files are right\n" in published
    assert night.endswith(" applied 1.1 and relaunched the client\n"), night
    assert after.startswith("vantrell-harbor\t1.1\n")
    assert after.count(RUNNING) == 1
    assert "RELEASE CRITICAL: prod 1.2: witness 3 block: " in refused
    assert refused.endswith("refused: witness 3 serves a different signed release\n")
    assert "\nvantrell-harbor\t1.1\n" in back
    assert back.count(RUNNING) == 1
