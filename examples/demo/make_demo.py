#!/usr/bin/env python3
"""Writes the demo scene: a still life in a tiled alcove, demo.usda, the assets that it refers to and their textures.

Usage: make_demo.py [FOLDER]     (default: the folder of this script)

The files are part of the project; run this after a change here. The same text comes out on every machine: nothing is
random but for a generator of its own, and all numbers are written with three decimals. Textures have the same pixels everywhere; how
they are packed is zlib's affair.
"""
import math
import pathlib
import struct
import sys
import zlib

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
        self.points, self.faces, self.uvs = [], [], []  # uvs: of each corner of each face, or none

    def map(self, place):
        """Coordinates for textures from points: `place` takes a point and the normal of its face."""
        self.uvs = []
        for face in self.faces:
            a, b, c = (self.points[i] for i in face[:3])
            normal = unit(cross(sub(b, a), sub(c, a)))
            self.uvs += [place(self.points[i], normal) for i in face]
        return self

    def add(self, other):
        base = len(self.points)
        self.points += other.points
        self.faces += [[base + i for i in face] for face in other.faces]

    def text(self, name, colours=None, interpolation="constant", smooth=True, material=None):
        lows = [min(p[i] for p in self.points) for i in range(3)]
        highs = [max(p[i] for p in self.points) for i in range(3)]
        lines = [f'def Mesh "{name}" (', '    prepend apiSchemas = ["MaterialBindingAPI"]', ")", "{"] if material else [f'def Mesh "{name}"', "{"]
        if not smooth:
            lines.append('    uniform token subdivisionScheme = "none"')
        lines += [f"    float3[] extent = {vectors([lows, highs])}",
                  f"    int[] faceVertexCounts = {integers(len(f) for f in self.faces)}",
                  f"    int[] faceVertexIndices = {integers(i for f in self.faces for i in f)}",
                  f"    point3f[] points = {vectors(self.points)}"]
        if colours:
            lines += [f"    color3f[] primvars:displayColor = {vectors(colours)} (",
                      f'        interpolation = "{interpolation}"', "    )"]
        if self.uvs:
            values = sorted({tuple(round(c, 3) for c in uv) for uv in self.uvs})
            at = {uv: i for i, uv in enumerate(values)}
            lines += [f"    texCoord2f[] primvars:st = {vectors(values)} (", '        interpolation = "faceVarying"', "    )",
                      f"    int[] primvars:st:indices = {integers(at[tuple(round(c, 3) for c in uv)] for uv in self.uvs)}"]
        if material:
            lines.append(f"    rel material:binding = <{material}>")
        return "\n".join(lines + ["}"]) + "\n"


# ----- materials

def material(asset_name, name, colour="displayColor", normal=None, **inputs):
    """A preview surface. Its colour is that of the mesh, an image `X.png`, or a constant; other inputs are numbers, or images of grey."""
    path = f"/{asset_name}/{name}"
    surface, nodes = [], []

    def image(node, file, output, value, more=""):
        nodes.append(f'def Shader "{node}"\n{{\n    uniform token info:id = "UsdUVTexture"\n    asset inputs:file = @./textures/{file}@\n'
                     f'    float2 inputs:st.connect = <{path}/St.outputs:result>\n    token inputs:wrapS = "repeat"\n'
                     f'    token inputs:wrapT = "repeat"\n{more}    {value} outputs:{output}\n}}\n')

    images = [v for v in (colour, normal, *inputs.values()) if isinstance(v, str) and v.endswith(".png")]
    if images:
        nodes.append('def Shader "St"\n{\n    uniform token info:id = "UsdPrimvarReader_float2"\n    string inputs:varname = "st"\n'
                     '    float2 outputs:result\n}\n')
    if colour == "displayColor":
        nodes.append('def Shader "Colour"\n{\n    uniform token info:id = "UsdPrimvarReader_float3"\n'
                     '    string inputs:varname = "displayColor"\n    float3 outputs:result\n}\n')
        surface.append(f"color3f inputs:diffuseColor.connect = <{path}/Colour.outputs:result>")
    elif isinstance(colour, str):
        image("Colour", colour, "rgb", "float3")
        surface.append(f"color3f inputs:diffuseColor.connect = <{path}/Colour.outputs:rgb>")
    else:
        surface.append(f"color3f inputs:diffuseColor = ({', '.join(number(c) for c in colour)})")
    if normal:
        image("Normal", normal, "rgb", "float3", '    token inputs:sourceColorSpace = "raw"\n    float4 inputs:scale = (2, 2, 2, 1)\n'
              "    float4 inputs:bias = (-1, -1, -1, 0)\n")
        surface.append(f"normal3f inputs:normal.connect = <{path}/Normal.outputs:rgb>")
    for key, value in inputs.items():
        if isinstance(value, str):
            image(key.capitalize(), value, "r", "float", '    token inputs:sourceColorSpace = "raw"\n')
            surface.append(f"float inputs:{key}.connect = <{path}/{key.capitalize()}.outputs:r>")
        else:
            surface.append(f"float inputs:{key} = {number(value)}")
    return (f'def Material "{name}"\n{{\n    token outputs:surface.connect = <{path}/Surface.outputs:surface>\n    def Shader "Surface"\n    {{\n'
            f'        uniform token info:id = "UsdPreviewSurface"\n' + indent("\n".join(surface), 2) + "        token outputs:surface\n    }\n"
            + indent("".join(nodes), 1) + "}\n")


