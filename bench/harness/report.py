"""Formats rows: as lines on the screen while measuring, and as Markdown in docs/performance.md."""

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
        ours, theirs = row[field]
        return "" if ours is None and theirs is None else f"{number(ours)} / {number(theirs)}"
    return cell


def ratio(row):
    if row["ratio"] is None:
        return "-"
    return f"{number(row['ratio']['median'], 2)} ({row['ratio']['spread'] * 100:.0f} %)"


def runs(row):
    disturbed = f", {row['disturbed']} disturbed" if row["disturbed"] else ""
    return f"{row['runs']}{disturbed}"


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


def markdown(rows, order, machine):
    """The text between the markers: the machine, and a table per kind of workload."""
    ordered = sorted(rows, key=lambda row: order.index(row["workload"]))
    parts = ["".join(f"- {line}\n" for line in machine) + sources(ordered)]
    for title, jobs in SECTIONS:
        of_section = [row for row in ordered if row["job"] in jobs]
        if of_section:
            parts.append(f"### {title}\n\n{table(of_section)}")
    return "\n".join(parts)


def write_into(path, text):
    """Replaces the text between the two markers of a document."""
    document = path.read_text()
    head, begin, rest = document.partition(BEGIN)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        raise SystemExit(f"ERROR: {path}: the two markers of scripts/bench are missing")
    path.write_text(f"{head}{BEGIN}\n\n{text}\n{END}{tail}")
