"""Writes a source with all of its changes in it: each place asks at run time whether its change is the one to be made.

Lines stay where they are: what is put in comes in one line.
"""


def wrapped(site, numbers, inner):
    """A site's text with its changes before it; numbers of changes that are not to be made are None."""
    made = [(number, kind, other) for number, (kind, other, _) in zip(numbers, site.changes) if number is not None]
    if not made:
        return inner
    if made[0][1] == "drop":
        return f"{{ if (!Mutant::on<{made[0][0]}>()) {{ {inner} }} }}"
    condition = made[0][1] == "condition"
    tests = "".join(f"Mutant::on<{number}>() ? ({other}) : " for number, _, other in made)
    return f"({tests}static_cast<bool>({inner}))" if condition else f"({tests}({inner}))"


def rewritten(text, sites, numbers):
    """The text of a file with the sites' changes in it.

    text     the file's bytes
    sites    as mutate_find.find gives them: sorted, nested or apart
    numbers  for each site the numbers of its changes, None for those left out
    """
    def render(start, end, first, last):
        """Of the stretch from start to end with the sites first..last-1, all inside it."""
        parts, at, number = [], start, first
        while number < last:
            site = sites[number]
            behind = number + 1
            while behind < last and sites[behind].end <= site.end and sites[behind].start < site.end:
                behind += 1
            parts.append(text[at:site.start].decode())
            parts.append(wrapped(site, numbers[number], render(site.start, site.end, number + 1, behind)))
            at, number = site.end, behind
        parts.append(text[at:end].decode())
        return "".join(parts)

    return render(0, len(text), 0, len(sites))