# ----- textures

def hashed(x, y, seed):
    """A number from 0 to 1 for a cell of a grid."""
    h = (x * 374761393 + y * 668265263 + seed * 2246822519) & 0xffffffff
    h = ((h ^ (h >> 13)) * 1274126177) & 0xffffffff
    return ((h ^ (h >> 16)) & 0xffffffff) / 0xffffffff


def noise(u, v, cells, seed, octaves=4):
    """Smooth noise about 0, from -1 to 1, that repeats with the unit square."""
    total, weight = 0.0, 1.0
    for _ in range(octaves):
        x, y = u * cells, v * cells
        i, j = math.floor(x), math.floor(y)
        fx, fy = x - i, y - j
        fx, fy = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
        a, b = hashed(i % cells, j % cells, seed), hashed((i + 1) % cells, j % cells, seed)
        c, d = hashed(i % cells, (j + 1) % cells, seed), hashed((i + 1) % cells, (j + 1) % cells, seed)
        total += weight * (2 * (a + (b - a) * fx + (c - a) * fy + (a - b - c + d) * fx * fy) - 1)
        weight *= 0.5
        cells *= 2
        seed += 1
    return total / 2


def cracks(u, v, cells, seed):
    """The distance to the nearest border between cells about random points, in cells; repeats with the unit square."""
    x, y = u * cells, v * cells
    near = []
    for j in range(math.floor(y) - 1, math.floor(y) + 2):
        for i in range(math.floor(x) - 1, math.floor(x) + 2):
            px, py = i + hashed(i % cells, j % cells, seed), j + hashed(i % cells, j % cells, seed + 9)
            near.append(math.hypot(px - x, py - y))
    near.sort()
    return near[1] - near[0]


def encoded(v):
    v = min(max(v, 0.0), 1.0)
    return round(255 * (12.92 * v if v <= 0.0031308 else 1.055 * v ** (1 / 2.4) - 0.055))


def png(width, height, pixel):
    """An image: `pixel` takes u and v, v up, and gives a linear colour, or a number from 0 to 1 for grey that is no colour."""
    rows, grey = [], False
    for y in range(height):
        row = bytearray([0])
        for x in range(width):
            value = pixel((x + 0.5) / width, 1 - (y + 0.5) / height)
            grey = not isinstance(value, tuple)
            row += bytes([round(255 * min(max(value, 0.0), 1.0))] if grey else [encoded(c) for c in value])
        rows.append(bytes(row))

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    head = struct.pack(">IIBBBBB", width, height, 8, 0 if grey else 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(b"".join(rows), 9)) + chunk(b"IEND", b"")


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
    along = [0.0]  # the way along the profile, for the textures
    for (r, y), (r1, y1) in zip(profile, profile[1:]):
        along.append(along[-1] + math.hypot(r1 - r, y1 - y))
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
    for k, (low, high) in enumerate(zip(rings, rings[1:])):
        for s in range(segments):
            n = (s + 1) % segments
            corners = [low[s % len(low)], low[n % len(low)], high[n % len(high)], high[s % len(high)]]
            kept = [i for i, c in enumerate(corners) if c != corners[i - 1]]
            mesh.faces.append([corners[i] for i in kept])
            mesh.uvs += [((s + (i in (1, 2))) / segments, along[k + (i in (2, 3))] / along[-1]) for i in kept]
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


def on_profile(profile, v):
    """The radius and height of a profile at a share of its length, and whether that is on the inside, past the rim."""
    lengths = [math.hypot(b[0] - a[0], b[1] - a[1]) for a, b in zip(profile, profile[1:])]
    left = v * sum(lengths)
    rim = max(range(len(profile)), key=lambda k: profile[k][1])
    for k, length in enumerate(lengths):
        if left <= length or k == len(lengths) - 1:
            t = min(left / length, 1.0) if length > 0 else 0.0
            return tuple(a + (b - a) * t for a, b in zip(profile[k], profile[k + 1])) + (k >= rim,)
        left -= length


def smooth(low, high, x):
    t = min(max((x - low) / (high - low), 0.0), 1.0)
    return t * t * (3 - 2 * t)


def make_tile():
    outline = [(9.3 * math.cos(TAU * k / 6), -9.3 * math.sin(TAU * k / 6)) for k in range(6)]
    mesh = prism(outline, -2.0, 0.0, 0.045).map(lambda p, n: (p[0] / 20 + 0.5, p[2] / 20 + 0.5))
    body = mesh.text("Slab", smooth=False, material="/Tile/Glaze") + material("Tile", "Glaze", roughness="crackle.png", clearcoat=0.3)
    return asset("Tile", body,
                 ("glaze", "cream", {"cream": recolour("Slab", CREAM), "sand": recolour("Slab", (0.64, 0.54, 0.41)),
                                     "rose": recolour("Slab", (0.52, 0.32, 0.25)), "ink": recolour("Slab", (0.09, 0.19, 0.27))}))


