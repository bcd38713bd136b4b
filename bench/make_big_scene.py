#!/usr/bin/env python3
"""Writes a generated OBJ scene for the scene-conversion benchmark: OBJECTS wavy grids of
CELLS x CELLS quads (two triangles each) with positions, normals and texture coordinates, one
material per object (MTL: diffuse, roughness via Ns, metalness via Pm).

    make_big_scene.py OUT.obj [--objects 50] [--cells 100]   (50 x 100 x 100 x 2 = 1,000,000 triangles)
"""
import argparse
import math
import os


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("out")
    parser.add_argument("--objects", type=int, default=50)
    parser.add_argument("--cells", type=int, default=100)
    args = parser.parse_args()
    n, cells = args.objects, args.cells
    stem = os.path.splitext(os.path.basename(args.out))[0]
    mtl = os.path.join(os.path.dirname(args.out) or ".", stem + ".mtl")
    with open(mtl, "w") as m:
        for i in range(n):
            r, g, b = (0.2 + 0.6 * ((i * 37) % 50) / 50, 0.2 + 0.6 * ((i * 11) % 50) / 50, 0.2 + 0.6 * ((i * 23) % 50) / 50)
            m.write(f"newmtl material_{i:02d}\nKd {r:.4f} {g:.4f} {b:.4f}\nNs {10 + 20 * (i % 40)}\nPm {(i % 5) / 4:.2f}\nd 1\n\n")
    side = cells + 1
    with open(args.out, "w", buffering=1 << 22) as f:
        f.write(f"mtllib {stem}.mtl\n")
        base = 0
        for i in range(n):
            ox, oz = (i % 10) * 12.0, (i // 10) * 12.0
            f.write(f"o object_{i:02d}\n")
            lines = []
            for y in range(side):
                for x in range(side):
                    u, v = x / cells, y / cells
                    h = 0.5 * math.sin(6.2832 * u * 2) * math.cos(6.2832 * v * 2)
                    lines.append(f"v {ox + 10 * u:.5f} {h:.5f} {oz + 10 * v:.5f}\n")
            for y in range(side):
                for x in range(side):
                    u, v = x / cells, y / cells
                    dx = 0.5 * 2 * 6.2832 * math.cos(6.2832 * u * 2) * math.cos(6.2832 * v * 2) / 10
                    dz = -0.5 * 2 * 6.2832 * math.sin(6.2832 * u * 2) * math.sin(6.2832 * v * 2) / 10
                    length = math.sqrt(dx * dx + 1 + dz * dz)
                    lines.append(f"vn {-dx / length:.5f} {1 / length:.5f} {-dz / length:.5f}\n")
            for y in range(side):
                for x in range(side):
                    lines.append(f"vt {x / cells:.5f} {y / cells:.5f}\n")
            f.write("".join(lines))
            f.write(f"usemtl material_{i:02d}\n")
            faces = []
            for y in range(cells):
                for x in range(cells):
                    a = base + y * side + x + 1
                    b, c, d = a + 1, a + side + 1, a + side
                    faces.append(f"f {a}/{a}/{a} {d}/{d}/{d} {c}/{c}/{c}\nf {a}/{a}/{a} {c}/{c}/{c} {b}/{b}/{b}\n")
            f.write("".join(faces))
            base += side * side


if __name__ == "__main__":
    main()
