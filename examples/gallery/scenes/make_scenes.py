#!/usr/bin/env python3
"""Writes the small scenes of the gallery's commands: materials, lamps, meadow, blossom, pinwheels, a round room, and the demo scene through a wide-open lens.

Usage: make_scenes.py [FOLDER]     (default: the folder of this script)

The files are part of the project; run this after a change here. Nothing is random, and numbers are written with three decimals.
"""
import math
import pathlib
import sys

TAU = 2.0 * math.pi
GOLDEN = math.pi * (3.0 - math.sqrt(5.0))


def number(v):
    text = f"{v:.3f}".rstrip("0").rstrip(".")
    return "0" if text in ("-0", "") else text


def vector(values):
    return "(" + ", ".join(number(v) for v in values) + ")"


def vectors(values):
    return "[" + ", ".join(vector(v) for v in values) + "]"


def numbers(values):
    return "[" + ", ".join(number(v) for v in values) + "]"


def header(extra=""):
    return f'#usda 1.0\n(\n    doc = "Written by make_scenes.py."\n    upAxis = "Y"\n{extra})\n\n'


def prim(kind, name, lines, inside="", bound=None, at=None, turned=None):
    """A prim with its attributes, where it stands and what is below it."""
    head = f'def {kind} "{name}"'
    lines = list(lines)
    if bound:
        head += ' (\n    prepend apiSchemas = ["MaterialBindingAPI"]\n)'
        lines.append(f"rel material:binding = </Materials/{bound}>")
    order = []
    if at:
        lines.append(f"double3 xformOp:translate = {vector(at)}")
        order.append("translate")
    if turned:
        lines.append(f"float3 xformOp:rotateXYZ = {vector(turned)}")
        order.append("rotateXYZ")
    if order:
        lines.append("uniform token[] xformOpOrder = [" + ", ".join(f'"xformOp:{o}"' for o in order) + "]")
    body = "".join(f"    {line}\n" for line in "\n".join(lines).splitlines()) + "".join(f"    {line}\n" for line in inside.splitlines())
    return f"{head}\n{{\n{body}}}\n"


def material(name, colour, **inputs):
    path = f"/Materials/{name}"
    surface = ['uniform token info:id = "UsdPreviewSurface"', f"color3f inputs:diffuseColor = {vector(colour)}",
               *(f"float inputs:{key} = {number(value)}" for key, value in inputs.items()), "token outputs:surface"]
    return prim("Material", name, [f"token outputs:surface.connect = <{path}/Surface.outputs:surface>"], prim("Shader", "Surface", surface))


def camera(at, turned, focal, *more):
    return prim("Camera", "Camera", [f"float focalLength = {number(focal)}", "float horizontalAperture = 36",
                                     "float verticalAperture = 20.25", "float2 clippingRange = (0.1, 1000)", *more], at=at, turned=turned)


def mesh(name, points, faces, colours=None, at=None, turned=None, bound=None, interpolation="uniform"):
    lines = ['uniform token subdivisionScheme = "none"', f"int[] faceVertexCounts = [{', '.join(str(len(f)) for f in faces)}]",
             f"int[] faceVertexIndices = [{', '.join(str(i) for f in faces for i in f)}]", f"point3f[] points = {vectors(points)}"]
    if colours:
        lines.append(f'color3f[] primvars:displayColor = {vectors(colours)} (\n    interpolation = "{interpolation}"\n)')
    return prim("Mesh", name, lines, at=at, turned=turned, bound=bound)


def floor(colour, size=60.0):
    """A floor that bends up into a wall, as in a photographer's studio."""
    profile = [(size, 0.0), (-6.0, 0.0)] + [(-6.0 - 5.0 * math.sin(a), 5.0 - 5.0 * math.cos(a)) for a in
                                            (TAU / 4 * k / 8 for k in range(1, 9))] + [(-11.0, size)]
    points = [(x, y, z) for z, y in profile for x in (-size, size)]
    faces = [(2 * k, 2 * k + 1, 2 * k + 3, 2 * k + 2) for k in range(len(profile) - 1)]
    return mesh("Floor", points, faces, [colour], interpolation="constant")


def dome(intensity, colour=(1, 1, 1)):
    return prim("DomeLight", "Sky", [f"float inputs:intensity = {number(intensity)}", f"color3f inputs:color = {vector(colour)}"])