def crackle(u, v):
    line = 1.0 - smooth(0.0, 0.07, cracks(u, v, 6, 3))
    return 0.24 + 0.10 * noise(u, v, 5, 21) + 0.40 * line


VASE_OUT = spline([(0.0, 0.0), (5.2, 0.15), (6.6, 2.2), (10.4, 11.0), (11.2, 18.0), (8.6, 27.0), (4.6, 33.5), (4.1, 38.0),
                   (5.0, 42.0), (6.4, 44.2)], 9)
VASE_IN = spline([(6.4, 44.2), (6.1, 44.4), (5.6, 44.0), (4.4, 41.4), (3.5, 37.5), (3.9, 33.5), (7.6, 27.0), (10.0, 18.0), (0.0, 8.0)], 4)


def vase_edge(angle):
    """The height down to which the glaze has run."""
    return 23.0 + 2.2 * math.sin(5 * angle + 0.7) + 1.5 * math.sin(11 * angle) + 0.9 * math.sin(23 * angle + 2.0)


def vase_colour(u, v):
    r, y, inside = on_profile(VASE_OUT + VASE_IN[1:], v)
    angle = TAU * u
    glaze = mix(TEAL, (0.20, 0.52, 0.50), (y - vase_edge(angle)) / 22.0)
    glaze = mix(glaze, DEEP, 0.22 + 0.5 * noise(u, v, 8, 51))
    bare = mix(CLAY, SAND, 0.22 + 0.05 * math.sin(y * 4.0) + 0.30 * noise(u, v, 10, 71))
    if not inside:
        # A cream band of leaves about the neck, and a line on the clay.
        leaf = abs(math.sin(8 * angle)) ** 0.7 * 2.6
        if 34.4 < y < 34.4 + leaf or 33.5 < y < 33.9 or 37.5 < y < 37.9:
            return mix(CREAM, SAND, 0.2 + 0.4 * noise(u, v, 16, 91))
        if 6.4 < y < 7.0 or 7.6 < y < 7.9:
            return mix(bare, DEEP, 0.8)
    return mix(bare, glaze, (y - vase_edge(angle)) / 0.5 + 0.5)


def vase_roughness(u, v):
    _, y, _ = on_profile(VASE_OUT + VASE_IN[1:], v)
    glazed = smooth(-0.4, 0.4, y - vase_edge(TAU * u))
    return (0.82 + 0.1 * noise(u, v, 16, 5)) * (1 - glazed) + (0.10 + 0.05 * noise(u, v, 6, 6)) * glazed


def make_vase():
    def shape(r, y, angle):
        flute = math.exp(-((y - 16.0) / 13.0) ** 2)
        return r * (1.0 + 0.035 * flute * math.cos(18 * angle + 0.11 * y))
    mesh = lathe(VASE_OUT + VASE_IN[1:], 144, shape)
    return asset("Vase", mesh.text("Body", material="/Vase/Glaze")
                 + material("Vase", "Glaze", "vase.png", roughness="vase_roughness.png"))


BOWL_OUT = spline([(0.0, 0.6), (5.5, 0.6), (5.8, 0.0), (6.6, 0.0), (6.9, 1.4), (12.0, 4.6), (16.4, 9.6), (17.6, 13.0)], 6)
BOWL_IN = spline([(17.6, 13.0), (17.4, 13.3), (17.0, 13.0), (15.6, 9.8), (11.4, 5.6), (5.5, 2.9), (0.0, 2.4)], 6)


def bowl_colour(u, v):
    r, y, inside = on_profile(BOWL_OUT + BOWL_IN[1:], v)
    white = mix((0.66, 0.67, 0.64), (0.54, 0.58, 0.60), 0.4 + 0.6 * noise(u, v, 8, 31))
    cobalt = mix((0.03, 0.09, 0.28), (0.09, 0.22, 0.46), 0.45 + 0.7 * noise(u, v, 16, 41))
    angle = TAU * u
    if y > 12.5:
        return cobalt
    if inside:
        ring = 11.2 < y < 11.6 or 3.2 < y < 3.5
        return cobalt if ring else white
    # Petals that rise from the foot, each with a rib and an outline; dots between their tips.
    petal = abs(math.sin(7 * angle)) ** 0.8
    top = 2.2 + 7.6 * petal
    if y < 1.6 or 10.9 < y < 11.4:
        return cobalt
    if y < top:
        rib = petal > 0.985 or top - y < 0.45
        return cobalt if rib else mix(white, cobalt, 0.50 + 0.35 * (top - y) / 8.0)
    across = (7 * angle / math.pi) % 1.0
    if math.hypot(min(across, 1.0 - across) * 5.2, y - 8.0) < 0.55:
        return cobalt
    return white


def make_bowl():
    mesh = lathe(BOWL_OUT + BOWL_IN[1:], 112)
    return asset("Bowl", mesh.text("Body", material="/Bowl/Porcelain")
                 + material("Bowl", "Porcelain", "bowl.png", roughness=0.16, clearcoat=0.6, clearcoatRoughness=0.05))


