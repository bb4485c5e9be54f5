"""The publisher's configuration of nginx, by the commands of its page and with a real machine."""

from lab.check_pass import check
from lab.log_lines import UNJUDGED
from lab.packing import command_blocks
from lab.reference_servers import CHECKS, MIRRORED, ReferenceServers, text_of_check
from lab.releases import DEB, release
from lab.service_view import STATE, ask, restart
from lab.update_steps import request_apply

PAGE = "update-server"
IDS = [f"{number:036}" for number in range(400)]
# Bodies, and the answers to them while 1.1 is offered to everybody on prod.
OFFERED = [
    (text_of_check(), 200),
    (text_of_check(installed="1.1"), 204),
    (text_of_check(installed="1.10"), 200),
    (text_of_check(installed="1.1/1.1"), 200),
    (text_of_check(installed=""), 200),
    (text_of_check(os_build=r'\"},\\ \u0007 é'), 200),
    (text_of_check(os_build=r'\"' * 3950), 200),
    (text_of_check("beta"), 204),
    (text_of_check("prod2"), 400),
    (text_of_check(os_build='"'), 400),
    (text_of_check(os_build="\\"), 400),
    (text_of_check(install_id='a","install_id":"b'), 400),
    (text_of_check(install_id="a\\n"), 400),
    (text_of_check(installed='1.1","current_version":"1.0'), 400),
    (text_of_check() + "\n", 400),
    ("", 400),
    (text_of_check(os_build="x" * 9000), 413),
]


def outcome(machine):
    """What STATUS says after a check of the machine."""
    check(machine)
    return ask(machine, "STATUS")


def test_the_reference_servers_offer_and_serve_a_release_to_the_share_of_a_ring(quiet):
    machine, servers = quiet, ReferenceServers(quiet, release("1.1"))
    (update_server, download_host, files, offer, few, more, halt, resume,
     count) = command_blocks("The reference configuration", PAGE)
    servers.run(update_server, download_host, files, offer)
    assert servers.offered(IDS) == set()

    servers.run(few)
    first = servers.offered(IDS)
    assert 8 < len(first) < 36
    servers.run(more)
    second = servers.offered(IDS)
    assert 50 < len(second) < 110
    assert first < second
    servers.run("cp /srv/vantrell/offers/1.1.json /srv/vantrell/offers/1.2.json",
                few.replace("1.1", "1.2").replace("5%", "20%"))
    assert len(second & servers.offered(IDS)) < 40  # a fifth of a fifth, and not the same machines
    servers.run(few.replace("5%", "*"))
    bodies = [body for body, _ in OFFERED]
    assert list(zip(bodies, servers.statuses(bodies))) == OFFERED
    assert servers.statuses([""], "GET") == [405]

    machine_id = min(second - first)
    machine.write(f"{STATE}/install-id", f"{machine_id}\n")
    servers.run(few)
    assert outcome(machine) == "IDLE - up to date"
    servers.run(more, halt)
    assert outcome(machine) == "IDLE - up to date"
    servers.run(resume)
    assert outcome(machine) == "READY 1.1 staged 1.1"

    mirror, _, endpoint = command_blocks("A mirror for one site", PAGE)
    servers.run(mirror, endpoint)  # the lab's authority is trusted already
    for cached in ("MISS", "HIT"):
        restart(machine)
        assert outcome(machine) == "READY 1.1 staged 1.1"
        servers.wait_for_log(MIRRORED, f" 200 {cached} /packages/1.1/{DEB}")
    machine.wait_for_log(UNJUDGED, after=request_apply(machine))
    restart(machine)
    assert outcome(machine) == "IDLE - up to date"
    servers.wait_for_log(CHECKS, " 204 ring=prod offered=1.1 installed=1.1")
    assert machine_id not in machine.run("cat /var/log/nginx/*.log")
    assert " ring=prod offered=1.1 installed=1.0\n" in machine.run(count)
