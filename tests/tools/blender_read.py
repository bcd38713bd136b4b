# Imports files into Blender and writes what Blender made of them as JSON, for the test suite's
# independent checks. Run headless:
#
#   PATH=/usr/bin:$PATH blender -b --factory-startup --python tests/tools/blender_read.py -- \
#       INPUT OUTPUT.json [INPUT OUTPUT.json ...]
#
# Several pairs share one Blender start (the start is most of the time); the scene is reset to an
# empty one before each import. INPUT is .gltf, .glb, .fbx (binary) or .obj. The JSON holds:
#   materials: per material its blend mode and, per Principled BSDF input, the constant value and,
#              when the input is linked, what feeds it: the image (file, path, colour space), the
#              image output (Color or Alpha), the channel picked by a separate node, the constant
#              factors of the multiply nodes on the way, and the strength of a Normal Map node;
#   objects:   name, type, parent, world matrix (rows) and, for a mesh, the world-space bounding
#              box of its vertices ("bounds": [[min x, y, z], [max x, y, z]]);
#   meshes:    per mesh the material of every polygon, whether it has custom (imported) normals, and
#              over its corners the means of normal[i] * position[j] and uv[i] * position[j] (mesh
#              space): which normal and which texture coordinate sit at which vertex;
#   lights:    per light object: its data's name, type, colour, energy (watts; W/m^2 for a sun),
#              spot size and blend, and the object's world matrix;
#   cameras:   per camera object: its data's name, type, lens (mm), sensor width and height (mm),
#              sensor fit, the horizontal and vertical angles, clip start and end, ortho scale;
#   poles:     per mesh the UV at its highest and its lowest vertex (world Z, after the importer's
#              axis conversion) and, for every image the material links, which row (counted from
#              the top of the image, as a fraction of its height) that UV samples and the pixel there.
# A file that fails to import gets {"error": "..."} instead. The exit code is 0 unless the
# arguments are wrong.
import json
import math
import os
import sys
import traceback
import warnings

import numpy

# Debian's numpy no longer has the alias the glTF add-on of this Blender version uses.
with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    if not hasattr(numpy, "bool"):
        numpy.bool = bool

import bpy  # noqa: E402


def arguments():
    argv = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    if not argv or len(argv) % 2 != 0:
        sys.stderr.write("blender_read.py: expected INPUT OUTPUT.json pairs after --\n")
        sys.exit(2)
    return [(argv[i], argv[i + 1]) for i in range(0, len(argv), 2)]


def plain(value):
    """A socket value as JSON: numbers stay numbers, vectors and colours become lists."""
    if isinstance(value, (int, float, bool, str)) or value is None:
        return value
    try:
        return [float(v) for v in value]
    except TypeError:
        return str(value)


def matrix_rows(m):
    return [[float(m[r][c]) for c in range(4)] for r in range(4)]


CHANNELS = {"R": "r", "G": "g", "B": "b", "Red": "r", "Green": "g", "Blue": "b", "X": "r", "Y": "g", "Z": "b"}
SEPARATES = {"ShaderNodeSeparateRGB", "ShaderNodeSeparateColor", "ShaderNodeSeparateXYZ"}


def enabled_inputs(node):
    return [s for s in node.inputs if getattr(s, "enabled", True)]