FRUIT = {"pear": [(0.0, 0.5), (1.4, 0.1), (3.4, 1.3), (4.2, 3.7), (3.5, 6.3), (2.1, 8.6), (1.5, 10.2), (0.8, 11.2), (0.0, 11.1)],
         "apricot": [(0.0, 0.3), (1.6, 0.2), (3.3, 1.6), (3.7, 3.6), (2.9, 5.7), (1.2, 6.6), (0.0, 6.1)],
         "plum": [(0.0, 0.2), (1.5, 0.15), (3.0, 1.6), (3.3, 3.6), (2.6, 5.8), (1.0, 6.9), (0.0, 6.5)]}


def make_fruit():
    def stalk():
        mesh = lathe(spline([(0.0, -0.4), (0.22, -0.35), (0.16, 0.5), (0.26, 1.2), (0.0, 1.25)], 3), 10)
        return mesh

    def kind(name, low, high, top, skin, shape=lambda r, y, angle: r):
        mesh = lathe(spline(FRUIT[name], 6), 56, shape)
        mesh.uvs = []
        ys = [p[1] for p in mesh.points]
        lo, hi = min(ys), max(ys)
        colours = []
        for x, y, z in mesh.points:
            angle = math.atan2(z, x)
            colours.append(mix(low, high, (y - lo) / (hi - lo) + 0.25 * math.sin(angle + 0.6)))
        stem = stalk()
        stem.uvs = []
        stem.points = [(x + 0.12 * max(y, 0), y + top, z) for x, y, z in stem.points]
        return (mesh.text("Body", colours, "vertex", material="/Fruit/Skin") + stem.text("Stalk", [(0.10, 0.06, 0.03)])
                + material("Fruit", "Skin", roughness=skin, clearcoat=0.15, clearcoatRoughness=0.3))
    pear = kind("pear", (0.46, 0.44, 0.08), (0.60, 0.36, 0.07), 11.0, 0.42)
    apricot = kind("apricot", (0.78, 0.36, 0.05), (0.70, 0.16, 0.05), 6.0, 0.5,
                   lambda r, y, angle: r * (1 - 0.10 * math.exp(-(math.remainder(angle, TAU) / 0.16) ** 2)))
    plum = kind("plum", (0.11, 0.04, 0.13), (0.20, 0.05, 0.12), 6.4, 0.3)
    return asset("Fruit", "", ("kind", "apricot", {"apricot": apricot, "pear": pear, "plum": plum}))


def make_knot():
    mesh = knot(420, 24, 1.75, 3.4)
    return asset("Knot", mesh.text("Tube", [(0.83, 0.58, 0.24)], material="/Knot/Brass")
                 + material("Knot", "Brass", metallic=1.0, roughness=0.24))


def make_stone():
    mesh, kinds = stone(7.0)
    colour = {5: (0.07, 0.24, 0.27), 6: (0.68, 0.60, 0.48), 4: (0.56, 0.38, 0.14), 3: (0.56, 0.38, 0.14)}
    return asset("Stone", mesh.text("Facets", [colour[k] for k in kinds], "uniform", smooth=False, material="/Stone/Polish")
                 + material("Stone", "Polish", roughness=0.18, clearcoat=0.5, clearcoatRoughness=0.08))


def by_side(size):
    """Coordinates for textures from the two axes that a face lies along most."""
    def place(p, n):
        axis = max(range(3), key=lambda k: abs(n[k]))
        u, v = ((2, 1), (0, 2), (0, 1))[axis]
        return p[u] / size, p[v] / size
    return place


def weave(u, v):
    """The normals of a linen weave, as a colour: threads that go over and under each other."""
    threads = 16

    def height(u, v):
        x, y = u * threads, v * threads
        over = (math.floor(x) + math.floor(y)) % 2 == 0
        across = x - math.floor(x) if over else y - math.floor(y)
        length = y - math.floor(y) if over else x - math.floor(x)
        return math.sin(math.pi * across) * (0.45 + 0.55 * math.sin(math.pi * length)) + 0.25 * noise(u, v, 8, 77)
    step = 1 / 512
    n = unit((0.55 * (height(u - step, v) - height(u + step, v)), 0.55 * (height(u, v - step) - height(u, v + step)), 0.35))
    # It is no colour: encoded so that its codes are half the value and a half more.
    return tuple(decoded(0.5 * c + 0.5) for c in n)


def decoded(v):
    return v / 12.92 if v <= 0.04045 else ((v + 0.055) / 1.055) ** 2.4


def leaves(u, v):
    """The edges of a book's leaves."""
    line = 0.5 + 0.5 * math.sin(TAU * 26 * v + 2.0 * noise(u, v, 4, 13))
    return mix((0.80, 0.74, 0.62), (0.56, 0.49, 0.38), 0.55 * line + 0.25 * noise(u, v, 8, 17))


def make_book():
    cover = box(-12.0, 0.0, -8.5, 12.0, 3.4, 8.5, 0.22).map(by_side(4.0))
    pages = box(-11.5, 0.4, -8.1, 12.15, 3.0, 8.7, 0.05).map(by_side(3.0))
    body = (cover.text("Cover", smooth=False, material="/Book/Cloth") + pages.text("Pages", smooth=False, material="/Book/Leaves")
            + material("Book", "Cloth", normal="weave.png", roughness=0.85) + material("Book", "Leaves", "leaves.png", roughness=0.9))
    return asset("Book", body, ("cloth", "rose", {"rose": recolour("Cover", ROSE), "ochre": recolour("Cover", OCHRE), "ink": recolour("Cover", INK)}))