def panel(name, at, turned, width, height, intensity, colour=(1, 1, 1)):
    return prim("RectLight", name, [f"float inputs:width = {number(width)}", f"float inputs:height = {number(height)}",
                                    f"float inputs:intensity = {number(intensity)}", f"color3f inputs:color = {vector(colour)}"],
                at=at, turned=turned)


# ----- the scenes

def materials():
    """Balls: gold, copper, jade and clay in rows, from polished to matt."""
    kinds = [("Gold", (1.0, 0.72, 0.29), dict(metallic=1)), ("Copper", (0.80, 0.38, 0.26), dict(metallic=1)),
             ("Jade", (0.05, 0.33, 0.20), dict(clearcoat=0.3, clearcoatRoughness=0.05)), ("Clay", (0.62, 0.24, 0.14), {})]
    steps = 7
    table, balls = "", ""
    for row, (name, colour, more) in enumerate(kinds):
        for column in range(steps):
            table += material(f"{name}_{column}", colour, roughness=0.06 + 0.8 * (column / (steps - 1)) ** 1.3, **more)
            balls += prim("Sphere", f"{name}_{column}", ["double radius = 0.92"], bound=f"{name}_{column}",
                          at=(2.05 * (column - (steps - 1) / 2), 0.92, 2.6 - 2.15 * row))
    return (header() + prim("Scope", "Materials", [], table) + floor((0.16, 0.17, 0.20)) + prim("Xform", "Balls", [], balls)
            + prim("Scope", "Lights", [], dome(0.5, (0.9, 0.93, 1)) + panel("Window", (-7, 9, 7), (-40, -40, 0), 8, 5, 6, (1, 0.93, 0.82))
                   + panel("Strip", (9, 5, 0), (-20, 80, 0), 2, 9, 4, (0.7, 0.84, 1)))
            + camera((0, 9.4, 15.4), (-28, 0, 0), 37))


def lamps():
    """A red, a green and a blue lamp above white cones: where one is hidden, the other two mix."""
    white = material("White", (0.86, 0.86, 0.86), roughness=0.7)
    things = "".join(prim("Cone", f"Cone_{k}", ["double radius = 0.75", "double height = 2.6"], bound="White",
                          at=(2.5 * math.sin(TAU * k / 3 + 0.5), 1.3, 0.2 + 1.6 * math.cos(TAU * k / 3 + 0.5)), turned=(-90, 0, 0))
                     for k in range(3))
    things += prim("Sphere", "Ball", ["double radius = 0.8"], bound="White", at=(0, 0.8, 0.2))
    lights = ""
    for k, (name, colour) in enumerate((("Red", (1, 0.06, 0.04)), ("Green", (0.05, 1, 0.10)), ("Blue", (0.06, 0.12, 1)))):
        lights += prim("SphereLight", name, ["float inputs:radius = 0.12", "float inputs:intensity = 2900", f"color3f inputs:color = {vector(colour)}"],
                       at=(5.5 * (k - 1), 8.5, 5.0))
    return (header() + prim("Scope", "Materials", [], white) + floor((0.86, 0.86, 0.86)) + prim("Xform", "Things", [], things)
            + prim("Scope", "Lights", [], lights) + camera((0, 6.2, 10.6), (-27, 0, 0), 42))


def quaternion(direction):
    """The turn that takes y to a direction, as (w, x, y, z)."""
    x, y, z = direction
    w = 1.0 + y
    if w < 1e-6:
        return (0.0, 1.0, 0.0, 0.0)
    length = math.sqrt(w * w + z * z + x * x)
    return (w / length, z / length, 0.0, -x / length)


def on_ball(k, count):
    """The kth of points spread evenly over a ball."""
    y = 1.0 - 2.0 * (k + 0.5) / count
    r = math.sqrt(1.0 - y * y)
    return (r * math.cos(GOLDEN * k), y, r * math.sin(GOLDEN * k))


def curves(name, lines, widths, colour, at=None, turned=None):
    """Cubic curves through points, each thinner towards its end."""
    return prim("BasisCurves", name,
                ['uniform token type = "cubic"', 'uniform token basis = "catmullRom"', 'uniform token wrap = "pinned"',
                 f"int[] curveVertexCounts = [{', '.join(str(len(line)) for line in lines)}]",
                 f"point3f[] points = {vectors(p for line in lines for p in line)}",
                 f'float[] widths = {numbers(w for line in widths for w in line)} (\n    interpolation = "vertex"\n)',
                 f"color3f[] primvars:displayColor = [{vector(colour)}]"], at=at, turned=turned)


