#!/usr/bin/env python3
"""Writes the demo scene: a still life in a tiled alcove, demo.usda and the assets that it refers to.

Usage: make_demo.py [FOLDER]     (default: the folder of this script)

The files are part of the project; run this after a change here. The same text comes out on every machine: nothing is
random but for a generator of its own, and all numbers are written with three decimals.
"""
import math
import pathlib
import sys

TAU = 2.0 * math.pi


# ----- text

def number(v):
    text = f"{v:.3f}".rstrip("0").rstrip(".")
    return "0" if text in ("-0", "") else text


def numbers(values):
    return "[" + ", ".join(number(v) for v in values) + "]"


def integers(values):
    return "[" + ", ".join(str(v) for v in values) + "]"


def vectors(values):
    return "[" + ", ".join("(" + ", ".join(number(c) for c in v) + ")" for v in values) + "]"


def indent(text, depth):
    pad = "    " * depth
    return "".join(pad + line + "\n" if line else "\n" for line in text.splitlines())


def header(default_prim, extra=""):
    return (f'#usda 1.0\n(\n    defaultPrim = "{default_prim}"\n    doc = "Written by make_demo.py."\n'
            f'    metersPerUnit = 0.01\n    upAxis = "Y"\n{extra})\n\n')


class Mesh:
    """Points, faces as lists of point numbers (counter-clockwise seen from outside) and colours."""

    def __init__(self):
        self.points, self.faces, self.colours = [], [], []

    def add(self, other):
        base = len(self.points)
        self.points += other.points
        self.faces += [[base + i for i in face] for face in other.faces]

    def text(self, name, colours=None, interpolation="constant", smooth=True):
        lows = [min(p[i] for p in self.points) for i in range(3)]
        highs = [max(p[i] for p in self.points) for i in range(3)]
        lines = [f'def Mesh "{name}"', "{"]
        if not smooth:
            lines.append('    uniform token subdivisionScheme = "none"')
        lines += [f"    float3[] extent = {vectors([lows, highs])}",
                  f"    int[] faceVertexCounts = {integers(len(f) for f in self.faces)}",
                  f"    int[] faceVertexIndices = {integers(i for f in self.faces for i in f)}",
                  f"    point3f[] points = {vectors(self.points)}"]
        if colours:
            lines += [f"    color3f[] primvars:displayColor = {vectors(colours)} (",
                      f'        interpolation = "{interpolation}"', "    )"]
        return "\n".join(lines + ["}"]) + "\n"


# ----- shapes

def spline(knots, steps):
    """Catmull-Rom curve through the knots (tuples), `steps` points a span, both ends included."""
    out = []
    last = len(knots) - 1
    for k in range(last):
        p0, p1, p2, p3 = knots[max(k - 1, 0)], knots[k], knots[k + 1], knots[min(k + 2, last)]
        for s in range(steps):
            t = s / steps
            out.append(tuple(0.5 * (2 * b + (c - a) * t + (2 * a - 5 * b + 4 * c - d) * t * t
                                    + (3 * b - a - 3 * c + d) * t ** 3)
                             for a, b, c, d in zip(p0, p1, p2, p3)))
    out.append(knots[-1])
    return out


def lathe(profile, segments, shape=lambda r, y, angle: r):
    """Turns (radius, height) points, listed from the lower axis along the outside, about y. Ends on the axis become single points."""
    mesh = Mesh()
    rings = []
    for r, y in profile:
        if r <= 1e-6:
            rings.append([len(mesh.points)])
            mesh.points.append((0.0, y, 0.0))
        else:
            rings.append(list(range(len(mesh.points), len(mesh.points) + segments)))
            for s in range(segments):
                angle = TAU * s / segments
                radius = shape(r, y, angle)
                mesh.points.append((radius * math.cos(angle), y, -radius * math.sin(angle)))
    for low, high in zip(rings, rings[1:]):
        for s in range(segments):
            n = (s + 1) % segments
            corners = [low[s % len(low)], low[n % len(low)], high[n % len(high)], high[s % len(high)]]
            mesh.faces.append([c for i, c in enumerate(corners) if c != corners[i - 1]])
    return mesh