def make_cup():
    outside = spline([(0.0, 0.3), (2.6, 0.3), (2.9, 0.0), (3.4, 0.3), (4.3, 2.4), (4.6, 5.2), (4.9, 8.0)], 5)
    inside = spline([(4.9, 8.0), (4.75, 8.15), (4.6, 8.0), (4.25, 5.2), (3.9, 2.6), (2.6, 1.0), (0.0, 0.8)], 5)
    mesh = lathe(outside + inside[1:], 72, lambda r, y, angle: r * (1 + 0.012 * math.cos(12 * angle)))
    mesh.uvs = []
    return asset("Cup", mesh.text("Body", material="/Cup/Glaze") + material("Cup", "Glaze", roughness=0.28),
                 ("glaze", "chalk", {"chalk": recolour("Body", (0.70, 0.67, 0.60)), "sky": recolour("Body", (0.22, 0.40, 0.50)), "rust": recolour("Body", CLAY)}))


def make_glass():
    """A tumbler with tea in it."""
    outside = spline([(0.0, 0.0), (3.4, 0.0), (3.9, 0.4), (4.3, 4.0), (4.9, 12.6)], 8)
    inside = spline([(4.9, 12.6), (4.8, 12.75), (4.7, 12.6), (4.1, 4.4), (3.6, 1.5), (0.0, 1.2)], 8)
    glass = lathe(outside + inside[1:], 96)
    tea = lathe(spline([(0.0, 1.25), (3.5, 1.55), (4.05, 4.4), (4.3, 7.2)], 8) + [(4.25, 7.3), (0.0, 7.3)], 96)
    glass.uvs = tea.uvs = []
    return asset("Glass", glass.text("Tumbler", material="/Glass/Clear") + tea.text("Tea", material="/Glass/Amber")
                 + material("Glass", "Clear", (0.60, 0.72, 0.70), opacity=0.05, roughness=0.05, ior=1.5)
                 + material("Glass", "Amber", (0.70, 0.17, 0.01), opacity=0.85, roughness=0.08, ior=1.33))


def plaster(base, seed):
    def colour(u, v):
        shade = 1.0 + 0.16 * noise(u, v, 4, seed) + 0.07 * noise(u, v, 32, seed + 50, 2)
        return tuple(c * shade for c in base)
    return colour


def make_alcove():
    wall, niche = alcove(190.0, 170.0, 34.0, 50.0, 30.0, 48)
    wall.map(lambda p, n: (p[0] / 90.0, p[1] / 90.0))
    niche.map(lambda p, n: ((p[0] if abs(n[2]) > 0.5 else p[2]) / 90.0, p[1] / 90.0))
    return asset("Alcove", wall.text("Wall", smooth=False, material="/Alcove/Terracotta")
                 + niche.text("Niche", smooth=False, material="/Alcove/Lime")
                 + material("Alcove", "Terracotta", "terracotta.png", roughness=0.9)
                 + material("Alcove", "Lime", "lime.png", roughness=0.9))


class Plant:
    """Curves, each a list of points that it passes through with its width at each, and balls."""

    def __init__(self):
        self.curves, self.colours = [], []
        self.balls, self.sizes = [], []

    def grow(self, points, widths, colour):
        self.curves.append(list(zip(points, widths)))
        self.colours.append(colour)

    def ball(self, centre, size):
        self.balls.append(centre)
        self.sizes.append(size)

    def spheres(self):
        """Centres and radii along all of it, close enough to each other to stand for it."""
        for curve in self.curves:
            ends = [tuple(2 * x - y for x, y in zip(curve[a][0], curve[b][0])) for a, b in ((0, 1), (-1, -2))]
            through = [p for p, _ in curve]
            for k in range(len(curve) - 1):
                p0, p3 = ([ends[0]] + through)[k], (through + [ends[1]])[k + 2]
                for point, share in ((spline([p0, through[k], through[k + 1], p3], 8)[8 + s], s / 8) for s in range(9)):
                    yield point, (curve[k][1] + (curve[k + 1][1] - curve[k][1]) * share) / 2
        yield from zip(self.balls, (size / 2 for size in self.sizes))


def add(a, b, t=1.0):
    return tuple(x + t * y for x, y in zip(a, b))


def frame(axis):
    """Two directions at right angles to it and each other."""
    side = unit(cross(axis, (0.0, 0.0, 1.0) if abs(axis[2]) < 0.9 else (1.0, 0.0, 0.0)))
    return side, cross(axis, side)


def around(sides, angle):
    return add(tuple(math.cos(angle) * x for x in sides[0]), sides[1], math.sin(angle))


