"""The common form of a result: one line a row, its fields separated by tabs.

    name  ours  rival's name  rival's figure  ratio  spread of the ratio  goal

The ratio is the median of the ratios of the rounds, since the load of the machine changes between
rounds. The spread is that of the middle half of them. Both are "-" where the rival has a figure of
0. No other line that a script prints has a tab in it. The goal is "-" where there is none, or
begins with "at most" or "at least":

    at most 1.05          limits the ratio
    at most 16 MiB        limits our figure
    at most 0.1 s more    limits our figure less the rival's
"""

import re
import statistics
from typing import NamedTuple


def row(name, ours, rival, theirs, unit, goal="-"):
    """Prints the row of two lists of figures: ours and the rival's of each round, at least two."""
    ratio, spread = "-", "-"
    if all(theirs):
        low, middle, high = statistics.quantiles(
            (our / their for our, their in zip(ours, theirs, strict=True)), n=4, method="inclusive")
        ratio, spread = f"{middle:.2f}", f"{low:.2f} to {high:.2f}"
    print(name, f"{statistics.median(ours):.4g} {unit}", rival,
          f"{statistics.median(theirs):.4g} {unit}", ratio, spread, goal, sep="\t", flush=True)


class Row(NamedTuple):
    """A row as it was printed."""
    name: str
    ours: str
    rival: str
    theirs: str
    ratio: str
    spread: str
    goal: str

    def met(self):
        """"met", "missed" or, without a goal, "-". The figures are judged as they are printed."""
        if self.goal == "-":
            return "-"
        found = re.fullmatch(r"(at most|at least) (\S+)(?: (\S+)( more)?)?", self.goal)
        if not found:
            raise ValueError(f"not a goal: {self.goal}")
        bound, limit, unit, more = found.groups()
        (our, our_unit), (their, _) = self.ours.split(), self.theirs.split()
        if unit not in (None, our_unit):
            raise ValueError(f"not the unit of {self.ours}: {self.goal}")
        figure = float(our if unit else self.ratio) - (float(their) if more else 0)
        kept = figure <= float(limit) if bound == "at most" else figure >= float(limit)
        return "met" if kept else "missed"