def trace(socket, summary, depth=0):
    """Follows the link into `socket` upstream and describes the nodes on the way. `summary`
    collects the image, channel, factors and normal strength found."""
    if depth > 32 or not socket.is_linked:
        return None
    link = socket.links[0]
    node, output = link.from_node, link.from_socket
    step = {"node": node.bl_idname, "output": output.name}
    if node.bl_idname == "NodeReroute":
        step["from"] = trace(node.inputs[0], summary, depth + 1)
    elif node.bl_idname == "ShaderNodeTexImage":
        image = node.image
        step["extension"] = node.extension
        step["interpolation"] = node.interpolation
        if image is not None:
            path = bpy.path.abspath(image.filepath) if image.filepath else ""
            step["image"] = os.path.basename(path) if path else image.name
            step["path"] = path
            step["colorspace"] = image.colorspace_settings.name
            step["packed"] = image.packed_file is not None
            step["size"] = [int(image.size[0]), int(image.size[1])]
            summary.setdefault("image", step["image"])
            summary.setdefault("path", path)
            summary.setdefault("packed", step["packed"])
            summary.setdefault("colorspace", step["colorspace"])
            summary.setdefault("image_output", output.name)
            summary.setdefault("_image", image)
        if output.name == "Alpha":
            summary.setdefault("channel", "a")
        vector = node.inputs.get("Vector")
        if vector is not None and vector.is_linked:
            step["vector"] = trace(vector, {}, depth + 1)
    elif node.bl_idname in SEPARATES:
        summary.setdefault("channel", CHANNELS.get(output.name, output.name))
        step["from"] = trace(enabled_inputs(node)[0], summary, depth + 1)
    elif node.bl_idname == "ShaderNodeNormalMap":
        strength = node.inputs["Strength"]
        summary.setdefault("normal_strength", float(strength.default_value))
        step["strength"] = float(strength.default_value)
        step["space"] = node.space
        step["from"] = trace(node.inputs["Color"], summary, depth + 1)
    elif node.bl_idname in ("ShaderNodeMixRGB", "ShaderNodeMix", "ShaderNodeMath", "ShaderNodeVectorMath"):
        step["operation"] = getattr(node, "blend_type", None) if node.bl_idname != "ShaderNodeMath" else node.operation
        if node.bl_idname == "ShaderNodeVectorMath":
            step["operation"] = node.operation
        step["inputs"] = []
        for s in enabled_inputs(node):
            if s.is_linked:
                step["inputs"].append({"name": s.name, "from": trace(s, summary, depth + 1)})
            else:
                step["inputs"].append({"name": s.name, "value": plain(s.default_value)})
        if step["operation"] == "MULTIPLY":
            for entry in step["inputs"]:
                if "value" in entry and entry["name"] not in ("Fac", "Factor"):
                    summary.setdefault("factors", []).append(entry["value"])
    elif node.bl_idname == "ShaderNodeMapping":
        step["vector_type"] = node.vector_type
        step["inputs"] = {s.name: plain(s.default_value) for s in enabled_inputs(node) if not s.is_linked}
        step["from"] = trace(node.inputs["Vector"], {}, depth + 1)
    elif node.bl_idname == "ShaderNodeUVMap":
        step["uv_map"] = node.uv_map
    else:
        step["inputs"] = []
        for s in enabled_inputs(node):
            if s.is_linked:
                step["inputs"].append({"name": s.name, "from": trace(s, summary, depth + 1)})
    return step


def describe_material(material):
    out = {"blend_method": material.blend_method, "use_nodes": material.use_nodes, "inputs": {},
           "diffuse_color": plain(material.diffuse_color)}
    images = {}
    if not material.use_nodes or material.node_tree is None:
        return out, images
    principled = [n for n in material.node_tree.nodes if n.bl_idname == "ShaderNodeBsdfPrincipled"]
    if not principled:
        out["nodes"] = sorted(n.bl_idname for n in material.node_tree.nodes)
        return out, images
    bsdf = principled[0]
    for socket in bsdf.inputs:
        if not getattr(socket, "enabled", True):
            continue
        entry = {}
        if hasattr(socket, "default_value"):
            entry["value"] = plain(socket.default_value)
        if socket.is_linked:
            summary = {}
            entry["link"] = trace(socket, summary)
            image = summary.pop("_image", None)
            entry.update(summary)
            if image is not None:
                images[socket.name] = image
        out["inputs"][socket.name] = entry
    return out, images


def pixel_at(image, u, v):
    """The pixel Blender samples at (u, v) (closest texel, repeat) and its row counted from the top."""
    width, height = int(image.size[0]), int(image.size[1])
    if width == 0 or height == 0:
        return None
    channels = image.channels
    pixels = numpy.empty(width * height * channels, dtype=numpy.float32)
    image.pixels.foreach_get(pixels)
    x = min(int(math.floor((u % 1.0) * width)), width - 1) if u == u else 0
    v_wrapped = v % 1.0 if not math.isclose(v, 1.0, abs_tol=1e-6) else 1.0 - 0.5 / height
    y = min(int(math.floor(v_wrapped * height)), height - 1)  # rows are stored bottom to top
    start = (y * width + x) * channels
    return {"row_from_top": (height - 1 - y) / height, "pixel": [float(p) for p in pixels[start:start + channels]]}


def poles(obj, images):
    mesh = obj.data
    if not mesh.vertices or not mesh.uv_layers:
        return None
    world = obj.matrix_world
    heights = [(world @ v.co).z for v in mesh.vertices]
    uv = mesh.uv_layers.active.data
    result = {}
    for name, target in (("top", max(heights)), ("bottom", min(heights))):
        vertices = {i for i, z in enumerate(heights) if abs(z - target) < 1e-5}
        uvs = [uv[loop.index].uv for loop in mesh.loops if loop.vertex_index in vertices]
        if not uvs:
            continue
        u = sum(c[0] for c in uvs) / len(uvs)
        v = sum(c[1] for c in uvs) / len(uvs)
        end = {"z": float(target), "uv": [float(u), float(v)],
               "v_range": [float(min(c[1] for c in uvs)), float(max(c[1] for c in uvs))], "samples": {}}
        for input_name, image in images.items():
            sample = pixel_at(image, u, v)
            if sample is not None:
                file = os.path.basename(bpy.path.abspath(image.filepath)) if image.filepath else image.name
                end["samples"][input_name] = dict(sample, image=file)
        result[name] = end
    return result