def stem(plant, neck, direction, height, lean, width, colour):
    """From the inside of the vase's belly through its neck at a point (x, z), upwards and over to a side. Its end, and where that leads."""
    x, z = neck
    out = (math.cos(direction), math.sin(direction))
    points = []
    for y, turn, scale in ((13.5, 0.9, 1.9), (21.0, 0.6, 1.6), (29.0, 0.3, 1.2), (37.5, 0.0, 1.0)):
        # All turn alike, so that they pass each other.
        c, s = scale * math.cos(turn), scale * math.sin(turn)
        points.append((c * x - s * z, y, s * x + c * z))
    for k in range(1, 7):
        s = k / 6
        points.append((x * (1 + 0.25 * s) + out[0] * lean * s ** 2.3, 37.5 + height * (s - 0.012 * lean * s ** 3),
                       z * (1 + 0.25 * s) + out[1] * lean * s ** 2.3))
    plant.grow(points, [width * (1 - 0.06 * k) for k in range(len(points))], colour)
    return points[-1], unit(sub(points[-1], points[-2]))


def wheat(plant, foot, axis, dice):
    """An ear: two rows of grains that turn about its axis, each grain with an awn."""
    sides = frame(axis)
    straw = (0.62, 0.44, 0.18)
    plant.grow([add(foot, axis, 1.1 * k) for k in range(6)], [0.16, 0.15, 0.14, 0.12, 0.1, 0.05], straw)
    for k in range(15):
        angle = math.pi * k + 0.10 * k + 0.4
        outward = around(sides, angle)
        root = add(add(foot, axis, 0.3 + 0.36 * k), outward, 0.10)
        along = unit(add(axis, outward, 0.42))
        size = 1.0 - 0.022 * k
        grain = [add(root, along, 0.34 * j * size) for j in range(5)]
        gold = mix((0.66, 0.45, 0.16), (0.50, 0.31, 0.10), dice.roll(0, 1))
        plant.grow(grain, [w * size for w in (0.10, 0.46, 0.52, 0.36, 0.06)], gold)
        hair = unit(add(axis, outward, dice.roll(0.16, 0.30)))
        reach = dice.roll(3.6, 5.0)
        plant.grow([add(add(grain[-1], hair, reach * t), axis, 0.5 * t * t) for t in (0.0, 0.33, 0.67, 1.0)],
                   [0.06, 0.05, 0.04, 0.02], mix(straw, CREAM, 0.35))


def tail(plant, foot, axis, dice):
    """A soft tail of fine hairs about a core."""
    sides = frame(axis)
    down, light = (0.50, 0.38, 0.24), (0.80, 0.70, 0.54)
    length = 4.5
    plant.grow([add(foot, axis, length * k / 6) for k in range(7)], [0.16, 0.95, 1.3, 1.35, 1.15, 0.75, 0.1], down)
    count = 320
    for k in range(count):
        t = (k + 0.5) / count
        angle = k * 2.399963
        outward = around(sides, angle)
        girth = 0.62 * math.sin(math.pi * min(0.06 + 0.9 * t, 0.97)) ** 0.6
        root = add(add(foot, axis, length * t), outward, 0.8 * girth)
        hair = unit(add(outward, axis, 0.7 + 1.4 * t + dice.roll(-0.15, 0.15)))
        reach = dice.roll(1.0, 1.5) * (1.05 - 0.25 * t)
        plant.grow([root, add(add(root, hair, 0.5 * reach), outward, 0.05), add(root, hair, reach)], [0.07, 0.055, 0.02],
                   mix(down, light, dice.roll(0.35, 1.0)))


def sprig(plant, foot, axis, dice):
    """Hips on twigs; the stem goes on between them."""
    sides = frame(axis)
    wood = (0.20, 0.11, 0.06)
    tip = add(add(foot, axis, 5.2), sides[0], 0.5)
    plant.grow([foot, add(foot, axis, 2.7), tip], [0.17, 0.14, 0.09], wood)
    for k in range(9):
        t = (k + 0.7) / 9.5
        root = add(add(foot, axis, 5.2 * t), sides[0], 0.5 * t * t)
        out = unit(add(around(sides, 2.399963 * k), axis, 0.75))
        reach = dice.roll(1.2, 1.9) * (1.15 - 0.4 * t)
        end = add(add(root, out, reach), axis, 0.2)
        plant.grow([root, add(root, out, 0.5 * reach), end], [0.09, 0.07, 0.06], wood)
        size = dice.roll(0.72, 0.98)
        plant.ball(add(end, unit(sub(end, root)), size / 2 - 0.02), size)
    plant.ball(add(tip, axis, 0.4), 0.84)


#: Where each passes the neck (x, z), the side that it leans to, in degrees, how high and how far it goes.
GRASSES = [(wheat, (0.3, 0.2), 80, 19.5, 2.5), (wheat, (-1.5, 0.6), 172, 21.0, 9.5), (wheat, (1.6, -0.5), -12, 20.5, 9.5),
           (wheat, (-0.7, -1.3), 232, 18.5, 7.0), (wheat, (0.9, 1.6), 52, 17.0, 8.5), (tail, (-0.9, 1.7), 128, 15.5, 9.0),
           (tail, (-1.7, -0.2), 190, 14.5, 12.5), (tail, (2.0, 0.5), 14, 15.0, 12.0), (tail, (0.7, -1.9), -64, 18.5, 8.0),
           (tail, (-0.5, 0.5), 150, 19.0, 4.5), (sprig, (1.4, 0.5), 24, 17.5, 5.5), (sprig, (-1.6, -1.7), 205, 15.0, 10.0),
           (sprig, (0.2, 2.2), 92, 13.0, 8.0)]


