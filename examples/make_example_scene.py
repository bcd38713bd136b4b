#!/usr/bin/env python3
"""Writes examples/scenes/showroom.vex: a small scene for trying whole-scene conversion.

Two meshes in a hierarchy (a table whose top is oak and whose sides are steel, and a vase standing
on it, glazed), three materials (the oak one textured), a point light with a colour temperature,
a spot light, an area light and a perspective camera. The document unit is the centimetre.

    python3 examples/make_example_scene.py [OUT.vex]
"""
import json
import math
import os
import sys


def box(sx, sy, sz):
    """A box centred on the origin in x and z, standing on y = 0: points, quads, and per corner a
    normal and a texture coordinate; the top and bottom are material 0, the sides material 1."""
    x, z = sx / 2, sz / 2
    points = [[-x, 0, -z], [x, 0, -z], [x, 0, z], [-x, 0, z], [-x, sy, -z], [x, sy, -z], [x, sy, z], [-x, sy, z]]
    faces = [  # corners, normal, material
        ([4, 7, 6, 5], [0, 1, 0], 0), ([0, 1, 2, 3], [0, -1, 0], 0),
        ([3, 2, 6, 7], [0, 0, 1], 1), ([1, 0, 4, 5], [0, 0, -1], 1),
        ([2, 1, 5, 6], [1, 0, 0], 1), ([0, 3, 7, 4], [-1, 0, 0], 1)]
    square = [[0, 0], [1, 0], [1, 1], [0, 1]]
    polygons, normals, uvs, materials = [], [], [], []
    for corners, normal, material in faces:
        polygons.append(corners)
        normals += [normal] * 4
        uvs += square
        materials.append(material)
    return points, polygons, normals, uvs, materials


def vase(radius, height, sides=12):
    """An open prism of `sides` quads with smooth normals and a cap at the bottom."""
    points, polygons, normals, uvs = [], [], [], []
    for i in range(sides):
        a = 2 * math.pi * i / sides
        points += [[round(radius * math.cos(a), 6), 0, round(radius * math.sin(a), 6)],
                   [round(radius * math.cos(a), 6), height, round(radius * math.sin(a), 6)]]
    for i in range(sides):
        j = (i + 1) % sides
        polygons.append([2 * i, 2 * i + 1, 2 * j + 1, 2 * j])
        for k, u, v in ((i, i / sides, 0), (i, i / sides, 1), (j, (i + 1) / sides, 1), (j, (i + 1) / sides, 0)):
            a = 2 * math.pi * k / sides
            normals.append([round(math.cos(a), 6), 0, round(math.sin(a), 6)])
            uvs.append([round(u, 6), v])
    bottom = [2 * i for i in reversed(range(sides))]
    polygons.append(bottom)
    normals += [[0, -1, 0]] * sides
    uvs += [[0.5, 0.5]] * sides
    return points, polygons, normals, uvs


def polygon_object(name, points, polygons, attributes, parameters, children=()):
    params = {"940": {"polygonmesh": {"points": points, "polygons": polygons}},
              "943": {"polygonattributes": attributes}}
    params.update(parameters)
    out = {"type": 1100, "name": name, "parameters": params}
    if children:
        out["children"] = list(children)
    return out


def light(name, kind, position, rotation, extra):
    params = {"903": {"vector": position}, "904": {"vector": rotation}, "10000": {"int32": kind}}
    params.update(extra)
    return {"type": 1036751, "name": name, "parameters": params}


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "scenes", "showroom.vex")
    top_points, top_polygons, top_normals, top_uvs, top_materials = box(160, 80, 90)
    vase_points, vase_polygons, vase_normals, vase_uvs = vase(9, 35)
    vase_object = polygon_object(
        "Vase", vase_points, vase_polygons,
        {"normals": vase_normals, "uvs": vase_uvs, "materials": [0] * len(vase_polygons), "materialNames": ["Glaze"]},
        {"903": {"vector": [40, 80, -10]}, "904": {"vector": [0, 0.3, 0]}})
    table = polygon_object(
        "Table", top_points, top_polygons,
        {"normals": top_normals, "uvs": top_uvs, "materials": top_materials, "materialNames": ["Oak", "Steel"]},
        {"903": {"vector": [0, 0, 0]}, "904": {"vector": [0, 0.2617993877991494, 0]}}, [vase_object])
    scene = {
        "format": "vexon-scene",
        "version": 1,
        "name": "showroom",
        "settings": {"2117": {"unitscale": "cm"}},
        "renderData": [{"name": "Corvane", "active": True, "postEffects": [{
            "type": 1036219,
            "parameters": {"1801": {"float64": 100.0}, "1802": {"float64": 10000.0}, "25004": True,
                           "25002": {"unitscale": "m"}}}]}],
        "materials": [
            {"name": "Oak", "type": 5703, "parameters": {"2100": {"color": [0.55, 0.38, 0.22]}},
             "links": {"8000": {"shader": 5833, "parameters": {"1010": "../materials/wood.png"}}}},
            {"name": "Steel", "type": 5703, "parameters": {"2100": {"color": [0.56, 0.57, 0.58]}}},
            {"name": "Glaze", "type": 5703, "parameters": {"2100": {"color": [0.1, 0.3, 0.6]}}},
        ],
        "objects": [
            {"type": 1000, "name": "Showroom", "parameters": {}, "children": [
                table,
                # A warm bulb: 800 lumens at 2700 K.
                light("Bulb", 1, [-60, 200, 40], [0, 0, 0],
                      {"11004": {"float64": 800.0}, "11005": {"int32": 1}, "11002": {"int32": 1},
                       "11003": {"float64": 2700.0}}),
                # A spot aimed down at the table: 1200 lumens, 30 degrees to the edge, 10 of falloff.
                light("Spot", 2, [80, 250, 60], [-1.5707963267948966, 0, 0],
                      {"11004": {"float64": 1200.0}, "11005": {"int32": 1}, "11000": {"color": [1.0, 0.95, 0.9]},
                       "11019": {"float64": 30.0}, "11020": {"float64": 10.0}}),
                # A softbox beside the table: 100 x 50 cm at 2000 nits.
                light("Softbox", 3, [200, 150, 0], [0, 1.5707963267948966, 0],
                      {"11004": {"float64": 2000.0}, "11005": {"int32": 2}, "11010": {"int32": 0},
                       "11016": {"float64": 100.0}, "11017": {"float64": 50.0}}),
                {"type": 1200, "name": "Camera", "parameters": {
                    "903": {"vector": [0, 140, 380]}, "904": {"vector": [-0.25, 0, 0]},
                    "960": {"int32": 0}, "961": {"float64": 0.6981317007977318}, "962": {"float64": 1.5},
                    "964": {"float64": 1.0}, "965": {"float64": 5000.0}}},
            ]},
        ],
    }
    os.makedirs(os.path.dirname(os.path.abspath(out)), exist_ok=True)
    with open(out, "w") as f:
        json.dump(scene, f, indent=1)
        f.write("\n")


if __name__ == "__main__":
    main()
