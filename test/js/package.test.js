'use strict';
// The packages of scripts/pack.sh (or VEMORA_PACKAGES) as users get them:
// what each holds (each Linux binary loads on glibc 2.28), installed with no
// compiler on the PATH, every method called through require and import from
// the prebuilt binary; then, without it, built from source as the loader's
// message says.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { root } = require('../harness/addon');

// npm test's npm_config_* and npm_lifecycle_* must not reach the npm runs here.
const env = { ...Object.fromEntries(Object.entries(process.env).filter(([k]) => !/^npm_/i.test(k))), CMAKE_BUILD_PARALLEL_LEVEL: '2' };
const run = (command, args, cwd, options = {}) => spawnSync(command, args, { cwd, env, encoding: 'utf8', timeout: 300000, ...options });
const sh = (command, args, cwd, options) => {
  const child = run(command, args, cwd, options);
  assert.equal(child.status, 0, `${command} ${args.join(' ')}\n${child.stdout}\n${child.stderr}`);
  return child.stdout;
};

const { version, optionalDependencies } = require('../../package.json');
const target = `${process.platform}-${process.arch}`;
const MAIN = [/^(package\.json|README\.md|LICENSE|CMakeLists\.txt|index\.(js|mjs|d\.ts|d\.mts)|bin\/libvemora\.js)$/,
  /^electron\/libvemora-addon\/(?!platform\/fake\/).+\.(cc|h|mm)$/];
const NEEDED = ['LICENSE', 'README.md', 'CMakeLists.txt', 'index.d.mts', 'electron/libvemora-addon/libvemora_bindings.cc'];
const LIFECYCLE = ['preinstall', 'install', 'postinstall', 'prepare', 'preprepare', 'postprepare'];
const methods = JSON.stringify(path.join(root, 'test', 'harness', 'methods.js'));
// Each prints the methods it called, and the add-on it loaded or whether import and require share the class.
const CONSUMERS = {
  'cjs.js': `const { VemoraCore } = require('libvemora');
console.log(JSON.stringify([require(${methods}).callEverything(VemoraCore), Object.keys(require.cache).find((f) => f.endsWith('.node'))]));`,
  'esm.mjs': `import { createRequire } from 'node:module'; import { VemoraCore } from 'libvemora'; import { callEverything } from ${methods};
console.log(JSON.stringify([callEverything(VemoraCore), VemoraCore === createRequire(import.meta.url)('libvemora').VemoraCore]));`,
};

// What the dynamic loader would refuse on glibc 2.28: a newer GLIBC_ version, any other library's version (GLIBCXX_,
// CXXABI_, GCC_: libstdc++ and libgcc belong inside), another library.
const GLIBC_OWN = /^(libc\.so\.6|libm\.so\.6|libpthread\.so\.0|libdl\.so\.2|ld-linux-(x86-64\.so\.2|aarch64\.so\.1))$/;
function beyondGlibc228(file) {
  const out = sh('readelf', ['-V', '-d', '--wide', file]);
  const versions = [...out.matchAll(/Name: (\S+)\s+Flags/g)].map(([, v]) => v).filter((v) => {
    const [, major, minor] = /^GLIBC_(\d+)\.(\d+)/.exec(v) ?? [];
    return !major || Number(major) * 1000 + Number(minor) > 2028;
  });
  const libraries = [...out.matchAll(/\(NEEDED\)\s+Shared library: \[(.+)\]/g)].map(([, l]) => l).filter((l) => !GLIBC_OWN.test(l));
  return [...new Set(versions)].concat(libraries);
}

function project(work, name) {
  const dir = path.join(work, name);
  fs.mkdirSync(dir);
  fs.writeFileSync(path.join(dir, 'package.json'), `{ "name": "${name}", "version": "1.0.0", "private": true }\n`);
  for (const [file, text] of Object.entries(CONSUMERS)) fs.writeFileSync(path.join(dir, file), text);
  return dir;
}

