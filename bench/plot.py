#!/usr/bin/env python3
"""Draws what the benches have measured: docs/images/measurements and the tables of docs/measurements.md and docs/comparison.md, from the JSON in docs/performance.

The same JSON gives the same bytes. With --check nothing is written, and what differs from the JSON is told: scripts/docs does so.

Usage: plot.py [--check]      (by build/docs/env/bin/python; scripts/update-measurements calls it)
"""
import io
import json
import pathlib
import re
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  (after the choice of the backend)

ROOT = pathlib.Path(__file__).resolve().parents[1]
PAGE = ROOT / "docs/measurements.md"
COMPARISON = ROOT / "docs/comparison.md"
PICTURES = ROOT / "docs/images/measurements"

# Grey and colours of middle brightness: they are read on white and on black alike, and the background is none.
INK = "#7d7d7d"
LOOKS = {"tracer": ("Vela, ray by ray", "#2f81d6", "o"), "tracer span": ("Vela, spans of rays", "#d8641e", "s"),
         "embree robust": ("Embree, ray by ray, robust", "#3f9a52", "D")}
RAYS = ("camera", "chords", "misses")
QUERIES = {"closest": "closest hit", "any": "any hit"}

plt.rcParams.update({
    "svg.hashsalt": "vela", "svg.fonttype": "path", "font.family": "DejaVu Sans", "font.size": 9, "axes.titlesize": 9.5,
    "text.color": INK, "axes.labelcolor": INK, "axes.edgecolor": INK, "xtick.color": INK, "ytick.color": INK, "grid.color": INK,
    "grid.alpha": 0.3, "axes.grid": True, "axes.spines.top": False, "axes.spines.right": False, "legend.frameon": False,
    "savefig.transparent": True, "lines.linewidth": 1.6, "lines.markersize": 4.5,
})


def rate(scene, rays, query):
    [found] = [r for r in scene["rates"] if (r["rays"], r["query"]) == (rays, query)]
    return found


def panels(figure):
    """A row for each query, a column for each set of rays."""
    axes = figure.subplots(len(QUERIES), len(RAYS), sharex=True, sharey=True)
    for row, query in zip(axes, QUERIES):
        for at, rays in zip(row, RAYS):
            at.set_title(f"{rays}, {QUERIES[query]}")
            yield at, rays, query


def finish(figure, of, below=0.06):
    """The picture as text, with the legend of one of its axes below."""
    handles, labels = of.get_legend_handles_labels()
    figure.legend(handles, labels, loc="lower center", ncols=len(labels))
    figure.tight_layout(rect=(0, below, 1, 1))
    text = io.StringIO()
    figure.savefig(text, format="svg", metadata={"Date": None, "Creator": None})
    plt.close(figure)
    # Lines that end on blanks are no difference that a reader of changes wants.
    return re.sub(r"[ \t]+\n", "\n", text.getvalue())


def draw_cost(scenes):
    """Microseconds of a ray over the size of the mesh."""
    single = [s for s in scenes if s["placements"] == 1]
    figure = plt.figure(figsize=(9, 5.6))
    for at, rays, query in panels(figure):
        for name, (label, colour, marker) in LOOKS.items():
            at.loglog([s["triangles"] for s in single], [1 / rate(s, rays, query)[name]["rate"] for s in single], color=colour,
                      marker=marker, label=label)
        at.set_yticks([0.05, 0.1, 0.2, 0.5, 1.0], labels=["0.05", "0.1", "0.2", "0.5", "1"])
        at.yaxis.set_minor_locator(matplotlib.ticker.NullLocator())
    for at in figure.axes[3:]:
        at.set_xlabel("triangles")
    for at in figure.axes[::3]:
        at.set_ylabel("µs a ray, one thread")
    return finish(figure, figure.axes[0])


def draw_ratios(scenes):
    """Rates as multiples of Embree's, and the goals."""
    names = [s["name"] for s in scenes]
    figure = plt.figure(figsize=(9, 5.6))
    for at, rays, query in panels(figure):
        at.axhline(1, color=LOOKS["embree robust"][1], label="Embree, ray by ray, robust = 1")
        for step, name in ((-0.12, "tracer"), (0.12, "tracer span")):
            label, colour, marker = LOOKS[name]
            found = [rate(s, rays, query)[name] for s in scenes]
            places = [k + step for k in range(len(names))]
            at.vlines(places, 1, [f["ratio"] for f in found], color=colour, alpha=0.6)
            at.plot(places, [f["ratio"] for f in found], color=colour, marker=marker, linestyle="none", label=label)
            goals = [(x, f["goal"]) for x, f in zip(places, found) if "goal" in f]
            if goals:
                at.plot(*zip(*goals), color=colour, marker="_", markersize=11, linestyle="none", label="its goal")
        at.set_xticks(range(len(names)), labels=names)
        at.set_ylim(0.6, 2.05)
    for at in figure.axes[::3]:
        at.set_ylabel("rays a second, times Embree's")
    return finish(figure, figure.axes[0])


def draw_build(scenes):
    """What a tree costs before its first ray."""
    single = [s for s in scenes if s["placements"] == 1]
    figure = plt.figure(figsize=(9, 3.2))
    time, size = figure.subplots(1, 2)
    for name in ("tracer", "embree robust"):
        label, colour, marker = LOOKS[name]
        found = [next(c for c in s["candidates"] if c["name"] == name) for s in single]
        triangles = [s["triangles"] for s in single]
        label = label.split(",")[0]
        time.loglog(triangles, [1e3 * f["buildSeconds"] for f in found], color=colour, marker=marker, label=label)
        size.semilogx(triangles, [f["bytesPerTriangle"] for f in found], color=colour, marker=marker, label=label)
    time.set(title="build, one thread", xlabel="triangles", ylabel="ms")
    size.set(title="memory", xlabel="triangles", ylabel="bytes a triangle", ylim=(0, 100))
    return finish(figure, time, 0.1)


