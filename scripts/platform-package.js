'use strict';
// Turns prebuilds/<target>/, which holds a built libvemora_bindings.node, into
// the npm package @libvemora/<target>: package.json, README.md and LICENSE.
//   node scripts/platform-package.js <target> <dir>
const fs = require('node:fs');
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const main = require(path.join(root, 'package.json'));
const SYSTEMS = {
  'darwin-arm64': 'macOS 13 or later on Apple silicon',
  'darwin-x64': 'macOS 13 or later on Intel',
  'linux-arm64': 'Linux on 64-bit ARM with glibc 2.28 or later',
  'linux-x64': 'Linux on x64 with glibc 2.28 or later',
  'win32-x64': 'Windows on x64',
};

const [target, dir] = process.argv.slice(2);
const [os, cpu] = target.split('-');
const name = `@libvemora/${target}`;
if (!SYSTEMS[target] || !(name in main.optionalDependencies)) throw new Error(`unknown target ${target}`);
const manifest = {
  name,
  version: main.version,
  description: `The prebuilt add-on of libvemora for ${SYSTEMS[target]}`,
  license: main.license,
  os: [os],
  cpu: [cpu],
  // The Linux binaries need glibc (2.28 or later); on musl npm leaves them out.
  ...(os === 'linux' && { libc: ['glibc'] }),
  main: 'libvemora_bindings.node',
  files: ['libvemora_bindings.node'],
  // Yarn Plug'n'Play must unpack it: a native add-on cannot load from a zip.
  preferUnplugged: true,
  engines: main.engines,
  // npm publishes a scoped package as private unless told otherwise.
  publishConfig: { access: 'public' },
};
fs.writeFileSync(path.join(dir, 'package.json'), `${JSON.stringify(manifest, null, 2)}\n`);
fs.writeFileSync(path.join(dir, 'README.md'), `# ${name}\n\n${manifest.description}. ` +
  'Install `libvemora`, which depends on it, rather than this package: npm then picks the one for each machine.\n');
fs.copyFileSync(path.join(root, 'LICENSE'), path.join(dir, 'LICENSE'));
