#!/usr/bin/env python3
"""Writes SamplingRng_tables.h: first values, hashes and sample sets, by plain arithmetic that shares nothing with the library.

The generator steps by Schrage's method in 32 bits here, and by folding a 64-bit product there; floats are rounded after every
operation through struct.

Usage: SamplingRng_model.py > SamplingRng_tables.h
"""
import struct

MASK = 0xFFFFFFFF


def signed(v):
    v &= MASK
    return v - (1 << 32) if v & 0x80000000 else v


def f32(x):
    return struct.unpack("<f", struct.pack("<f", x))[0]


def bits32(x):
    return struct.unpack("<I", struct.pack("<f", x))[0]


def bits64(x):
    return struct.unpack("<Q", struct.pack("<d", x))[0]


def truncated_quotient(a, b):
    return abs(a) // b * (1 if a >= 0 else -1)


def step(s):
    k = truncated_quotient(s, 127773)
    s = signed(16807 * s - k * 2147483647)
    return s + 2147483647 if s < 0 else s


class Rng:
    def __init__(self, seed):
        if seed < 0:
            seed = signed(-seed)
        if seed in (0, 2147483647):
            seed = 1
        self.table, s = [0] * 32, seed
        for j in range(39, -1, -1):
            s = step(s)
            assert 1 <= s <= 2147483646
            if j < 32:
                self.table[j] = s
        self.state, self.value = s, self.table[0]

    def next(self):
        j = self.value // 67108864
        self.value = self.table[j]
        self.state = step(self.state)
        self.table[j] = self.state
        return self.value

    def scramble(self):
        self.state = step(self.state)
        return self.state


def make_float(v):
    return min(f32(f32(v) * 2.0**-31), f32(0.9999999))


def make_double(v):
    return min(v / 2147483647.0, 0.9999999999999998)


def hash1(x):
    h = signed(x * 1025)
    h ^= h >> 6
    h = signed(h * 9)
    h ^= h >> 11
    return signed(h * 32769)


def lcg(v):
    return (v * 1664525 + 1013904223) & MASK


def mix(x, y, z):
    return signed(((z >> 16) ^ z) * ((y >> 16) ^ y) + ((x >> 16) ^ x))


def hash3(a, b, c):
    a, b, c = lcg(a), lcg(b), lcg(c)
    x = (a + c * b) & MASK
    y = (b + c * x) & MASK
    z = (c + y * x) & MASK
    return mix(x, y, z)


def hash4(a, b, c, d):
    a, b, c, d = lcg(a), lcg(b), lcg(c), lcg(d)
    x = (a + d * b) & MASK
    y = (b + c * x) & MASK
    z = (d + (y * x + c) * y) & MASK
    return mix(x, y, z)


def samples_1d(rng, count):
    out, perm = [0.0] * max(count, 0), list(range(max(count, 0)))
    for i in range(count):
        r = rng.next()
        perm[i], perm[r % count] = perm[r % count], perm[i]
    for i in range(count):
        r = rng.next()
        out[perm[i]] = f32(f32(make_float(r) + f32(i)) * f32(1.0 / count))
    return out


def samples_2d(rng, nx, ny):
    nx, ny = max(nx, 1), max(ny, 1)
    total = nx * ny
    inv = f32(1.0 / total)
    perm = list(range(nx))
    xs = [[0.0] * ny for _ in range(nx)]
    ys = [[0.0] * ny for _ in range(nx)]

    def place(fine, r, cell, cells):
        v = f32(f32(f32(f32(fine) + make_float(r)) * inv) + f32(cell / cells))
        return f32(min(max(v, 0.0), 1.0) - 0.5)

    for i in range(nx):
        for _ in range(ny):
            r = rng.next()
            perm[i], perm[r % nx] = perm[r % nx], perm[i]
        for j in range(ny):
            xs[i][j] = place(perm[j], rng.next(), i, nx)
    for j in range(ny):
        for _ in range(nx):
            r = rng.next()
            perm[j], perm[r % nx] = perm[r % nx], perm[j]
        for i in range(nx):
            ys[i][j] = place(perm[i], rng.next(), j, ny)
    order = list(range(total))
    for k in range(total):
        r = rng.next()
        order[k], order[r % total] = order[r % total], order[k]
    out, k = [None] * total, 0
    for j in range(ny):
        for i in range(nx):
            out[order[k]] = (xs[i][j], ys[i][j])
            k += 1
    return out


def samples_2d_uniform(nx, ny):
    nx, ny = max(nx, 1), max(ny, 1)
    if nx * ny == 1:
        return [(0.0, 0.0)]
    dx = f32(1.0 / (nx - 1)) if nx >= 2 else 0.0
    dy = f32(1.0 / (ny - 1)) if ny >= 2 else 0.0
    return [(f32(f32(f32(i) * dx) - 0.5), f32(f32(f32(j) * dy) - 0.5)) for j in range(ny) for i in range(nx)]