def require_clearance(plants):
    """That no plant runs into another, nor into the vase."""
    cells = {}
    inner = [(y, r) for r, y in VASE_IN]
    for i, plant in enumerate(plants):
        for centre, radius in plant.spheres():
            if centre[1] < 44.0:
                room = max(r + (r1 - r) * (y - centre[1]) / (y - y1) for (y, r), (y1, r1) in zip(inner, inner[1:])
                           if y >= centre[1] >= y1 and y > y1)
                if math.hypot(centre[0], centre[2]) + radius > 0.96 * room:
                    raise ValueError(f"plant {i} touches the vase at {centre}")
            elif centre[1] < 45.0 and math.hypot(centre[0], centre[2]) + radius > 5.4:
                raise ValueError(f"plant {i} touches the rim at {centre}")
            cell = tuple(math.floor(c) for c in centre)
            for dx in (-1, 0, 1):
                for dy in (-1, 0, 1):
                    for dz in (-1, 0, 1):
                        for other, point, size in cells.get((cell[0] + dx, cell[1] + dy, cell[2] + dz), ()):
                            if other != i and math.dist(centre, point) < radius + size:
                                raise ValueError(f"plants {other} and {i} touch at {centre}")
            cells.setdefault(cell, []).append((i, centre, radius))


def make_grasses():
    """Wheat, hare's tails and hips, to stand in the vase."""
    dice, plants = Dice(11), []
    for kind, neck, side, height, lean in GRASSES:
        plants.append(Plant())
        woody = kind is sprig
        colour = (0.22, 0.13, 0.07) if woody else mix((0.58, 0.46, 0.22), (0.44, 0.42, 0.20), dice.roll(0, 1))
        foot, axis = stem(plants[-1], neck, math.radians(side), height, lean, 0.32 if woody else 0.30, colour)
        kind(plants[-1], foot, axis, dice)
    require_clearance(plants)
    curves = [(curve, colour) for plant in plants for curve, colour in zip(plant.curves, plant.colours)]
    points = [p for curve, _ in curves for p, _ in curve]
    widths = [w for curve, _ in curves for _, w in curve]

    def extent(points, most):
        return vectors([tuple(pick(p[i] for p in points) + sign * most / 2 for i in range(3)) for pick, sign in ((min, -1), (max, 1))])
    api = ' (\n    prepend apiSchemas = ["MaterialBindingAPI"]\n)\n{\n'
    body = (f'def BasisCurves "Stalks"{api}    uniform token type = "cubic"\n    uniform token basis = "catmullRom"\n'
            f'    uniform token wrap = "pinned"\n    float3[] extent = {extent(points, max(widths))}\n'
            f"    int[] curveVertexCounts = {integers(len(curve) for curve, _ in curves)}\n    point3f[] points = {vectors(points)}\n"
            f'    float[] widths = {numbers(widths)} (\n        interpolation = "vertex"\n    )\n'
            f"    color3f[] primvars:displayColor = {vectors(colour for _, colour in curves)} (\n"
            '        interpolation = "uniform"\n    )\n    rel material:binding = </Grasses/Straw>\n}\n')
    balls = [ball for plant in plants for ball in plant.balls]
    sizes = [size for plant in plants for size in plant.sizes]
    colours = [mix((0.50, 0.05, 0.03), (0.62, 0.16, 0.03), dice.roll(0, 1)) for _ in balls]
    body += (f'def Points "Hips"{api}    float3[] extent = {extent(balls, max(sizes))}\n    point3f[] points = {vectors(balls)}\n'
             f"    float[] widths = {numbers(sizes)} (\n" '        interpolation = "vertex"\n    )\n'
             f"    color3f[] primvars:displayColor = {vectors(colours)} (\n" '        interpolation = "vertex"\n    )\n'
             "    rel material:binding = </Grasses/Peel>\n}\n")
    return asset("Grasses", body + material("Grasses", "Straw", roughness=0.7)
                 + material("Grasses", "Peel", roughness=0.25, clearcoat=0.4, clearcoatRoughness=0.1))


def sky(u, v):
    """All around a room with a window: pale above, warm at the horizon, dark below; latlong."""
    height = math.sin((v - 0.5) * math.pi)
    colour = mix((0.40, 0.33, 0.27), (0.50, 0.58, 0.70), smooth(-0.1, 0.7, height)) if height > -0.1 else (0.20, 0.15, 0.11)
    across = min(abs(u - 0.82), 1 - abs(u - 0.82))  # to the left and in front of the things, as the lamp
    window = smooth(0.10, 0.06, across) * smooth(0.50, 0.56, v) * smooth(0.80, 0.74, v)
    return mix(colour, (1.0, 0.98, 0.92), window)