def prism(outline, low, high, bevel):
    """A vertical prism over a counter-clockwise outline of (x, z) seen from above, its upper rim bevelled; open below."""
    n = len(outline)
    cx, cz = sum(p[0] for p in outline) / n, sum(p[1] for p in outline) / n
    inner = [(cx + (x - cx) * (1 - bevel), cz + (z - cz) * (1 - bevel)) for x, z in outline]
    drop = bevel * math.hypot(outline[0][0] - cx, outline[0][1] - cz)
    mesh = Mesh()
    mesh.points = ([(x, low, z) for x, z in outline] + [(x, high - drop, z) for x, z in outline]
                   + [(x, high, z) for x, z in inner])
    for ring in (0, n):
        mesh.faces += [[ring + i, ring + (i + 1) % n, ring + n + (i + 1) % n, ring + n + i] for i in range(n)]
    mesh.faces.append([2 * n + i for i in range(n)])
    return mesh


def sub(a, b):
    return tuple(x - y for x, y in zip(a, b))


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def unit(a):
    n = math.sqrt(dot(a, a))
    return tuple(x / n for x in a)


def stone(radius):
    """A truncated icosahedron with bevelled edges and corners: pentagons, hexagons, quads and triangles. Returns mesh, kinds of faces."""
    g = (1 + math.sqrt(5)) / 2
    corners = set()
    for base in ((0, 1, 3 * g), (1, 2 + g, 2 * g), (g, 2, 2 * g + 1)):
        for sx in (1, -1):
            for sy in (1, -1):
                for sz in (1, -1):
                    v = (base[0] * sx, base[1] * sy, base[2] * sz)
                    for k in range(3):
                        corners.add(tuple(round(v[(i + k) % 3], 9) + 0.0 for i in range(3)))
    corners = sorted(corners)
    axes = []
    for s in (1, -1):
        for t in (1, -1):
            for k in range(3):
                axes.append(tuple((0, s, t * g)[(i + k) % 3] for i in range(3)))            # 12: pentagons
                axes.append(tuple((0, s / g, t * g)[(i + k) % 3] for i in range(3)))         # 12 of the 20 hexagons
    axes += [(x, y, z) for x in (1, -1) for y in (1, -1) for z in (1, -1)]
    # Of the two handednesses of the axes only one meets faces of this solid: keep those with five or six corners.
    polygons = []
    for axis in sorted(set(axes + [(a[0], a[2], a[1]) for a in axes])):
        n = unit(axis)
        top = max(dot(c, n) for c in corners)
        ring = [i for i, c in enumerate(corners) if dot(c, n) > top - 1e-6]
        if len(ring) not in (5, 6):
            continue
        u = unit(sub(corners[ring[0]], tuple(top * x for x in n)))
        w = cross(n, u)
        ring.sort(key=lambda i: math.atan2(dot(corners[i], w), dot(corners[i], u)))
        polygons.append(ring)
    polygons.sort(key=lambda ring: (len(ring), ring))

    mesh, kinds, at = Mesh(), [], {}
    size = radius / math.sqrt(dot(corners[0], corners[0]))
    for f, ring in enumerate(polygons):
        centre = tuple(sum(corners[i][k] for i in ring) / len(ring) for k in range(3))
        for i in ring:
            at[f, i] = len(mesh.points)
            mesh.points.append(tuple(size * (c + 0.86 * (p - c)) for p, c in zip(corners[i], centre)))
        mesh.faces.append([at[f, i] for i in ring])
        kinds.append(len(ring))
    for f, ring in enumerate(polygons):
        for a, b in zip(ring, ring[1:] + ring[:1]):
            other = next(g2 for g2, r in enumerate(polygons) if g2 != f and a in r and b in r)
            if other > f:
                mesh.faces.append([at[f, b], at[f, a], at[other, a], at[other, b]])
                kinds.append(4)
    for i, c in enumerate(corners):
        around = [f for f, ring in enumerate(polygons) if i in ring]
        face = [at[f, i] for f in around]
        p = [mesh.points[k] for k in face]
        if dot(cross(sub(p[1], p[0]), sub(p[2], p[0])), c) < 0:
            face.reverse()
        mesh.faces.append(face)
        kinds.append(3)
    return mesh, kinds