# ---------------------------------------------------------------------------------------------------------------------------

SEEDS = [1, 2, 5, 27, 12345, 127773, 1073741824, 2147483646, 2147483647, -7, -2147483647, -2147483648]
HASHED = [0, 1, 2, -1, 27, 4096, 123456789, 2147483647, -2147483648]
TRIPLES = [(0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1), (1, 2, 3), (1919, 1079, 101), (-1, -1, -1),
           (2147483647, -2147483648, 7)]


def integer(v):
    return "std::numeric_limits<int>::min()" if v == -2147483648 else str(v)


def rows(values, per_line=8, indent="    "):
    lines = [", ".join(values[i:i + per_line]) for i in range(0, len(values), per_line)]
    return (",\n" + indent).join(lines)


def float_words(values):
    return rows([f"0x{bits32(v):08X}" for v in values])


def main():
    print("/// \\file")
    print("/// Written by SamplingRng_model.py; floats and doubles as their bits.")
    print("#pragma once\n\n#include <cstdint>\n#include <limits>\n#include <vector>\n")
    print("namespace sampling_tables {\n")

    print("struct Sequence {\n  int seed;\n  std::vector<int> values;         ///< of newValue\n"
          "  int later;                       ///< the 1000th\n  int scrambled[2];                ///< of scrambleSeed after it\n"
          "  int afterScramble[3];            ///< of newValue after that\n"
          "  std::vector<std::uint32_t> floats;   ///< of newFloatValue, from the start\n"
          "  std::vector<std::uint64_t> doubles;  ///< of newDoubleValue, from the start\n};\n")
    print("inline const std::vector<Sequence> kSequences = {")
    for seed in SEEDS:
        rng = Rng(seed)
        values = [rng.next() for _ in range(1000)]
        scrambled = [rng.scramble() for _ in range(2)]
        after = [rng.next() for _ in range(3)]
        print(f"  {{{integer(seed)},\n   {{{rows([str(v) for v in values[:40]])}}},")
        print(f"   {values[-1]}, {{{scrambled[0]}, {scrambled[1]}}}, {{{', '.join(map(str, after))}}},")
        print(f"   {{{float_words([make_float(v) for v in values[:8]])}}},")
        print(f"   {{{rows([f'0x{bits64(make_double(v)):016X}' for v in values[:8]], 4)}}}}},")
    print("};\n")

    print("struct Hash1 { int x, hash; };\ninline const std::vector<Hash1> kHashes1 = {")
    for x in HASHED:
        print(f"  {{{integer(x)}, {integer(hash1(x))}}},")
    print("};\nstruct Hash3 { int a, b, c, hash; };\ninline const std::vector<Hash3> kHashes3 = {")
    for t in TRIPLES:
        print(f"  {{{', '.join(map(integer, t))}, {integer(hash3(*t))}}},")
    print("};\nstruct Hash4 { int a, b, c, d, hash; };\ninline const std::vector<Hash4> kHashes4 = {")
    for t in TRIPLES:
        for d in (0, 1, -2147483648):
            print(f"  {{{', '.join(map(integer, t))}, {integer(d)}, {integer(hash4(*t, d))}}},")
    print("};\n")

    print("struct Set { int seed, nx, ny; std::vector<std::uint32_t> bits; int next; };  ///< next: newValue after it")
    print("inline const std::vector<Set> kSets1d = {")
    for seed, count in [(27, 1), (27, 4), (5, 7), (12345, 16), (1, 33)]:
        rng = Rng(seed)
        values = samples_1d(rng, count)
        print(f"  {{{seed}, {count}, 1,\n   {{{float_words(values)}}}, {rng.next()}}},")
    print("};\ninline const std::vector<Set> kSets2d = {")
    for seed, nx, ny in [(27, 1, 1), (27, 2, 2), (5, 4, 4), (5, 5, 1), (12345, 5, 3), (1, 8, 8), (99, 3, 2), (27, 0, -4)]:
        rng = Rng(seed)
        values = samples_2d(rng, nx, ny)
        print(f"  {{{seed}, {nx}, {ny},\n   {{{float_words([c for p in values for c in p])}}}, {rng.next()}}},")
    print("};\ninline const std::vector<Set> kSets2dUniform = {")
    for nx, ny in [(1, 1), (3, 1), (1, 3), (2, 2), (4, 3), (7, 7), (3, 10), (-2, 2)]:
        values = samples_2d_uniform(nx, ny)
        print(f"  {{27, {nx}, {ny},\n   {{{float_words([c for p in values for c in p])}}}, {Rng(27).next()}}},")
    print("};\n\n}  // namespace sampling_tables")


if __name__ == "__main__":
    main()
