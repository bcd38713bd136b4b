// Reads OBJ+MTL or FBX files with the three.js loaders and prints, per file, one JSON line with
// the materials three.js built: {"file", "materials": [{name, type, color, emissive, specular,
// opacity, shininess, maps: {slot: image file}}]}. Colour management is off, so colours are the
// numbers in the file. Images are not decoded: a texture reports the file it names.
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import * as THREE from 'three';
import { OBJLoader } from 'three/addons/loaders/OBJLoader.js';
import { MTLLoader } from 'three/addons/loaders/MTLLoader.js';
import { FBXLoader } from 'three/addons/loaders/FBXLoader.js';

THREE.ColorManagement.enabled = false;

// A loading manager whose image handler records the URL instead of decoding it (Node has no DOM).
const manager = new THREE.LoadingManager();
const imageHandler = {
  load(url, onLoad) {
    const texture = new THREE.Texture();
    texture.userData.file = path.basename(decodeURIComponent(url));
    if (onLoad) onLoad(texture);
    return texture;
  },
  setPath() { return this; },
  setCrossOrigin() { return this; },
  setRequestHeader() { return this; },
  setWithCredentials() { return this; },
};
manager.addHandler(/\.(png|jpe?g|tga|exr)$/i, imageHandler);

const slots = ['map', 'normalMap', 'emissiveMap', 'specularMap', 'alphaMap', 'bumpMap', 'roughnessMap', 'metalnessMap'];
const colour = (c) => (c ? [c.r, c.g, c.b] : null);
function describe(m) {
  const maps = {};
  for (const slot of slots) if (m[slot]) maps[slot] = m[slot].userData.file ?? m[slot].name;
  return {
    name: m.name, type: m.type, color: colour(m.color), emissive: colour(m.emissive),
    emissiveIntensity: m.emissiveIntensity ?? null,
    specular: colour(m.specular), opacity: m.opacity, transparent: m.transparent,
    shininess: m.shininess ?? null, maps,
  };
}

async function readObj(file) {
  const dir = path.dirname(file) + '/';
  const text = await readFile(file, 'utf8');
  const mtlName = /^mtllib\s+(.+)$/m.exec(text)?.[1]?.trim();
  const objLoader = new OBJLoader(manager);
  if (mtlName) {
    const mtlLoader = new MTLLoader(manager);
    const creator = mtlLoader.parse(await readFile(path.join(dir, mtlName), 'utf8'), dir);
    creator.preload();
    objLoader.setMaterials(creator);
  }
  const group = objLoader.parse(text);
  const materials = [];
  group.traverse((o) => {
    if (o.isMesh) for (const m of [].concat(o.material)) materials.push(describe(m));
  });
  return materials;
}

async function readFbx(file) {
  const bytes = await readFile(file);
  const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
  const loader = new FBXLoader(manager);
  const group = loader.parse(buffer, path.dirname(file) + '/');
  const materials = [];
  group.traverse((o) => {
    if (o.isMesh) for (const m of [].concat(o.material)) materials.push(describe(m));
  });
  return materials;
}

let failed = false;
for (const file of process.argv.slice(2)) {
  try {
    const materials = file.toLowerCase().endsWith('.fbx') ? await readFbx(file) : await readObj(file);
    console.log(JSON.stringify({ file, materials }));
  } catch (e) {
    failed = true;
    console.log(JSON.stringify({ file, error: String(e && e.stack || e) }));
  }
}
process.exit(failed ? 1 : 0);