def import_file(path):
    suffix = os.path.splitext(path)[1].lower()
    if suffix in (".gltf", ".glb"):
        return bpy.ops.import_scene.gltf(filepath=path)
    if suffix == ".fbx":
        return bpy.ops.import_scene.fbx(filepath=path)
    if suffix == ".obj":
        return bpy.ops.wm.obj_import(filepath=path)
    raise ValueError(path + ": not a format this reader imports (expected .gltf, .glb, .fbx or .obj)")


def read(path):
    bpy.ops.wm.read_factory_settings(use_empty=True)
    result = import_file(path)
    if "FINISHED" not in result:
        raise RuntimeError(path + ": import ended with " + str(result))
    report = {"file": path, "blender": bpy.app.version_string, "materials": {}, "objects": [], "meshes": {},
              "poles": {}, "lights": {}, "cameras": {}}
    material_images = {}
    for material in bpy.data.materials:
        report["materials"][material.name], material_images[material.name] = describe_material(material)
    for obj in bpy.data.objects:
        report["objects"].append({"name": obj.name, "type": obj.type, "data": obj.data.name if obj.data else None,
                                  "parent": obj.parent.name if obj.parent else None,
                                  "matrix_world": matrix_rows(obj.matrix_world)})
        if obj.type == "MESH" and obj.data.vertices:
            corners = [obj.matrix_world @ v.co for v in obj.data.vertices]
            report["objects"][-1]["bounds"] = [[float(min(c[i] for c in corners)) for i in range(3)],
                                               [float(max(c[i] for c in corners)) for i in range(3)]]
        if obj.type == "LIGHT":
            light = obj.data
            entry = {"data": light.name, "type": light.type, "color": plain(light.color),
                     "energy": float(light.energy), "matrix_world": matrix_rows(obj.matrix_world)}
            if light.type == "SPOT":
                entry["spot_size"] = float(light.spot_size)
                entry["spot_blend"] = float(light.spot_blend)
            report["lights"][obj.name] = entry
        if obj.type == "CAMERA":
            camera = obj.data
            report["cameras"][obj.name] = {
                "data": camera.name, "type": camera.type, "lens": float(camera.lens),
                "sensor_width": float(camera.sensor_width), "sensor_height": float(camera.sensor_height),
                "sensor_fit": camera.sensor_fit, "angle_x": float(camera.angle_x), "angle_y": float(camera.angle_y),
                "clip_start": float(camera.clip_start), "clip_end": float(camera.clip_end),
                "ortho_scale": float(camera.ortho_scale), "matrix_world": matrix_rows(obj.matrix_world)}
        if obj.type != "MESH":
            continue
        mesh = obj.data
        names = [m.name if m else None for m in mesh.materials]
        mesh.calc_normals_split()
        loops = max(len(mesh.loops), 1)
        uv = mesh.uv_layers.active.data if mesh.uv_layers else []
        co = [mesh.vertices[loop.vertex_index].co for loop in mesh.loops]
        report["meshes"][mesh.name] = {
            "polygons": len(mesh.polygons),
            "polygon_materials": [names[p.material_index] if p.material_index < len(names) else None
                                  for p in mesh.polygons],
            "uv_layers": [layer.name for layer in mesh.uv_layers],
            "custom_normals": bool(mesh.has_custom_normals),
            "normal_moment": [[float(sum(loop.normal[i] * co[k][j] for k, loop in enumerate(mesh.loops)) / loops)
                               for j in range(3)] for i in range(3)],
            "uv_moment": [[float(sum(c.uv[i] * co[k][j] for k, c in enumerate(uv)) / loops) for j in range(3)]
                          for i in range(2)] if uv else None,
        }
        images = {}
        for name in names:
            if name in material_images:
                for input_name, image in material_images[name].items():
                    images.setdefault(input_name, image)
        report["poles"][obj.name] = poles(obj, images)
    return report


def main():
    for source, target in arguments():
        try:
            report = read(os.path.abspath(source))
        except Exception as e:  # every failure becomes the file's report
            report = {"file": source, "error": "%s: %s" % (type(e).__name__, e), "traceback": traceback.format_exc()}
        with open(target, "w") as out:
            json.dump(report, out, indent=1, default=str)


main()
