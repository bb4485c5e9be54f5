"""The common form of a result: one line a row, its fields separated by tabs.

    name  ours  rival's name  rival's figure  ratio  spread of the ratio  goal

The ratio is the median of the ratios of the rounds, since the load of the machine changes between
rounds. The spread is that of the middle half of them. The goal is "-" where there is none.
No other line that a script prints has a tab in it.
"""

import statistics


def row(name, ours, rival, theirs, unit, goal="-"):
    """Prints the row of two lists of figures: ours and the rival's of each round, at least two."""
    low, ratio, high = statistics.quantiles(
        (our / their for our, their in zip(ours, theirs, strict=True)), n=4, method="inclusive")
    print(name, f"{statistics.median(ours):.4g} {unit}", rival,
          f"{statistics.median(theirs):.4g} {unit}", f"{ratio:.2f}", f"{low:.2f} to {high:.2f}",
          goal, sep="\t", flush=True)