test('packed, installed with no compiler on the PATH, loaded from the prebuilt package, built from source without it', {
  skip: process.platform !== 'linux' && 'packed and installed on Linux',
}, (t) => {
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-package-'));
  t.after(() => fs.rmSync(work, { recursive: true, force: true }));
  const dir = process.env.VEMORA_PACKAGES || path.join(work, 'packages');
  if (!process.env.VEMORA_PACKAGES) sh('bash', [path.join(root, 'scripts', 'pack.sh'), dir], root);
  const tarball = (name) => path.join(dir, `${name.replace('@', '').replace('/', '-')}-${version}.tgz`);
  const read = (file) => [sh('tar', ['-tzf', file], dir).trim().split('\n').map((e) => e.replace(/^package\//, '')),
    JSON.parse(sh('tar', ['-xzOf', file, 'package/package.json'], dir))];

  const [entries, manifest] = read(tarball('libvemora'));
  assert.deepEqual([entries.filter((e) => !MAIN.some((re) => re.test(e))), NEEDED.filter((e) => !entries.includes(e))], [[], []],
    'libvemora ships what it should not, or lacks what it needs');
  assert.deepEqual([LIFECYCLE.filter((s) => s in manifest.scripts), manifest.dependencies ?? {}], [[], {}],
    'an install script or a runtime dependency');
  assert.deepEqual(Object.values(manifest.optionalDependencies), Object.keys(manifest.optionalDependencies).map(() => version));
  for (const name of Object.keys(optionalDependencies).filter((n) => fs.existsSync(tarball(n)))) {
    const [files, platform] = read(tarball(name));
    const [system, cpu] = name.split('/')[1].split('-');
    assert.deepEqual([files.sort(), platform.name, platform.version, platform.os, platform.cpu, platform.libc, platform.main],
      [['LICENSE', 'README.md', 'libvemora_bindings.node', 'package.json'], name, version, [system], [cpu],
        system === 'linux' ? ['glibc'] : undefined, 'libvemora_bindings.node'], name);
    if (system !== 'linux') continue;
    sh('tar', ['-xzf', tarball(name), '-C', work, 'package/libvemora_bindings.node'], dir);
    assert.deepEqual(beyondGlibc228(path.join(work, 'package', 'libvemora_bindings.node')), [], `${name} on glibc 2.28`);
  }
  if (!fs.existsSync(tarball(`libvemora-${target}`))) return t.skip(`no prebuilt package for ${target}`);

  // A PATH with node and npm and nothing else: no compiler, no cmake, no make.
  const bin = path.join(work, 'bin');
  fs.mkdirSync(bin);
  for (const tool of ['node', 'npm']) fs.symlinkSync(sh('bash', ['-c', `command -v ${tool}`], work).trim(), path.join(bin, tool));
  const bare = { env: { ...env, PATH: bin } };

  const consumer = project(work, 'consumer');
  const install = run('npm', ['install', '--prefer-offline', '--no-audit', '--no-fund', '--foreground-scripts',
    tarball('libvemora'), tarball(`libvemora-${target}`)], consumer, bare);
  assert.equal(install.status, 0, install.stderr);
  assert.doesNotMatch(install.stdout + install.stderr, /script/i, 'npm ran or held back an install script');
  const node = (cwd, script, options) => JSON.parse(sh(process.execPath, [script], cwd, options));
  const [called, binary] = node(consumer, 'cjs.js', bare);
  assert.equal(binary, path.join(consumer, 'node_modules', '@libvemora', target, 'libvemora_bindings.node'));
  assert.deepEqual(node(consumer, 'esm.mjs', bare), [called, true]);
  assert.equal(JSON.parse(sh(path.join(consumer, 'node_modules', '.bin', 'libvemora'), ['--json'], consumer, bare)).physicalRAM,
    require(root).VemoraCore.getMachinePhysicalRAM());

  // Where npm installs no prebuilt package, the loader says how to build; those commands work.
  const source = project(work, 'source');
  sh('npm', ['install', '--prefer-offline', '--no-audit', '--no-fund', '--omit=optional', tarball('libvemora')], source);
  const refused = run(process.execPath, ['cjs.js'], source);
  const commands = refused.stderr.match(/^ {2}(npm|npx) .*$/gm) ?? [];
  assert.deepEqual([refused.status, commands.length], [1, 2], refused.stderr);
  for (const command of commands.map((c) => c.trim())) sh('sh', ['-c', command.startsWith('npm ') ? `${command} --prefer-offline` : command], source);
  assert.deepEqual(node(source, 'cjs.js'), [called, path.join(source, 'node_modules', 'libvemora', 'build', 'Release', 'libvemora_bindings.node')]);
});