def knot(turns, sides, thickness, size):
    """A tube along a (2, 3) torus knot; its cross-section is a soft square that turns along the way."""
    def centre(t):
        r = 2 + math.cos(3 * t)
        return (size * r * math.cos(2 * t), size * r * math.sin(2 * t), -size * 1.2 * math.sin(3 * t))
    mesh = Mesh()
    for k in range(turns):
        t = TAU * k / turns
        p = centre(t)
        tangent = unit(sub(centre(t + 1e-4), centre(t - 1e-4)))
        outward = sub(p, (2 * size * math.cos(2 * t), 2 * size * math.sin(2 * t), 0))
        normal = unit(sub(outward, tuple(dot(outward, tangent) * x for x in tangent)))
        side = cross(tangent, normal)
        for s in range(sides):
            angle = TAU * s / sides
            radius = thickness * (1 + 0.10 * math.cos(4 * angle + 6 * t))
            a, b = radius * math.cos(angle), radius * math.sin(angle)
            mesh.points.append(tuple(c + a * n + b * w for c, n, w in zip(p, normal, side)))
    for k in range(turns):
        for s in range(sides):
            a, b = k * sides, (k + 1) % turns * sides
            n = (s + 1) % sides
            mesh.faces.append([a + s, a + n, b + n, b + s])
    return mesh


def box(lx, ly, lz, hx, hy, hz, bevel):
    """A box with bevelled edges: 6 large quads, 12 edge quads, 8 corner triangles."""
    low, high = (lx, ly, lz), (hx, hy, hz)
    mesh, at = Mesh(), {}
    for axis in range(3):
        for sx in (0, 1):
            for sy in (0, 1):
                for sz in (0, 1):
                    s = (sx, sy, sz)
                    p = [(high if s[k] else low)[k] for k in range(3)]
                    for k in range(3):
                        if k != axis:
                            p[k] += -bevel if s[k] else bevel
                    at[axis, s] = len(mesh.points)
                    mesh.points.append(tuple(p))

    def outward(face):
        p = [mesh.points[i] for i in face]
        middle = tuple(sum(q[k] for q in p) / len(p) - (low[k] + high[k]) / 2 for k in range(3))
        return face if dot(cross(sub(p[1], p[0]), sub(p[2], p[0])), middle) > 0 else face[::-1]

    def corner(fixed):
        return tuple(fixed[k] for k in range(3))
    for axis in range(3):
        u, v = (axis + 1) % 3, (axis + 2) % 3
        for s in (0, 1):
            mesh.faces.append(outward([at[axis, corner({axis: s, u: a, v: b})] for a, b in ((0, 0), (1, 0), (1, 1), (0, 1))]))
        for a in (0, 1):
            for b in (0, 1):  # the edge along `axis` between the sides u = a and v = b
                mesh.faces.append(outward([at[u, corner({axis: 0, u: a, v: b})], at[u, corner({axis: 1, u: a, v: b})],
                                           at[v, corner({axis: 1, u: a, v: b})], at[v, corner({axis: 0, u: a, v: b})]]))
    for sx in (0, 1):
        for sy in (0, 1):
            for sz in (0, 1):
                mesh.faces.append(outward([at[axis, (sx, sy, sz)] for axis in range(3)]))
    return mesh


