// Loads .gltf/.glb (GLTFLoader) and .fbx (FBXLoader) files with three.js under Node and prints, per
// file, one JSON line: {"file", "materials": [...], "poles": [...]} or {"file", "error"}.
//
//   node tests/tools/three_read.mjs FILE...
//
// Per material: type, colour, metalness, roughness, emissive, emissiveIntensity, opacity,
// transparent, normalScale, shininess, specular and, per texture slot, {file, flipY, channel,
// colorSpace}, where file is the image the file names (a URI's base name, "data-uri" for an
// embedded data URI, "bufferView" for an image inside a GLB). Colour management is off, so colours
// are the numbers three.js keeps. Images are not decoded (Node has no DOM): a stand-in loader
// hands the loaders an empty texture that remembers its source.
// Per light ("lights"): name, the parent's name, type, colour, intensity, distance, decay and, for
// spot lights, angle and penumbra. Per camera ("cameras"): name, parent, type, fov (degrees,
// vertical), aspect, near, far, zoom.
// Per object ("objects"): name, parent's name, type, world matrix (rows) and, for a mesh, its
// material groups ({start, count, material} over the index or vertex order, or one group for the
// whole geometry when it has none), and over its corners the means of normal[i] * position[j]
// ("normalMoment") and uv[i] * position[j] ("uvMoment") in the geometry's own space.
// Per mesh ("poles"): the UV at its highest and lowest vertex (+Y up, in world space) and, for the
// colour map, the row that UV samples counted from the top of the image as a fraction of its height
// (a texture with flipY samples v = 1 at the top row, one without flipY at the bottom row).
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

// The few browser globals the loaders touch.
globalThis.self ??= globalThis;
// FBXLoader sizes a camera by the window before it reads the file's aspect.
globalThis.window ??= { innerWidth: 1920, innerHeight: 1080 };
globalThis.ProgressEvent ??= class ProgressEvent {
  constructor(type, init = {}) { Object.assign(this, { type }, init); }
};

// three is installed into tools/node_modules by scripts/setup.sh, which is not on this script's
// module search path: load it from there (the loaders then import that same copy).
const three = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../tools/node_modules/three');
const from = (relative) => import(pathToFileURL(path.join(three, relative)).href);
const THREE = await from('build/three.module.js');
const { GLTFLoader } = await from('examples/jsm/loaders/GLTFLoader.js');
const { FBXLoader } = await from('examples/jsm/loaders/FBXLoader.js');

THREE.ColorManagement.enabled = false;

function imageName(url) {
  if (url.startsWith('data:')) return 'data-uri';
  if (url.startsWith('blob:')) return 'bufferView';
  return path.basename(decodeURIComponent(url.split('?')[0]));
}

const manager = new THREE.LoadingManager();
const imageHandler = {
  load(url, onLoad) {
    const texture = new THREE.Texture();
    texture.userData.file = imageName(url);
    if (onLoad) setTimeout(() => onLoad(texture), 0);
    return texture;
  },
  setPath() { return this; },
  setCrossOrigin() { return this; },
  setRequestHeader() { return this; },
  setWithCredentials() { return this; },
};
manager.addHandler(/\.(png|jpe?g|tga|exr|webp|ktx2?)$/i, imageHandler);
manager.addHandler(/^(data:image|blob:)/i, imageHandler);
// Images without a URI of their own (inside a GLB) go to the texture loader directly.
THREE.TextureLoader.prototype.load = function load(url, onLoad) { return imageHandler.load(url, onLoad); };

const slots = ['map', 'normalMap', 'emissiveMap', 'metalnessMap', 'roughnessMap', 'aoMap', 'alphaMap',
  'specularMap', 'bumpMap', 'lightMap', 'displacementMap'];
const colour = (c) => (c ? [c.r, c.g, c.b] : null);
const number = (n) => (typeof n === 'number' ? n : null);

function describe(m) {
  const maps = {};
  for (const slot of slots) {
    const t = m[slot];
    if (!t) continue;
    maps[slot] = {
      file: t.userData.file ?? t.name ?? null, flipY: t.flipY, channel: t.channel,
      colorSpace: t.colorSpace, offset: [t.offset.x, t.offset.y], repeat: [t.repeat.x, t.repeat.y],
      rotation: t.rotation, wrapS: t.wrapS, wrapT: t.wrapT,
    };
  }
  return {
    name: m.name, type: m.type, color: colour(m.color), emissive: colour(m.emissive),
    emissiveIntensity: number(m.emissiveIntensity), metalness: number(m.metalness), roughness: number(m.roughness),
    opacity: m.opacity, transparent: m.transparent, alphaTest: m.alphaTest,
    normalScale: m.normalScale ? [m.normalScale.x, m.normalScale.y] : null,
    shininess: number(m.shininess), specular: colour(m.specular), bumpScale: number(m.bumpScale),
    aoMapIntensity: number(m.aoMapIntensity), maps,
  };
}

