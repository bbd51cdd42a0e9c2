'use strict';
// The package as users get it: packed with its prebuilt add-ons, installed
// from the npm cache into a new project, every method called through require
// and import; then, without the prebuilds, built from source by npm rebuild.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { root } = require('../harness/addon');

// npm test's npm_config_* and npm_lifecycle_* must not reach the npm run here.
const env = { ...Object.fromEntries(Object.entries(process.env).filter(([k]) => !/^npm_/i.test(k))), CMAKE_BUILD_PARALLEL_LEVEL: '2' };
const sh = (command, args, cwd) => {
  const child = spawnSync(command, args, { cwd, env, encoding: 'utf8', timeout: 180000 });
  assert.equal(child.status, 0, `${command} ${args.join(' ')}\n${child.stdout}\n${child.stderr}`);
  return child.stdout;
};

const SHIPPED = [/^(package\.json|README\.md|LICENSE|CMakeLists\.txt|index\.(js|mjs|d\.ts|d\.mts)|bin\/libvemora\.js)$/,
  /^electron\/libvemora-addon\/(?!platform\/fake\/).+\.(cc|h|mm)$/,
  /^prebuilds\/(linux-x64\/libvemora_bindings\.napi\.glibc|(darwin-arm64|win32-x64)\/libvemora_bindings\.napi)\.node$/];
const NEEDED = ['LICENSE', 'README.md', 'CMakeLists.txt', 'index.d.mts', 'electron/libvemora-addon/libvemora_bindings.cc',
  'prebuilds/linux-x64/libvemora_bindings.napi.glibc.node'];
const methods = JSON.stringify(path.join(root, 'test', 'harness', 'methods.js'));
// Each prints the methods it called, and the add-on it loaded or whether import and require share the class.
const CONSUMERS = {
  'cjs.js': `const { VemoraCore } = require('libvemora');
const binding = require('node-gyp-build').path(require('node:path').dirname(require.resolve('libvemora')));
console.log(JSON.stringify([require(${methods}).callEverything(VemoraCore), binding]));`,
  'esm.mjs': `import { createRequire } from 'node:module'; import { VemoraCore } from 'libvemora'; import { callEverything } from ${methods};
console.log(JSON.stringify([callEverything(VemoraCore), VemoraCore === createRequire(import.meta.url)('libvemora').VemoraCore]));`,
};

test('packed, installed offline, loaded from the prebuild, rebuilt from source', {
  skip: !(process.platform === 'linux' && process.arch === 'x64') && 'prebuilds are made on linux-x64',
}, (t) => {
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-package-'));
  t.after(() => fs.rmSync(work, { recursive: true, force: true }));
  sh('npm', ['pack', '--pack-destination', work], root);
  const tarball = path.join(work, fs.readdirSync(work).find((f) => f.endsWith('.tgz')));
  const entries = sh('tar', ['-tzf', tarball], root).trim().split('\n').map((e) => e.replace(/^package\//, ''));
  assert.deepEqual([entries.filter((e) => !SHIPPED.some((re) => re.test(e))), NEEDED.filter((e) => !entries.includes(e))], [[], []],
    'shipped what it should not, or lacks what it needs');

  const project = path.join(work, 'project');
  const installed = path.join(project, 'node_modules', 'libvemora');
  const node = (script) => JSON.parse(sh(process.execPath, [script], project));
  fs.mkdirSync(project);
  fs.writeFileSync(path.join(project, 'package.json'), '{ "name": "consumer", "version": "1.0.0", "private": true }\n');
  for (const [file, text] of Object.entries(CONSUMERS)) fs.writeFileSync(path.join(project, file), text);
  sh('npm', ['install', '--prefer-offline', '--no-audit', '--no-fund', tarball], project);
  const [called, prebuild] = node('cjs.js');
  assert.equal(prebuild, path.join(installed, 'prebuilds', 'linux-x64', 'libvemora_bindings.napi.glibc.node'));
  assert.equal(fs.existsSync(path.join(installed, 'build')), false, 'built although the prebuild loads');
  assert.deepEqual(node('esm.mjs'), [called, true]);
  assert.equal(JSON.parse(sh(path.join(project, 'node_modules', '.bin', 'libvemora'), ['--json'], project)).physicalRAM,
    require(root).VemoraCore.getMachinePhysicalRAM());

  const darwin = path.join(installed, 'prebuilds', 'darwin-arm64', 'libvemora_bindings.napi.node');
  if (fs.existsSync(darwin)) {
    // Mach-O 64-bit (0xfeedfacf), CPU type arm64 (0x0100000c), a bundle (filetype 8).
    const header = fs.readFileSync(darwin);
    assert.deepEqual([0, 4, 12].map((at) => header.readUInt32LE(at)), [0xfeedfacf, 0x0100000c, 8]);
  } else t.diagnostic('no darwin-arm64 prebuild in this package (no macOS cross-build here)');
  const win32 = path.join(installed, 'prebuilds', 'win32-x64', 'libvemora_bindings.napi.node');
  if (fs.existsSync(win32)) {
    // "MZ", then at e_lfanew "PE\0\0", machine AMD64 (0x8664), and the DLL flag (0x2000).
    const image = fs.readFileSync(win32);
    const pe = image.readUInt32LE(0x3c);
    assert.deepEqual([image.readUInt16LE(0), image.readUInt32LE(pe), image.readUInt16LE(pe + 4), image.readUInt16LE(pe + 22) & 0x2000],
      [0x5a4d, 0x4550, 0x8664, 0x2000]);
  } else t.diagnostic('no win32-x64 prebuild in this package (no MinGW-w64 here)');

  fs.rmSync(path.join(installed, 'prebuilds'), { recursive: true });
  sh('npm', ['rebuild', 'libvemora', '--prefer-offline', '--foreground-scripts'], project);
  assert.deepEqual(node('cjs.js'), [called, path.join(installed, 'build', 'Release', 'libvemora_bindings.node')]);
});