def alcove(width, height, depth, half, spring, steps):
    """A wall in the plane z = 0 with a round-arched niche; the wall is one concave polygon, the niche quads and one more polygon."""
    arch = [(half, 0.0), (half, spring)]
    arch += [(half * math.cos(math.pi * k / steps), spring + half * math.sin(math.pi * k / steps)) for k in range(1, steps)]
    arch += [(-half, spring), (-half, 0.0)]
    wall = Mesh()
    outline = [(half, 0.0), (width, 0.0), (width, height), (-width, height), (-width, 0.0), (-half, 0.0)] + arch[::-1][1:-1]
    wall.points = [(x, y, 0.0) for x, y in outline]
    wall.faces = [list(range(len(outline)))]
    niche = Mesh()
    n = len(arch)
    niche.points = [(x, y, z) for z in (0.0, -depth) for x, y in arch]
    niche.faces = [[i, i + 1, n + i + 1, n + i] for i in range(n - 1)] + [[n + i for i in range(n)]]
    return wall, niche


# ----- colours (linear)

def mix(a, b, t):
    t = min(max(t, 0.0), 1.0)
    return tuple(x + (y - x) * t for x, y in zip(a, b))


CREAM, SAND, INK = (0.74, 0.66, 0.53), (0.60, 0.49, 0.36), (0.05, 0.12, 0.22)
TEAL, DEEP, CLAY = (0.08, 0.33, 0.36), (0.02, 0.10, 0.16), (0.52, 0.22, 0.13)
BRASS, ROSE, OCHRE = (0.66, 0.43, 0.15), (0.58, 0.25, 0.22), (0.72, 0.46, 0.14)


# ----- assets

def asset(name, body, variants=None):
    """A layer with one Xform; `variants` is (set, default, {variant: text})."""
    if not variants:
        return header(name) + f'def Xform "{name}" (\n    kind = "component"\n)\n{{\n' + indent(body, 1) + "}\n"
    which, default, choices = variants
    text = header(name) + (f'def Xform "{name}" (\n    kind = "component"\n    variants = {{\n        string {which} = "{default}"\n    }}\n'
                           f'    prepend variantSets = "{which}"\n)\n{{\n') + indent(body, 1)
    text += f'    variantSet "{which}" = {{\n'
    for choice, inner in choices.items():
        text += f'        "{choice}" {{\n' + indent(inner, 3) + "        }\n"
    return text + "    }\n}\n"


def recolour(mesh_name, colour):
    """For variants: the mesh itself then has no colour, since an opinion beside the variants would win over theirs."""
    return f'over "{mesh_name}"\n{{\n    color3f[] primvars:displayColor = {vectors([colour])}\n}}\n'


def make_tile():
    outline = [(9.3 * math.cos(TAU * k / 6), -9.3 * math.sin(TAU * k / 6)) for k in range(6)]
    mesh = prism(outline, -2.0, 0.0, 0.045)
    return asset("Tile", mesh.text("Slab", smooth=False),
                 ("glaze", "cream", {"cream": recolour("Slab", CREAM), "sand": recolour("Slab", (0.64, 0.54, 0.41)),
                                     "rose": recolour("Slab", (0.52, 0.32, 0.25)), "ink": recolour("Slab", (0.09, 0.19, 0.27))}))


def make_vase():
    outside = spline([(0.0, 0.0), (5.2, 0.15), (6.6, 2.2), (10.4, 11.0), (11.2, 18.0), (8.6, 27.0), (4.6, 33.5), (4.1, 38.0),
                      (5.0, 42.0), (6.4, 44.2)], 9)
    inside = spline([(6.4, 44.2), (6.1, 44.4), (5.6, 44.0), (4.4, 41.4), (3.5, 37.5), (3.9, 33.5), (7.6, 27.0), (10.0, 18.0), (0.0, 8.0)], 4)

    def shape(r, y, angle):
        flute = math.exp(-((y - 16.0) / 13.0) ** 2)
        return r * (1.0 + 0.035 * flute * math.cos(18 * angle + 0.11 * y))
    mesh = lathe(outside + inside[1:], 144, shape)
    colours = []
    for x, y, z in mesh.points:
        angle = math.atan2(z, x)
        edge = 23.0 + 2.2 * math.sin(5 * angle + 0.7) + 1.5 * math.sin(11 * angle) + 0.9 * math.sin(23 * angle + 2.0)
        glaze = mix(TEAL, (0.20, 0.52, 0.50), (y - edge) / 22.0)
        bare = mix(CLAY, SAND, 0.25 + 0.06 * math.sin(y * 0.9))
        colours.append(mix(bare, glaze, (y - edge) / 0.8 + 0.5))
    return asset("Vase", mesh.text("Body", colours, "vertex"))