function poles(mesh) {
  const geometry = mesh.geometry;
  const position = geometry.attributes.position;
  const uv = geometry.attributes.uv;
  if (!position || !uv) return null;
  mesh.updateWorldMatrix(true, false);
  const p = new THREE.Vector3();
  const heights = [];
  for (let i = 0; i < position.count; ++i) heights.push(p.fromBufferAttribute(position, i).applyMatrix4(mesh.matrixWorld).y);
  const material = [].concat(mesh.material)[0];
  const map = material && material.map;
  const result = { mesh: mesh.name };
  for (const [name, target] of [['top', Math.max(...heights)], ['bottom', Math.min(...heights)]]) {
    let u = 0, v = 0, n = 0;
    heights.forEach((h, i) => {
      if (Math.abs(h - target) < 1e-5) { u += uv.getX(i); v += uv.getY(i); ++n; }
    });
    u /= n; v /= n;
    const end = { y: target, uv: [u, v] };
    if (map) {
      // The texture transform first, then the image: with flipY, v = 1 is the top row.
      const t = new THREE.Vector2(u, v);
      map.updateMatrix();
      t.applyMatrix3(map.matrix);
      const vv = t.y - Math.floor(t.y) === 0 && t.y !== 0 ? 1 : t.y - Math.floor(t.y);
      end.map = { file: map.userData.file ?? null, rowFromTop: map.flipY ? 1 - vv : vv };
    }
    result[name] = end;
  }
  return result;
}

function describeLight(o) {
  const out = {
    name: o.name, parent: o.parent ? o.parent.name : null, type: o.type, color: colour(o.color),
    intensity: number(o.intensity), distance: number(o.distance), decay: number(o.decay),
  };
  if (o.isSpotLight) Object.assign(out, { angle: o.angle, penumbra: o.penumbra });
  return out;
}

function describeCamera(o) {
  return {
    name: o.name, parent: o.parent ? o.parent.name : null, type: o.type, fov: number(o.fov),
    aspect: number(o.aspect), near: number(o.near), far: number(o.far), zoom: number(o.zoom),
  };
}

function describeObject(o) {
  o.updateWorldMatrix(true, false);
  const e = o.matrixWorld.elements;  // column-major
  const out = {
    name: o.name, parent: o.parent ? o.parent.name : null, type: o.type,
    matrixWorld: [0, 1, 2, 3].map((r) => [0, 1, 2, 3].map((c) => e[c * 4 + r])),
  };
  if (o.isMesh) {
    const list = [].concat(o.material);
    const g = o.geometry;
    const count = g.index ? g.index.count : g.attributes.position.count;
    const groups = g.groups.length ? g.groups : [{ start: 0, count, materialIndex: 0 }];
    out.groups = groups.map((x) => ({ start: x.start, count: x.count, material: list[x.materialIndex ?? 0]?.name ?? null }));
    const moment = (attribute, size) => {
      if (!attribute) return null;
      const sums = Array.from({ length: size }, () => [0, 0, 0]);
      const position = g.attributes.position;
      for (let k = 0; k < count; ++k) {
        const v = g.index ? g.index.getX(k) : k;
        for (let i = 0; i < size; ++i)
          for (let j = 0; j < 3; ++j) sums[i][j] += attribute.getComponent(v, i) * position.getComponent(v, j);
      }
      return sums.map((row) => row.map((x) => x / Math.max(count, 1)));
    };
    out.normalMoment = moment(g.attributes.normal, 3);
    out.uvMoment = moment(g.attributes.uv, 2);
  }
  return out;
}

// `rootIsNode`: the root is one of the file's nodes (FBXLoader returns a file's single root group
// itself) rather than the loader's container; "root" names the container otherwise.
function collect(root, rootIsNode = false) {
  const materials = [];
  const objects = [];
  const seen = new Set();
  const ends = [];
  const lights = [];
  const cameras = [];
  root.traverse((o) => {
    if (o !== root || rootIsNode) objects.push(describeObject(o));
    // FBXLoader hands back its single root without detaching it from its own container.
    if (o === root && rootIsNode) objects[objects.length - 1].parent = null;
    if (o.isLight) lights.push(describeLight(o));
    if (o.isCamera) cameras.push(describeCamera(o));
    if (!o.isMesh) return;
    for (const m of [].concat(o.material)) {
      if (seen.has(m)) continue;
      seen.add(m);
      materials.push(describe(m));
    }
    ends.push(poles(o));
  });
  return { materials, poles: ends, lights, cameras, objects, root: rootIsNode ? null : root.name };
}

// Node's fetch reads no file: URLs, so external buffers are inlined as data URIs before parsing.
async function readGltf(file) {
  const dir = path.dirname(file) + '/';
  const bytes = await readFile(file);
  let data = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
  if (!file.toLowerCase().endsWith('.glb')) {
    const json = JSON.parse(bytes.toString('utf8'));
    for (const buffer of json.buffers ?? []) {
      if (buffer.uri && !buffer.uri.startsWith('data:')) {
        const content = await readFile(path.join(dir, decodeURIComponent(buffer.uri)));
        buffer.uri = 'data:application/octet-stream;base64,' + content.toString('base64');
      }
    }
    data = JSON.stringify(json);
  }
  const loader = new GLTFLoader(manager);
  const gltf = await new Promise((resolve, reject) => loader.parse(data, dir, resolve, reject));
  return collect(gltf.scene);
}

async function readFbx(file) {
  const bytes = await readFile(file);
  const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
  const loader = new FBXLoader(manager);
  const root = loader.parse(buffer, path.dirname(file) + '/');
  return collect(root, root.name !== '');
}

let failed = false;
for (const file of process.argv.slice(2)) {
  try {
    const lower = file.toLowerCase();
    const read = lower.endsWith('.fbx') ? await readFbx(file) : await readGltf(file);
    console.log(JSON.stringify({ file, ...read }));
  } catch (e) {
    failed = true;
    console.log(JSON.stringify({ file, error: String((e && e.message) || e) }));
  }
}
process.exit(failed ? 1 : 0);
