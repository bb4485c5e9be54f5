"""What an install may change on a machine."""

from lab.machine import SOCKET
from lab.service_view import STATE

_FOOTPRINT = f"""cd {STATE}; find . -printf '%p %m %l\\n' -type f -exec sha256sum {{}} +
dpkg-query -W vantrell-harbor; dpkg --audit; dpkg --verify vantrell-harbor
pgrep -a vantrell; echo STATUS | nc -U -N {SOCKET} | cut -d ' ' -f 1,2"""
# Nothing of a package is half done, and no file of an unfinished unpacking is left.
_PACKAGE = ("dpkg --audit; dpkg -V vantrell-harbor; ls /var/lib/dpkg/updates; "
            "find / -xdev -name '*.dpkg-*'; dpkg-query -W -f "
            "'${db:Status-Status} ${db:Status-Eflag} ${Version}' vantrell-harbor")


def footprint(machine):
    """The service's files, the package, the processes and the status, as text to be compared."""
    return machine.run(_FOOTPRINT)


def package_state(machine):
    """"installed ok VERSION" when the client's package is whole, and else what is wrong too."""
    return machine.run(_PACKAGE, check=False)


def wait_for_package(machine, version):
    """Waits until package_state() is that of a whole package."""
    machine.run(["bash", "-c", f'until [ "$({_PACKAGE})" = "installed ok $0" ]; do sleep 0.2; done',
                 version])
