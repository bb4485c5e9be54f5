"""The whole road of one update, as its users see it."""

from conftest import NEXT_STAMP, release


def stage(machine, tree, version):
    machine.publish(tree)
    assert machine.send("CHECK") == "OK checking"
    machine.wait_for_log(f"{version} staged and verified")


def test_an_offer_is_proved_fetched_and_ready(machine):
    tree = release("1.1")
    stage(machine, tree, "1.1")
    assert machine.send("STATUS") == "READY 1.1 staged 1.1"
    assert "[Update] 1.1/client-linux-amd64 signed by a release key and agreed by 3/3 witnesses" \
        in machine.log()
    staged = machine.run("cd /var/lib/vantrell-harbor/update/client-staging/1.1 && sha256sum *")
    published = machine.run("cd /srv/lab/downloads.vantrell.example/packages/1.1 && sha256sum *")
    assert staged == published != ""


def test_the_client_asks_and_comes_back_as_the_new_version(machine):
    stage(machine, release("1.1", stamp=NEXT_STAMP), "1.1")
    client = machine.login("alice").start(["/usr/bin/vantrell-harbor", "--room", "two words", ""])
    lines = len(machine.log())
    client.send_signal(10)
    machine.wait_for_log("applied 1.1 and relaunched the client", 60)
    machine.wait_for_log(f"vantrell-harbor-updated {NEXT_STAMP} listening", 30, after=lines)
    assert machine.version_of("vantrell-harbor") == "1.1"
