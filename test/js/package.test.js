'use strict';
// The package as users get it: `npm pack` (which places the prebuilt add-ons),
// then `npm install <tarball>` into a fresh project from the npm cache. The
// prebuilt binary must load without compiling anything; without it, the
// install script must build from source.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { root } = require('../harness/addon');

const linuxX64 = process.platform === 'linux' && process.arch === 'x64';

// The outer npm's settings (npm test sets npm_config_* and npm_lifecycle_*)
// must not leak into the npm commands run here. Builds share two cores.
const env = {
  ...Object.fromEntries(Object.entries(process.env).filter(([key]) => !/^npm_/i.test(key))),
  CMAKE_BUILD_PARALLEL_LEVEL: '2',
};

function sh(command, args, cwd) {
  const child = spawnSync(command, args, { cwd, env, encoding: 'utf8', timeout: 180000 });
  assert.equal(child.status, 0, `${command} ${args.join(' ')}\n${child.stdout}\n${child.stderr}`);
  return child.stdout;
}

function tarEntries(tarball) {
  return sh('tar', ['-tzf', tarball], root).trim().split('\n').map((entry) => entry.replace(/^package\//, ''));
}

// What users need and nothing else: the JS entries, their types, the CLI, the
// sources and CMakeLists.txt for a source build, the prebuilds, the docs.
const SHIPPED = [
  /^(package\.json|README\.md|LICENSE|CMakeLists\.txt)$/,
  /^index\.(js|mjs|d\.ts|d\.mts)$/,
  /^bin\/libvemora\.js$/,
  /^electron\/libvemora-addon\/(?!platform\/fake\/).+\.(cc|h|mm)$/,
  /^prebuilds\/(linux-x64|darwin-arm64)\/libvemora_bindings\.napi(\.glibc)?\.node$/,
];

// Run inside the installed project: both module systems, every method.
const CONSUMER_CJS = `
const { VemoraCore } = require('libvemora');
const made = require(${JSON.stringify(path.join(root, 'test', 'harness', 'call-everything.js'))})(VemoraCore);
const binding = require('node-gyp-build').path(require('node:path').dirname(require.resolve('libvemora')));
console.log(JSON.stringify({ made, binding }));
`;
const CONSUMER_ESM = `
import { createRequire } from 'node:module';
import { VemoraCore } from 'libvemora';
const same = VemoraCore === createRequire(import.meta.url)('libvemora').VemoraCore;
console.log(JSON.stringify({ same, physical: VemoraCore.getMachinePhysicalRAM() }));
`;

test('packed, installed offline, loaded from the prebuild, rebuilt from source', { skip: !linuxX64 && 'prebuilds are made on linux-x64' }, (t) => {
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-package-'));
  t.after(() => fs.rmSync(work, { recursive: true, force: true }));

  sh('npm', ['pack', '--pack-destination', work], root);
  const tarball = path.join(work, fs.readdirSync(work).find((f) => f.endsWith('.tgz')));
  const entries = tarEntries(tarball);
  for (const entry of entries) assert.ok(SHIPPED.some((re) => re.test(entry)), `should not ship ${entry}`);
  for (const needed of ['LICENSE', 'README.md', 'CMakeLists.txt', 'index.d.mts', 'electron/libvemora-addon/libvemora_bindings.cc',
    'prebuilds/linux-x64/libvemora_bindings.napi.glibc.node']) {
    assert.ok(entries.includes(needed), `missing ${needed}`);
  }

  const project = path.join(work, 'project');
  fs.mkdirSync(project);
  fs.writeFileSync(path.join(project, 'package.json'), '{ "name": "consumer", "version": "1.0.0", "private": true }\n');
  fs.writeFileSync(path.join(project, 'cjs.js'), CONSUMER_CJS);
  fs.writeFileSync(path.join(project, 'esm.mjs'), CONSUMER_ESM);
  sh('npm', ['install', '--prefer-offline', '--no-audit', '--no-fund', tarball], project);
  const installed = path.join(project, 'node_modules', 'libvemora');
  assert.equal(fs.existsSync(path.join(installed, 'build')), false, 'the prebuild should have been used, not a build');

  const fromPrebuild = JSON.parse(sh(process.execPath, ['cjs.js'], project));
  assert.equal(fromPrebuild.binding, path.join(installed, 'prebuilds', 'linux-x64', 'libvemora_bindings.napi.glibc.node'));
  assert.ok(fromPrebuild.made >= 8, `only ${fromPrebuild.made} methods called`);
  const esm = JSON.parse(sh(process.execPath, ['esm.mjs'], project));
  assert.equal(esm.same, true, 'import and require share one class');
  assert.ok(esm.physical > 0);
  assert.equal(JSON.parse(sh(path.join(project, 'node_modules', '.bin', 'libvemora'), ['--json'], project)).physicalRAM,
    esm.physical);

  const darwin = path.join(installed, 'prebuilds', 'darwin-arm64', 'libvemora_bindings.napi.node');
  if (fs.existsSync(darwin)) {
    // Mach-O 64-bit (0xfeedfacf), CPU type arm64 (0x0100000c), a bundle (filetype 8).
    const header = fs.readFileSync(darwin).subarray(0, 16);
    assert.deepEqual([header.readUInt32LE(0), header.readUInt32LE(4), header.readUInt32LE(12)],
      [0xfeedfacf, 0x0100000c, 8]);
  } else {
    t.diagnostic('no darwin-arm64 prebuild in this package (no macOS cross-build here)');
  }

  // No prebuild for this machine: the install script builds with cmake-js.
  fs.rmSync(path.join(installed, 'prebuilds'), { recursive: true });
  sh('npm', ['rebuild', 'libvemora', '--prefer-offline', '--foreground-scripts'], project);
  const fromSource = JSON.parse(sh(process.execPath, ['cjs.js'], project));
  assert.equal(fromSource.binding, path.join(installed, 'build', 'Release', 'libvemora_bindings.node'));
  assert.equal(fromSource.made, fromPrebuild.made);
});