def instancer(name, prototypes, which, positions, turns, scales=None, at=None):
    inside = prim("Scope", "Prototypes", [], "".join(prototypes.values()))
    lines = [f"rel prototypes = [{', '.join(f'<Prototypes/{key}>' for key in prototypes)}]",
             f"int[] protoIndices = [{', '.join(str(i) for i in which)}]", f"point3f[] positions = {vectors(positions)}",
             f"quath[] orientations = {vectors(turns)}"]
    if scales:
        lines.append(f"float3[] scales = {vectors((s, s, s) for s in scales)}")
    return prim("PointInstancer", name, lines, inside, at=at)


def dandelion(name, at, height, count):
    """A clock: a seed of hairs, many times around its head; the stem; some seeds that fly away."""
    hairs = [[(0, 0.10, 0), (0.01, 0.5, 0), (0, 1.0, 0.01)]]
    widths = [[0.035, 0.014, 0.010]]
    for k in range(11):
        a = TAU * k / 11
        reach = 0.34 + 0.05 * (k % 3)
        c, s = math.cos(a), math.sin(a)
        hairs.append([(0, 1.0, 0), (0.55 * reach * c, 1.10, 0.55 * reach * s), (reach * c, 1.14 + 0.03 * (k % 2), reach * s)])
        widths.append([0.010, 0.007, 0.003])
    seed = curves("Seed", hairs, widths, (0.93, 0.92, 0.86))
    directions = [on_ball(k, count) for k in range(count)]
    # A part of the clock is gone already, and some of it is on its way.
    kept = [d for d in directions if not (d[0] > 0.52 and d[1] > -0.5)]
    flying = [((1.5 + 0.55 * k + 0.1 * math.sin(5 * k), -0.7 + 0.10 * k + 0.5 * math.sin(2.4 * k), 0.5 * math.sin(1.9 * k)),
               on_ball(3 * k + 2, 60)) for k in range(7)]
    positions = [(0, 0, 0)] * len(kept) + [p for p, _ in flying]
    turns = [quaternion(d) for d in kept] + [quaternion((0.35 * d[0] + 0.3, 0.9, 0.35 * d[2])) for _, d in flying]
    turns = [tuple(v / math.sqrt(sum(c * c for c in t)) for v in t) for t in turns]
    head = prim("Sphere", "Head", ["double radius = 0.17", f"color3f[] primvars:displayColor = [{vector((0.42, 0.36, 0.22))}]"])
    stem = curves("Stem", [[(0, 0, 0), (0.10, -height / 3, 0.05), (-0.05, -2 * height / 3, 0), (0.1, -height, 0)]], [[0.13, 0.14, 0.16, 0.18]],
                  (0.30, 0.38, 0.12))
    return prim("Xform", name, [], head + stem + instancer("Clock", {"Seed": seed}, [0] * len(positions), positions, turns), at=at)


def meadow():
    """Two dandelions in grass, all of it curves."""
    blades, widths = [], []
    for k in range(420):
        x, z = 7.0 * math.sin(12.9898 * k), 1.2 - 4.5 * ((k * 0.618034) % 1.0)
        lean = 0.8 * math.sin(7.3 * k)
        tall = 1.0 + 0.8 * ((k * 0.754878) % 1.0)
        blades.append([(x, 0, z), (x + 0.2 * lean, 0.6 * tall, z + 0.1 * math.sin(k)), (x + 0.7 * lean, tall, z + 0.3 * math.sin(k))])
        widths.append([0.09, 0.06, 0.008])
    grass = curves("Grass", blades, widths, (0.13, 0.27, 0.06))
    return (header() + floor((0.36, 0.50, 0.58)) + grass + dandelion("Old", (-0.9, 3.4, 0), 3.4, 230) + dandelion("Young", (-3.9, 2.4, -1.5), 2.4, 200)
            + prim("Scope", "Lights", [], dome(0.55, (0.80, 0.90, 1)) + panel("Sun", (-6, 9, 5), (-45, -50, 0), 4, 4, 15, (1, 0.88, 0.68)))
            + camera((0.2, 2.9, 9.6), (-3, 0, 0), 38))