def make_bowl():
    outside = spline([(0.0, 0.6), (5.5, 0.6), (5.8, 0.0), (6.6, 0.0), (6.9, 1.4), (12.0, 4.6), (16.4, 9.6), (17.6, 13.0)], 6)
    inside = spline([(17.6, 13.0), (17.4, 13.3), (17.0, 13.0), (15.6, 9.8), (11.4, 5.6), (5.5, 2.9), (0.0, 2.4)], 6)
    mesh = lathe(outside + inside[1:], 112)
    colours = []
    for x, y, z in mesh.points:
        angle, r = math.atan2(z, x), math.hypot(x, z)
        petal = abs(math.sin(7 * angle)) ** 0.8 * 5.2  # height to which each petal reaches
        glaze = mix((0.62, 0.64, 0.62), (0.10, 0.22, 0.36), 0.5 + 1.2 * (petal - (y - 3.4)) / 2.0) if r > 6 else (0.62, 0.64, 0.62)
        colours.append(mix(glaze, INK, (y - 12.6) * 3.0))
    return asset("Bowl", mesh.text("Body", colours, "vertex"))


def make_fruit():
    def stalk():
        mesh = lathe(spline([(0.0, -0.4), (0.22, -0.35), (0.16, 0.5), (0.26, 1.2), (0.0, 1.25)], 3), 10)
        return mesh

    def kind(profile, segments, low, high, top, shape=lambda r, y, angle: r):
        mesh = lathe(spline(profile, 6), segments, shape)
        ys = [p[1] for p in mesh.points]
        lo, hi = min(ys), max(ys)
        colours = []
        for x, y, z in mesh.points:
            angle = math.atan2(z, x)
            colours.append(mix(low, high, (y - lo) / (hi - lo) + 0.25 * math.sin(angle + 0.6)))
        stem = stalk()
        stem.points = [(x + 0.12 * max(y, 0), y + top, z) for x, y, z in stem.points]
        return mesh.text("Body", colours, "vertex") + stem.text("Stalk", [(0.10, 0.06, 0.03)])
    pear = kind([(0.0, 0.5), (1.4, 0.1), (3.4, 1.3), (4.2, 3.7), (3.5, 6.3), (2.1, 8.6), (1.5, 10.2), (0.8, 11.2), (0.0, 11.1)], 56,
                (0.46, 0.44, 0.08), (0.60, 0.36, 0.07), 11.0)
    apricot = kind([(0.0, 0.3), (1.6, 0.2), (3.3, 1.6), (3.7, 3.6), (2.9, 5.7), (1.2, 6.6), (0.0, 6.1)], 56, (0.78, 0.36, 0.05),
                   (0.70, 0.16, 0.05), 6.0,
                   lambda r, y, angle: r * (1 - 0.10 * math.exp(-(math.remainder(angle, TAU) / 0.16) ** 2)))
    plum = kind([(0.0, 0.2), (1.5, 0.15), (3.0, 1.6), (3.3, 3.6), (2.6, 5.8), (1.0, 6.9), (0.0, 6.5)], 56, (0.11, 0.04, 0.13),
                (0.20, 0.05, 0.12), 6.4)
    return asset("Fruit", "", ("kind", "apricot", {"apricot": apricot, "pear": pear, "plum": plum}))


def make_knot():
    mesh = knot(420, 24, 1.75, 3.4)
    return asset("Knot", mesh.text("Tube", [BRASS]))


def make_stone():
    mesh, kinds = stone(7.0)
    colour = {5: (0.07, 0.24, 0.27), 6: (0.68, 0.60, 0.48), 4: (0.56, 0.38, 0.14), 3: (0.56, 0.38, 0.14)}
    return asset("Stone", mesh.text("Facets", [colour[k] for k in kinds], "uniform", smooth=False))


