"""Formats rows: as lines on the screen while measuring, and as Markdown in docs/performance.md.

Before a row is formatted, `complete` adds what depends on other rows or on today's aims."""

BEGIN = "<!-- What follows is written by scripts/bench --write. -->"
END = "<!-- What scripts/bench wrote ends here. -->"


def number(value, digits=3):
    """Formats with `digits` significant digits, never with an exponent."""
    if value is None:
        return "-"
    text = f"{value:.{digits}g}"
    return f"{value:.0f}" if "e+" in text else f"{value:.7f}".rstrip("0") if "e-" in text else text


def time(side):
    return lambda row: "-" if row["times"][side] is None else \
        f"{number(row['times'][side]['median'])} ({row['times'][side]['spread'] * 100:.0f} %)"


def pair(field):
    def cell(row):
        ours, theirs = row.get(field) or (None, None)
        return "" if ours is None and theirs is None else f"{number(ours)} / {number(theirs)}"
    return cell


def ratio(row):
    if row["ratio"] is None:
        return "-"
    about = "≈ " if row.get("stand_in") else ""
    return f"{about}{number(row['ratio']['median'], 2)} ({row['ratio']['spread'] * 100:.0f} %)"


def runs(row):
    disturbed = f", {row['disturbed']} disturbed" if row["disturbed"] else ""
    return f"{row['runs']}{disturbed}"


def complete(row, rows, aim_of):
    """The row with its aim and the speed-up of both sides: the time with one thread, which is in
    `rows`, by that of the row."""
    def gain(side, one_thread):
        times = [one["times"][side] for one in (one_thread, row)]
        return None if None in times else times[0]["median"] / times[1]["median"]

    found = [one for one in rows if one["threads"] == 1 and row["threads"] > 1 and
             all(one[key] == row[key] for key in ("workload", "peer"))]
    return {**row, "aim": aim_of(row["workload"], row["threads"], row["peer"]),
            "speed-up": [gain(side, found[0]) for side in (0, 1)] if found else None}


# Title, width on the screen, cell. Pairs are ours / the peer's; percentages are spreads.
COLUMNS = (
    ("Workload", 22, lambda row: row["workload"]),
    ("Threads", 7, lambda row: str(row["threads"])),
    ("Peer", 14, lambda row: row["peer"]),
    ("Unit", 12, lambda row: row["unit"]),
    ("Sylvora", 14, time(0)),
    ("Peer's", 14, time(1)),
    ("Ratio", 14, ratio),
    ("Aim", 5, lambda row: number(row["aim"]) if row["aim"] else ""),
    ("Speed-up", 11, pair("speed-up")),
    ("CPU", 13, pair("cpu")),
    ("Preparation, s", 15, pair("prepare")),
    ("Bytes per cell", 15, pair("cell_bytes")),
    ("MB/s", 13, pair("megabytes")),
    ("Misfit", 15, pair("misfit")),
    ("Runs", 15, runs),
    ("Note", 0, lambda row: row["note"]),
)


def screen_line(cells):
    return "  ".join(cell.ljust(width) for cell, (_, width, _) in zip(cells, COLUMNS)).rstrip()


def screen_header():
    return screen_line([title for title, _, _ in COLUMNS])


def screen_row(row):
    return screen_line([cell(row) for _, _, cell in COLUMNS])


def table(rows):
    """A Markdown table, without columns that are empty in all rows."""
    columns = [(title, cell) for title, _, cell in COLUMNS if any(cell(row) for row in rows)]
    lines = [" | ".join(title for title, _ in columns), " | ".join("---" for _ in columns)]
    lines += [" | ".join(cell(row) for _, cell in columns) for row in rows]
    return "\n".join(f"| {line} |" for line in lines) + "\n"


SECTIONS = (
    ("Boosting", ("train",)),
    ("Forests", ("forest",)),
    ("Scoring", ("batch", "single")),
    ("Reading", ("load", "read")),
    ("Python package", ("package",)),
)


def sources(rows):
    """Which workloads were measured at which commit and date, and the load averages."""
    origins = {}
    for row in rows:
        origin = f"commit {row['commit']}, {row['date']}"
        origins.setdefault(origin, {"workloads": {}, "loads": []})
        origins[origin]["workloads"][row["workload"]] = None
        origins[origin]["loads"].append(float(row["load"].split()[0]))
    return "".join(
        f"- {origin}: {', '.join(found['workloads'])}; load average before a workload "
        f"{min(found['loads']):.1f} to {max(found['loads']):.1f}\n"
        for origin, found in origins.items())


def ratios(machines, order, aim_of):
    """A table of all ratios, one column per machine."""
    found = {}
    for place, machine in enumerate(machines):
        for row in machine["rows"]:
            if row["ratio"] and row["workload"] in order:
                key = order.index(row["workload"]), row["peer"], row["threads"]
                found.setdefault(key, [None] * len(machines))[place] = row
    lines = [["Workload", "Threads", "Peer", "Aim"] + [title_of(machine) for machine in machines]]
    lines.append(["---"] * len(lines[0]))
    for (place, peer, threads), cells in sorted(found.items()):
        aim = aim_of(order[place], threads, peer)
        lines.append([order[place], str(threads), peer, number(aim) if aim else ""] +
                     [short_ratio(row, aim) for row in cells])
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def short_ratio(row, aim):
    if row is None:
        return ""
    text = number(row["ratio"]["median"], 2)
    text = f"**{text}**" if aim and float(text) > aim else text
    return ("≈ " if row.get("stand_in") else "") + text


def of_machine(machine, order, aim_of):
    """The section of a machine: its description, the plot of its rounds, a table per kind of
    workload. Without rows that only stand in."""
    rows = [complete(row, machine["rows"], aim_of) for row in machine["rows"]
            if row["workload"] in order and not row.get("stand_in")]
    rows.sort(key=lambda row: order.index(row["workload"]))
    parts = [f"### {title_of(machine)}\n",
             "".join(f"- {line}\n" for line in machine["machine"]) + sources(rows)]
    if machine["rounds"]:
        parts.append(f"![The time of a round by rows and by columns]({plot_of(machine)})\n")
    for title, jobs in SECTIONS:
        of_section = [row for row in rows if row["job"] in jobs]
        if of_section:
            parts.append(f"#### {title}\n\n{table(of_section)}")
    return "\n".join(parts)


def title_of(machine):
    return f"{machine['class']} ({machine['processor']})"


def plot_of(machine):
    """The file of the plot, beside the page."""
    return f"round-cost-{machine['id']}.svg"


def page(machines, order, aim_of):
    """The text between the markers. `machines` are those of archive.py."""
    return "\n".join(["### Ratios\n", ratios(machines, order, aim_of)] +
                     [of_machine(machine, order, aim_of) for machine in machines])


def write_into(path, text):
    """Replaces the text between the two markers of a document."""
    document = path.read_text(encoding="utf-8")
    head, begin, rest = document.partition(BEGIN)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        raise SystemExit(f"ERROR: {path}: the two markers of scripts/bench are missing")
    path.write_text(f"{head}{BEGIN}\n\n{text}\n{END}{tail}", encoding="utf-8")
