// Reads glTF and GLB files with the three.js GLTFLoader and prints, per file, one JSON line with
// what three.js built: {"file", "objects": [{name, type, parent, world}], "materials": [...],
// "meshes": [...], "lights": [...], "cameras": [...]}. Colour management is off, so colours are
// the numbers in the file. Images are not decoded (Node has no DOM): a texture reports the file it
// names, or "embedded", with its sampler and transform as three.js set them. For each mesh,
// "topV" is the v three.js samples at the vertex highest in +Y: three.js reads glTF textures
// unflipped, so v near 0 means the top rows of the image.
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import * as THREE from 'three';
import { GLTFLoader } from 'three/addons/loaders/GLTFLoader.js';

THREE.ColorManagement.enabled = false;
// The loader reaches the browser's global scope for URL (embedded images become blob URLs).
globalThis.self ??= globalThis;

const manager = new THREE.LoadingManager();
const imageHandler = {
  load(url, onLoad) {
    const texture = new THREE.Texture();
    texture.userData.file = /^(blob|data):/.test(url) ? 'embedded' : path.basename(decodeURIComponent(url));
    if (onLoad) onLoad(texture);
    return texture;
  },
  setPath() { return this; },
  setCrossOrigin() { return this; },
  setRequestHeader() { return this; },
  setWithCredentials() { return this; },
};
manager.addHandler(/(\.(png|jpe?g)$)|(^blob:)|(^data:image)/i, imageHandler);

const slots = ['map', 'metalnessMap', 'roughnessMap', 'emissiveMap', 'normalMap', 'aoMap', 'alphaMap'];
const colour = (c) => (c ? [c.r, c.g, c.b] : null);
const wrapNames = { [THREE.RepeatWrapping]: 'REPEAT', [THREE.ClampToEdgeWrapping]: 'CLAMP_TO_EDGE', [THREE.MirroredRepeatWrapping]: 'MIRRORED_REPEAT' };
const filterNames = {
  [THREE.NearestFilter]: 'NEAREST', [THREE.LinearFilter]: 'LINEAR',
  [THREE.NearestMipmapNearestFilter]: 'NEAREST_MIPMAP_NEAREST', [THREE.LinearMipmapNearestFilter]: 'LINEAR_MIPMAP_NEAREST',
  [THREE.NearestMipmapLinearFilter]: 'NEAREST_MIPMAP_LINEAR', [THREE.LinearMipmapLinearFilter]: 'LINEAR_MIPMAP_LINEAR',
};

function describeTexture(t) {
  return {
    file: t.userData.file ?? t.name, flipY: t.flipY, channel: t.channel,
    wrapS: wrapNames[t.wrapS], wrapT: wrapNames[t.wrapT], magFilter: filterNames[t.magFilter], minFilter: filterNames[t.minFilter],
    offset: [t.offset.x, t.offset.y], repeat: [t.repeat.x, t.repeat.y], rotation: t.rotation,
  };
}

function describeMaterial(m) {
  const maps = {};
  for (const slot of slots) if (m[slot]) maps[slot] = describeTexture(m[slot]);
  return {
    name: m.name, type: m.type, color: colour(m.color), opacity: m.opacity, transparent: m.transparent,
    alphaTest: m.alphaTest, metalness: m.metalness, roughness: m.roughness, emissive: colour(m.emissive),
    emissiveIntensity: m.emissiveIntensity, normalScale: m.normalScale ? [m.normalScale.x, m.normalScale.y] : null,
    aoMapIntensity: m.aoMapIntensity, doubleSided: m.side === THREE.DoubleSide, maps,
  };
}

/// A .gltf's buffers, read from their files (Node's fetch cannot load them for the loader).
async function readBuffers(file, bytes) {
  const json = JSON.parse(new TextDecoder().decode(bytes));
  const buffers = [];
  for (const buffer of json.buffers ?? []) {
    const data = buffer.uri.startsWith('data:')
      ? Buffer.from(buffer.uri.slice(buffer.uri.indexOf(',') + 1), 'base64')
      : await readFile(path.join(path.dirname(file), decodeURIComponent(buffer.uri)));
    buffers.push(data.buffer.slice(data.byteOffset, data.byteOffset + data.byteLength));
  }
  return buffers;
}

async function read(file) {
  const bytes = await readFile(file);
  const isGlb = bytes.subarray(0, 4).toString('latin1') === 'glTF';
  const input = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
  const loader = new GLTFLoader(manager);
  // Images held in buffer views name no URI for the manager to match: the loader's own image
  // loader (which needs a DOM) is replaced too.
  loader.register((parser) => {
    parser.textureLoader = imageHandler;
    return { name: 'node_images' };
  });
  if (!isGlb) {
    const buffers = await readBuffers(file, bytes);
    loader.register((parser) => ({
      name: 'preloaded_buffers',
      loadBufferView(index) {
        const view = parser.json.bufferViews[index];
        const start = view.byteOffset ?? 0;
        return Promise.resolve(buffers[view.buffer].slice(start, start + view.byteLength));
      },
    }));
  }
  const gltf = await loader.parseAsync(input, path.dirname(file) + '/');
  const root = gltf.scene;
  root.updateMatrixWorld(true);
  const objects = [], materials = new Map(), meshes = [], lights = [], cameras = [];
  root.traverse((o) => {
    if (o === root) return;
    objects.push({ name: o.name, type: o.type, parent: o.parent === root ? null : o.parent.name, world: o.matrixWorld.toArray() });
    if (o.isMesh) {
      for (const m of [].concat(o.material)) materials.set(m.uuid, describeMaterial(m));
      const position = o.geometry.attributes.position, uv = o.geometry.attributes.uv;
      let top = 0;
      for (let i = 1; i < position.count; ++i) if (position.getY(i) > position.getY(top)) top = i;
      meshes.push({
        name: o.name, vertices: position.count, triangles: o.geometry.index ? o.geometry.index.count / 3 : position.count / 3,
        material: [].concat(o.material)[0].name, topV: uv ? uv.getY(top) : null, hasTangents: !!o.geometry.attributes.tangent,
      });
    }
    if (o.isLight) {
      lights.push({
        name: o.name, type: o.type, color: colour(o.color), intensity: o.intensity, distance: o.distance ?? null,
        angle: o.angle ?? null, penumbra: o.penumbra ?? null,
      });
    }
    if (o.isCamera) {
      cameras.push({ name: o.name, type: o.type, fov: o.fov ?? null, aspect: o.aspect ?? null, near: o.near, far: o.far,
        top: o.top ?? null, right: o.right ?? null });
    }
  });
  return { objects, materials: [...materials.values()], meshes, lights, cameras };
}

let failed = false;
for (const file of process.argv.slice(2)) {
  try {
    console.log(JSON.stringify({ file, ...(await read(file)) }));
  } catch (e) {
    failed = true;
    console.log(JSON.stringify({ file, error: String((e && e.stack) || e) }));
  }
}
process.exit(failed ? 1 : 0);