def make_book():
    cover = box(-12.0, 0.0, -8.5, 12.0, 3.4, 8.5, 0.22)
    pages = box(-11.5, 0.4, -8.1, 12.15, 3.0, 8.7, 0.05)
    body = cover.text("Cover", smooth=False) + pages.text("Pages", [(0.78, 0.73, 0.62)], smooth=False)
    return asset("Book", body, ("cloth", "rose", {"rose": recolour("Cover", ROSE), "ochre": recolour("Cover", OCHRE), "ink": recolour("Cover", INK)}))


def make_cup():
    outside = spline([(0.0, 0.3), (2.6, 0.3), (2.9, 0.0), (3.4, 0.3), (4.3, 2.4), (4.6, 5.2), (4.9, 8.0)], 5)
    inside = spline([(4.9, 8.0), (4.75, 8.15), (4.6, 8.0), (4.25, 5.2), (3.9, 2.6), (2.6, 1.0), (0.0, 0.8)], 5)
    mesh = lathe(outside + inside[1:], 72, lambda r, y, angle: r * (1 + 0.012 * math.cos(12 * angle)))
    return asset("Cup", mesh.text("Body"),
                 ("glaze", "chalk", {"chalk": recolour("Body", (0.70, 0.67, 0.60)), "sky": recolour("Body", (0.22, 0.40, 0.50)), "rust": recolour("Body", CLAY)}))


def make_alcove():
    wall, niche = alcove(190.0, 170.0, 34.0, 50.0, 30.0, 48)
    return asset("Alcove", wall.text("Wall", [(0.60, 0.38, 0.28)], smooth=False)
                 + niche.text("Niche", [(0.68, 0.56, 0.42)], smooth=False))


# ----- the scene

class Dice:
    """A small generator, so that the scene does not hang on a library's."""

    def __init__(self, seed):
        self.state = seed

    def roll(self, low, high):
        self.state = (self.state * 1103515245 + 12345) % 2 ** 31
        return low + (high - low) * (self.state / 2 ** 31)


def place(name, file, translate=(0, 0, 0), rotate=(0, 0, 0), scale=1.0, variants=None, extra=""):
    lines = [f'def "{name}" (']
    lines.append(f"    prepend references = @./assets/{file}.usda@")
    if variants:
        lines.append("    variants = {")
        lines += [f'        string {k} = "{v}"' for k, v in variants.items()]
        lines.append("    }")
    lines += [")", "{"]
    order = []
    if any(translate):
        lines.append(f"    double3 xformOp:translate = ({', '.join(number(v) for v in translate)})")
        order.append("xformOp:translate")
    if extra:
        lines.append(extra)
        order.append("xformOp:rotateY:spin")
    if any(rotate):
        lines.append(f"    float3 xformOp:rotateXYZ = ({', '.join(number(v) for v in rotate)})")
        order.append("xformOp:rotateXYZ")
    if scale != 1.0:
        lines.append(f"    float3 xformOp:scale = ({number(scale)}, {number(scale)}, {number(scale)})")
        order.append("xformOp:scale")
    if order:
        lines.append("    uniform token[] xformOpOrder = [" + ", ".join(f'"{o}"' for o in order) + "]")
    return "\n".join(lines + ["}"]) + "\n"