def blossom():
    """A thousand scales of four kinds in the spiral of a sunflower, on a dome."""
    petal = [(0, 0, 0.10), (-0.34, 0.10, 0.55), (0, 0.24, 0.60), (0.34, 0.10, 0.55), (-0.26, 0.26, 1.05), (0, 0.36, 1.06), (0.26, 0.26, 1.05), (0, 0.52, 1.45)]
    faces = [(0, 1, 2), (0, 2, 3), (1, 4, 5, 2), (2, 5, 6, 3), (4, 7, 5), (5, 7, 6)]
    colours = {"Plum": (0.26, 0.05, 0.16), "Rose": (0.68, 0.14, 0.20), "Amber": (0.86, 0.42, 0.08), "Straw": (0.90, 0.72, 0.34)}
    prototypes = {key: mesh(key, petal, faces, [c], interpolation="constant") for key, c in colours.items()}
    count, which, positions, turns, scales = 900, [], [], [], []
    for k in range(count):
        share = (k + 0.5) / count
        radius, angle = 5.2 * math.sqrt(share), GOLDEN * k
        height = 1.9 * (1.0 - share) ** 1.2
        positions.append((radius * math.cos(angle), height, radius * math.sin(angle)))
        # About y, so that the petal's tip points outwards; then it opens, the more the farther out.
        turn, tilt = (TAU / 4 - angle) / 2, -(0.75 - 0.6 * share) / 2
        a, b = (math.cos(turn), 0, math.sin(turn), 0), (math.cos(tilt), math.sin(tilt), 0, 0)
        turns.append((a[0] * b[0], a[0] * b[1], a[2] * b[0], -a[2] * b[1]))
        scales.append(0.34 + 0.52 * share)
        which.append(min(3, int(4.6 * share)) if k % 7 else (k // 7) % 4)
    return (header() + floor((0.10, 0.13, 0.15))
            + prim("Sphere", "Cushion", ["double radius = 5", "color3f[] primvars:displayColor = [(0.12, 0.03, 0.08)]"], at=(0, -3.2, 0))
            + instancer("Petals", prototypes, which, positions, turns, scales, at=(0, 0.1, 0))
            + prim("Scope", "Lights", [], dome(0.4, (0.80, 0.90, 1)) + panel("Sun", (-8, 9, 5), (-40, -55, 0), 5, 5, 12, (1, 0.92, 0.80)))
            + camera((0, 14.6, 12.0), (-52, 0, 0), 36))


def pinwheels():
    """Three pinwheels that turn at different speeds, and a shutter that is open for half a frame."""
    palettes = [((0.85, 0.16, 0.12), (0.95, 0.66, 0.14)), ((0.06, 0.36, 0.52), (0.62, 0.84, 0.86)), ((0.42, 0.14, 0.48), (0.92, 0.50, 0.58))]
    wheels = ""
    for k, (dark, light) in enumerate(palettes):
        points, faces, colours = [(0, 0, 0)], [], []
        for blade in range(8):
            a, b, c = TAU * blade / 8, TAU * (blade + 0.55) / 8, TAU * (blade + 0.95) / 8
            n = len(points)
            points += [(1.55 * math.cos(a), 1.55 * math.sin(a), 0.05), (1.40 * math.cos(b), 1.40 * math.sin(b), 0.38), (0.8 * math.cos(c), 0.8 * math.sin(c), 0.30)]
            faces += [(0, n, n + 1), (0, n + 1, n + 2)]
            colours += [dark if blade % 2 else light, light if blade % 2 else dark]
        speed = (0, 16, 46)[k]
        spin = prim("Xform", "Spin", [f"float xformOp:rotateZ.timeSamples = {{ 0: {10 - speed}, 1: 10, 2: {10 + speed} }}",
                                      'uniform token[] xformOpOrder = ["xformOp:rotateZ"]'],
                    mesh("Blades", points, faces, colours) + prim("Sphere", "Pin", ["double radius = 0.16", "color3f[] primvars:displayColor = [(0.9, 0.9, 0.88)]"],
                                                                  at=(0, 0, 0.16)))
        stick = prim("Cylinder", "Stick", ["double radius = 0.06", "double height = 4.4", 'uniform token axis = "Y"',
                                           "color3f[] primvars:displayColor = [(0.55, 0.40, 0.26)]"], at=(0, -2.2, -0.1))
        wheels += prim("Xform", f"Wheel_{k}", [], spin + stick, at=(3.5 * (k - 1), 3.4 - 0.3 * (k % 2), 0), turned=(0, 8 * (1 - k), 0))
    return (header("    startTimeCode = 0\n    endTimeCode = 2\n") + floor((0.60, 0.68, 0.66)) + wheels
            + prim("Scope", "Lights", [], dome(0.6, (0.9, 0.95, 1)) + panel("Sun", (-7, 10, 9), (-42, -38, 0), 3, 3, 20, (1, 0.94, 0.84)))
            + camera((0, 3.1, 13.5), (-1, 0, 0), 42, "double shutter:open = -0.25", "double shutter:close = 0.25"))


def focus():
    """The demo scene, by a camera that comes near and has its lens wide open."""
    return ('#usda 1.0\n(\n    defaultPrim = "Demo"\n    doc = "Written by make_scenes.py."\n    metersPerUnit = 0.01\n    subLayers = [\n'
            '        @../../demo/demo.usda@\n    ]\n    upAxis = "Y"\n)\n\nover "Demo"\n{\n    over "Camera"\n    {\n        float focalLength = 62\n'
            "        float focusDistance = 96\n        float fStop = 1.2\n        double3 xformOp:translate = (-52, 30, 103)\n"
            "        float3 xformOp:rotateXYZ = (-10, -29, 0)\n    }\n}\n")


def carousel():
    """Things of the demo scene on pedestals, in a ring around the camera, in a round room."""
    things = [("vase", 1.0, 0, {}), ("cup", 1.5, 0, {"glaze": "sky"}), ("knot", 0.9, 12.0, {}), ("fruit", 2.2, 0, {"kind": "pear"}), ("bowl", 0.9, 0, {}),
              ("stone", 1.2, 8.2, {}), ("glass", 1.4, 0, {}), ("fruit", 2.2, 0, {"kind": "apricot"}), ("vase", 0.8, 0, {}), ("cup", 1.5, 0, {"glaze": "rust"}),
              ("stone", 1.2, 8.2, {}), ("bowl", 0.9, 0, {})]
    colours = [(0.62, 0.20, 0.14), (0.80, 0.52, 0.18), (0.44, 0.50, 0.20), (0.10, 0.40, 0.42), (0.14, 0.24, 0.44), (0.42, 0.18, 0.34)]
    ring = ""
    for k, (file, scale, lift, variants) in enumerate(things):
        angle = TAU * (k + 0.5) / len(things)
        x, z = 70 * math.sin(angle), -70 * math.cos(angle)
        chosen = "    variants = {\n" + "".join(f'        string {key} = "{v}"\n' for key, v in variants.items()) + "    }\n" if variants else ""
        ring += prim("Cylinder", f"Pedestal_{k:02d}", ["double radius = 13", "double height = 30", 'uniform token axis = "Y"',
                                                       f"color3f[] primvars:displayColor = [{vector(colours[k % 6])}]"], at=(x, -15, z))
        ring += (f'def "Thing_{k:02d}" (\n    prepend references = @../../demo/assets/{file}.usda@\n{chosen})\n{{\n'
                 f"    double3 xformOp:translate = {vector((x, lift * scale, z))}\n    float3 xformOp:rotateXYZ = {vector((0, 40 * k, 0))}\n"
                 f"    float3 xformOp:scale = {vector((scale, scale, scale))}\n"
                 '    uniform token[] xformOpOrder = ["xformOp:translate", "xformOp:rotateXYZ", "xformOp:scale"]\n}\n')
    steps = 48
    points = [(150 * math.cos(TAU * k / steps), y, 150 * math.sin(TAU * k / steps)) for y in (-30, 150) for k in range(steps)]
    walls = [(k, k + steps, (k + 1) % steps + steps, (k + 1) % steps) for k in range(steps)]
    room = mesh("Wall", points, walls, [(0.74, 0.68, 0.58) if k // 2 % 2 else (0.66, 0.60, 0.52) for k in range(steps)])
    room += mesh("Floor", points[:steps], [tuple(range(steps))[::-1]], [(0.34, 0.30, 0.27)])
    lights = dome(0.25, (0.9, 0.95, 1)) + prim("SphereLight", "Lamp", ["float inputs:radius = 12", "float inputs:intensity = 95",
                                                                     "color3f inputs:color = (1, 0.93, 0.82)"], at=(0, 84, 0))
    return (header() + prim("Xform", "Ring", [], ring) + prim("Xform", "Room", [], room) + prim("Scope", "Lights", [], lights)
            + camera((0, 16, 0), (0, 0, 0), 20))


SCENES = {"carousel": carousel, "materials": materials, "lamps": lamps, "meadow": meadow, "blossom": blossom, "pinwheels": pinwheels, "focus": focus}


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent)
    for name, make in SCENES.items():
        (folder / f"{name}.usda").write_text(make(), newline="\n")


if __name__ == "__main__":
    main()
