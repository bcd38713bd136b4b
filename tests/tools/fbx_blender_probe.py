# Imports one FBX file into an empty Blender scene and prints what Blender made of it as one JSON
# line prefixed with "PROBE ": per material the Principled BSDF inputs (values, and for a linked
# input the image it reads and the Normal Map strength between), per object its name, parent and
# world matrix (rows), per mesh the number of polygons of each material and, for small meshes, the
# material of each polygon.
# Run: blender -b --factory-startup --python fbx_blender_probe.py -- FILE.fbx
import json
import sys

import bpy

path = sys.argv[sys.argv.index("--") + 1]
bpy.ops.wm.read_factory_settings(use_empty=True)
bpy.ops.import_scene.fbx(filepath=path)

INPUTS = ["Base Color", "Metallic", "Roughness", "Alpha", "Emission", "Emission Strength", "Specular"]


def value(socket):
    v = socket.default_value
    try:
        return [float(x) for x in v]
    except TypeError:
        return float(v)


def upstream(socket):
    """The image behind a linked input, and the Normal Map node's strength when one is between."""
    if not socket.is_linked:
        return None
    node = socket.links[0].from_node
    out = {}
    if node.type == "NORMAL_MAP":
        out["normal_strength"] = float(node.inputs["Strength"].default_value)
        if node.inputs["Color"].is_linked:
            node = node.inputs["Color"].links[0].from_node
    if node.type == "TEX_IMAGE" and node.image is not None:
        out["image"] = bpy.path.basename(node.image.filepath)
        out["colorspace"] = node.image.colorspace_settings.name
        out["size"] = list(node.image.size)
    out["node"] = node.type
    return out


materials = {}
for material in bpy.data.materials:
    if not material.use_nodes:
        continue
    bsdf = next((n for n in material.node_tree.nodes if n.type == "BSDF_PRINCIPLED"), None)
    if bsdf is None:
        continue
    entry = {"inputs": {}, "links": {}}
    for name in INPUTS + ["Normal"]:
        socket = bsdf.inputs.get(name)
        if socket is None:
            continue
        if name != "Normal":
            entry["inputs"][name] = value(socket)
        link = upstream(socket)
        if link is not None:
            entry["links"][name] = link
    materials[material.name] = entry

objects = {}
for obj in bpy.data.objects:
    item = {
        "type": obj.type,
        "parent": obj.parent.name if obj.parent else None,
        "world": [list(row) for row in obj.matrix_world],
    }
    if obj.type == "MESH":
        mesh = obj.data
        slots = [s.material.name if s.material else None for s in obj.material_slots]
        per_polygon = [slots[p.material_index] if p.material_index < len(slots) else None for p in mesh.polygons]
        counts = {}
        for name in per_polygon:
            counts[str(name)] = counts.get(str(name), 0) + 1
        item["material_polygons"] = counts
        if len(per_polygon) <= 64:
            item["polygon_materials"] = per_polygon
        item["polygons"] = len(mesh.polygons)
        item["vertices"] = len(mesh.vertices)
    objects[obj.name] = item

print("PROBE " + json.dumps({"materials": materials, "objects": objects}))
sys.stdout.flush()