def make_scene():
    dice = Dice(7)
    tiles = []
    for column in range(-8, 9):
        for row in range(-5, 7):
            x = column * 14.3
            z = row * 16.5 + (8.25 if column % 2 else 0.0)
            roll = dice.roll(0, 1)
            glaze = "ink" if roll < 0.10 else "rose" if roll < 0.28 else "sand" if roll < 0.55 else "cream"
            tiles.append(place(f"Tile_{len(tiles):03d}", "tile", (x, dice.roll(-0.12, 0.0), z), (dice.roll(-0.5, 0.5), 0, dice.roll(-0.5, 0.5)),
                               variants={"glaze": glaze}))
    floor = box(-190.0, -8.0, -96.0, 190.0, -0.9, 120.0, 0.5).text("Bed", [(0.30, 0.26, 0.22)], smooth=False)

    objects = [
        place("Vase", "vase", (-30.0, 0, -14.0), (0, 20, 0)),
        place("Bowl", "bowl", (7.0, 0, 8.0), (0, 10, 0)),
        place("Stone", "stone", (-23.0, 6.25, 24.0), (12, 34, 8)),
        place("BookLow", "book", (37.0, 0, -10.0), (0, 14, 0), variants={"cloth": "ink"}),
        place("BookMiddle", "book", (36.0, 3.4, -10.5), (0, 4, 0), 0.94, variants={"cloth": "ochre"}),
        place("BookHigh", "book", (37.5, 6.6, -10.0), (0, 22, 0), 0.86, variants={"cloth": "rose"}),
        place("Knot", "knot", (37.5, 21.6, -10.0), (0, 28, 0),
              extra="    float xformOp:rotateY:spin.timeSamples = {\n        1: 0,\n        49: 360,\n    }"),
        place("CupNear", "cup", (38.0, 0, 27.0), (0, 0, 0), variants={"glaze": "sky"}),
        place("CupFar", "cup", (-6.0, 0, -24.0), (0, 0, 0), 1.1, variants={"glaze": "rust"}),
        place("CupLying", "cup", (-46.0, 4.75, 17.0), (0, 62, 90), variants={"glaze": "chalk"}),
    ]
    fruit = [("apricot", (0.5, 4.2, 6.0), (8, 40, -14)), ("apricot", (9.0, 4.0, 13.2), (20, 190, 8)), ("plum", (14.0, 4.6, 7.0), (-4, 90, -22)),
             ("plum", (-1.6, 5.6, 13.4), (24, 10, 22)), ("pear", (7.6, 6.6, 3.4), (-16, 130, -20)), ("apricot", (6.2, 9.4, 9.6), (10, 300, 12)),
             ("pear", (17.5, 3.9, 33.0), (4, 200, 88)), ("plum", (-5.0, 0, 33.0), (0, 70, 0)), ("apricot", (1.6, 0, 37.5), (0, 160, 0))]
    for k, (kind, at, turn) in enumerate(fruit):
        objects.append(place(f"Fruit_{k}", "fruit", at, turn, variants={"kind": kind}))

    text = header("Demo", "    startTimeCode = 1\n    endTimeCode = 48\n    timeCodesPerSecond = 24\n")
    text += 'def Xform "Demo" (\n    kind = "assembly"\n)\n{\n'
    text += '    def Xform "Room"\n    {\n' + indent(place("Alcove", "alcove", (0, 0, -46.0)), 2)
    text += '        def Xform "Floor"\n        {\n' + indent(floor + "".join(tiles), 3) + "        }\n    }\n"
    text += '    def Xform "Things"\n    {\n' + indent("".join(objects), 2) + "    }\n"
    text += indent('def Camera "Camera"\n{\n    float focalLength = 50\n    float horizontalAperture = 36\n    float verticalAperture = 20.25\n'
                   '    float2 clippingRange = (1, 10000)\n    float focusDistance = 205\n'
                   '    double3 xformOp:translate = (9, 58, 205)\n    float3 xformOp:rotateXYZ = (-8.4, 2.2, 0)\n'
                   '    uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ"]\n}\n', 1)
    return text + "}\n"


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent)
    (folder / "assets").mkdir(parents=True, exist_ok=True)
    makers = {"tile": make_tile, "vase": make_vase, "bowl": make_bowl, "fruit": make_fruit, "knot": make_knot, "stone": make_stone,
              "book": make_book, "cup": make_cup, "alcove": make_alcove}
    for name, make in makers.items():
        (folder / "assets" / f"{name}.usda").write_text(make(), newline="\n")
    (folder / "demo.usda").write_text(make_scene(), newline="\n")


if __name__ == "__main__":
    main()
