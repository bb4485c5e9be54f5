"""The unit that asks for installs while the window is open, and the pause of a machine."""

from lab import log_lines as log
from lab.machine import SERVICE
from lab.releases import release
from lab.service_view import SOCKET_UNIT, WINDOW_TIMER, set_timer
from lab.update_steps import (DAY, NIGHT, end_session_after_boot, refusal, release_session,
                              request_apply, run_in_window, set_window, settle_at_noon, stage,
                              start_working_client)


def test_the_timer_installs_what_is_offered_inside_the_window_and_asks_nothing_before(machine):
    settle_at_noon(machine)
    machine.publish(release("1.1"))
    assert run_in_window(machine) == []
    assert machine.requests() == []
    set_window(machine, NIGHT)
    set_timer(machine, 1, WINDOW_TIMER)
    machine.wait_for_log(log.UNJUDGED)
    assert run_in_window(machine) == [log.IN_WINDOW]


def test_a_session_delays_the_install_and_a_bad_release_is_tried_once_a_night(machine):
    settle_at_noon(machine, NIGHT)
    client = start_working_client(machine, "alice")
    machine.publish(release("1.1", "--preinst", "exit 1"))
    assert run_in_window(machine) == []
    release_session(machine, client)
    for nights, window in enumerate((NIGHT, DAY), 1):
        set_window(machine, window)
        lines = len(machine.log())
        assert [run_in_window(machine) for _ in range(3)] == [[log.IN_WINDOW] * nights] * 3
        assert refusal(machine, lines).startswith("swap failed")
    assert [each.method for each in machine.requests()].count("POST") == 1  # in half an hour


def test_a_machine_on_hold_installs_nothing_and_says_so_until_it_is_resumed(machine):
    settle_at_noon(machine, NIGHT)
    machine.run("apt-mark hold vantrell-harbor")
    stage(machine, "1.1", fresh=False)
    assert [run_in_window(machine) for _ in range(2)] == [[log.PAUSED]] * 2
    assert "Held packages" in refusal(machine, request_apply(machine))
    machine.run("apt-mark unhold vantrell-harbor")
    assert run_in_window(machine) == [log.PAUSED, log.IN_WINDOW]
    machine.wait_for_log(log.UNJUDGED)


def test_a_service_that_is_mute_or_stopped_ends_the_run_with_one_line(machine):
    machine.run(["systemctl", "kill", "--signal=STOP", SERVICE])
    assert run_in_window(machine) == [log.NO_ANSWER.format("no answer within 20 s")]
    machine.run(f"systemctl kill --signal=CONT {SERVICE}; systemctl stop {SOCKET_UNIT} {SERVICE}")
    assert run_in_window(machine)[1:] == [log.NO_ANSWER.format("Connection refused")]


def test_a_machine_that_is_off_at_night_updates_in_a_window_by_day(durable_machine):
    end_session_after_boot(durable_machine, DAY)
    durable_machine.wait_for_log("[UpdateSvc] applied 1.1")