TEXTURES = {"crackle": (256, 256, crackle), "vase": (512, 512, vase_colour), "vase_roughness": (256, 256, vase_roughness),
            "bowl": (768, 512, bowl_colour), "weave": (128, 128, weave), "leaves": (128, 128, leaves),
            "terracotta": (192, 192, plaster((0.58, 0.36, 0.26), 100)), "lime": (192, 192, plaster((0.66, 0.54, 0.40), 200)),
            "sky": (128, 64, sky)}


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
        place("Grasses", "grasses", (-30.0, 0, -14.0), (0, 20, 0)),
        place("Bowl", "bowl", (7.0, 0, 8.0), (0, 10, 0)),
        place("Stone", "stone", (-23.0, 6.25, 24.0), (12, 34, 8)),
        place("BookLow", "book", (37.0, 0, -10.0), (0, 14, 0), variants={"cloth": "ink"}),
        place("BookMiddle", "book", (36.0, 3.4, -10.5), (0, 4, 0), 0.94, variants={"cloth": "ochre"}),
        place("BookHigh", "book", (37.5, 6.6, -10.0), (0, 22, 0), 0.86, variants={"cloth": "rose"}),
        place("Knot", "knot", (37.5, 21.6, -10.0), (0, 28, 0),
              extra="    float xformOp:rotateY:spin.timeSamples = {\n        1: 0,\n        49: 360,\n    }"),
        place("Glass", "glass", (37.0, 0, 27.0)),
        place("CupNear", "cup", (57.0, 0, 10.0), (0, 0, 0), variants={"glaze": "sky"}),
        place("CupFar", "cup", (-6.0, 0, -24.0), (0, 0, 0), 1.1, variants={"glaze": "rust"}),
        place("CupLying", "cup", (-46.0, 4.75, 17.0), (0, 62, 90), variants={"glaze": "chalk"}),
    ]
    fruit = [("apricot", (0.5, 4.2, 6.0), (8, 40, -14)), ("apricot", (9.0, 4.0, 13.2), (20, 190, 8)), ("plum", (14.0, 4.6, 7.0), (-4, 90, -22)),
             ("plum", (-0.9, 6.4, 12.2), (24, 10, 22)), ("pear", (8.0, 6.2, 2.4), (-16, 130, -20)), ("apricot", (6.2, 9.9, 9.4), (10, 300, 12)),
             ("pear", (17.5, 3.9, 33.0), (4, 200, 88)), ("plum", (-5.0, 0, 33.0), (0, 70, 0)), ("apricot", (1.6, 0, 37.5), (0, 160, 0))]
    for k, (kind, at, turn) in enumerate(fruit):
        objects.append(place(f"Fruit_{k}", "fruit", at, turn, variants={"kind": kind}))

    text = header("Demo", "    startTimeCode = 1\n    endTimeCode = 48\n    timeCodesPerSecond = 24\n")
    text += 'def Xform "Demo" (\n    kind = "assembly"\n)\n{\n'
    text += '    def Xform "Room"\n    {\n' + indent(place("Alcove", "alcove", (0, 0, -46.0)), 2)
    text += '        def Xform "Floor"\n        {\n' + indent(floor + "".join(tiles), 3) + "        }\n    }\n"
    text += '    def Xform "Things"\n    {\n' + indent("".join(objects), 2) + "    }\n"
    text += indent('def Scope "Lights"\n{\n    def DomeLight "Room"\n    {\n        float inputs:intensity = 0.5\n'
                   '        asset inputs:texture:file = @./assets/textures/sky.png@\n        token inputs:texture:format = "latlong"\n    }\n'
                   '    def RectLight "Window"\n    {\n        float inputs:intensity = 44\n        float inputs:width = 60\n'
                   '        float inputs:height = 80\n        bool inputs:enableColorTemperature = 1\n'
                   '        float inputs:colorTemperature = 5000\n        double3 xformOp:translate = (-170, 150, 150)\n'
                   '        float3 xformOp:rotateXYZ = (-30.8, -48.6, 0)\n'
                   '        uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ"]\n    }\n}\n', 1)
    text += indent('def Camera "Camera"\n{\n    float focalLength = 50\n    float horizontalAperture = 36\n    float verticalAperture = 20.25\n'
                   '    float2 clippingRange = (1, 10000)\n    float focusDistance = 205\n'
                   '    double3 xformOp:translate = (9, 58, 205)\n    float3 xformOp:rotateXYZ = (-8.4, 2.2, 0)\n'
                   '    uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ"]\n}\n', 1)
    return text + "}\n"


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent)
    (folder / "assets").mkdir(parents=True, exist_ok=True)
    makers = {"tile": make_tile, "vase": make_vase, "grasses": make_grasses, "bowl": make_bowl, "fruit": make_fruit, "knot": make_knot, "stone": make_stone,
              "book": make_book, "cup": make_cup, "glass": make_glass, "alcove": make_alcove}
    (folder / "assets/textures").mkdir(exist_ok=True)
    for name, (width, height, pixel) in TEXTURES.items():
        (folder / f"assets/textures/{name}.png").write_bytes(png(width, height, pixel))
    for name, make in makers.items():
        (folder / "assets" / f"{name}.usda").write_text(make(), newline="\n")
    (folder / "demo.usda").write_text(make_scene(), newline="\n")


if __name__ == "__main__":
    main()