def ratio_table(scenes, query):
    """Ratios, those that reach their goal in bold, the goal in brackets."""
    lines = ["| mesh | " + " | ".join(f"{rays}, {word}" for rays in RAYS for word in ("ray by ray", "spans")) + " |",
             "|---" * (1 + 2 * len(RAYS)) + "|"]
    for scene in scenes:
        cells = []
        for rays in RAYS:
            for name in ("tracer", "tracer span"):
                found = rate(scene, rays, query)[name]
                goal = found.get("goal")
                text = f"{found['ratio']:.2f}"
                if goal is not None:
                    text = (f"**{text}**" if found["ratio"] >= goal else text) + f" ({goal:.2f})"
                cells.append(text)
        triangles = f"{scene['name']}: {scene['triangles']:,} triangles" + (f", {scene['placements']:,} times" if scene["placements"] > 1 else "")
        lines.append(f"| {triangles} | " + " | ".join(cells) + " |")
    return "\n".join(lines)


def goals_line(scenes):
    found = [r[name] for s in scenes for r in s["rates"] for name in ("tracer", "tracer span")]
    ratios = [f["ratio"] for f in found]
    goals = [f for f in found if "goal" in f]
    reached = sum(f["ratio"] >= f["goal"] for f in goals)
    ahead = sum(r > 1 for r in ratios)
    return (f"Of {len(goals)} goals {reached} are reached, and {len(goals) - reached} are not. Of {len(ratios)} ratios {ahead} are above 1, where Vela is "
            f"quicker than Embree, and {len(ratios) - ahead} are not; the least is {min(ratios):.2f}, the largest {max(ratios):.2f}.")


def embree_line(scenes):
    """In one sentence, for the page that compares."""
    def span(name, word):
        ratios = [r[name]["ratio"] for s in scenes for r in s["rates"]]
        return f"{min(ratios):.2f} to {max(ratios):.2f} of Embree's rate {word}"
    sizes = [1 - ours["bytesPerTriangle"] / theirs["bytesPerTriangle"] for ours, theirs in
             ((s["candidates"][0], s["candidates"][-1]) for s in scenes if s["placements"] == 1)]
    return (f"Measured on one thread, from a thousand to a million triangles and a thousand copies: {span('tracer', 'ray by ray')}, "
            f"{span('tracer span', 'in spans')}, which are held against the same single calls; {100 * min(sizes):.0f} to {100 * max(sizes):.0f} % "
            "less memory where a mesh stands once.")


def build_table(scenes):
    lines = ["| mesh | build, Vela | build, Embree | memory, Vela | memory, Embree |", "|---|---|---|---|---|"]
    for scene in scenes:
        ours, theirs = (next(c for c in scene["candidates"] if c["name"] == name) for name in ("tracer", "embree robust"))
        lines.append(f"| {scene['name']} | " + " | ".join(f"{1e3 * c['buildSeconds']:.3g} ms" for c in (ours, theirs)) + " | "
                     + " | ".join(f"{c['bytesPerTriangle']:.0f} B a triangle" for c in (ours, theirs)) + " |")
    return "\n".join(lines)


def is_same(found, made):
    """Whether two texts are the same but for names made of hashes and for the last digits of coordinates: NumPy's logarithms differ
    between processors in their last bit."""
    parts = [re.split(r"(-?\d+\.\d+)", re.sub(r"\b[mp][0-9a-f]{10}\b", "id", text)) for text in (found, made)]
    return parts[0][::2] == parts[1][::2] and all(abs(float(a) - float(b)) < 0.01 for a, b in zip(parts[0][1::2], parts[1][1::2]))


def main():
    data = json.loads((ROOT / "docs/performance/rays.json").read_text())
    scenes = data["scenes"]
    commit = (ROOT / "docs/performance/commit.txt").read_text().strip()
    made = {PICTURES / "cost.svg": draw_cost(scenes), PICTURES / "ratios.svg": draw_ratios(scenes), PICTURES / "build.svg": draw_build(scenes)}
    pages = {path: path.read_text() for path in (PAGE, COMPARISON)}
    parts = {"machine": f"Machine: {data['machine']}; compiler: GCC {data['compiler']}; state of the tree: {commit}; one thread; {data['unit']}.",
             "goals": goals_line(scenes), "closest": ratio_table(scenes, "closest"), "any": ratio_table(scenes, "any"), "build": build_table(scenes),
             "embree": embree_line(scenes)}
    for name, text in parts.items():
        path = COMPARISON if name == "embree" else PAGE
        pages[path], count = re.subn(rf"(<!-- {name} -->\n).*?(<!-- end -->)", lambda m: f"{m[1]}{text}\n{m[2]}", pages[path], flags=re.S)
        assert count == 1, f"{path}: the part {name} is there {count} times"
    made.update(pages)
    strangers = {p for p in PICTURES.glob("*")} - set(made) if PICTURES.is_dir() else set()
    if "--check" in sys.argv:
        different = [p for p, text in made.items() if not p.is_file() or not is_same(p.read_text(), text)] + sorted(strangers)
        for path in different:
            print(f"{path.relative_to(ROOT)} is not what docs/performance gives: scripts/update-measurements writes it anew")
        return 1 if different else 0
    PICTURES.mkdir(parents=True, exist_ok=True)
    for path, text in made.items():
        path.write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
