'use strict';
// The prebuilt add-ons in prebuilds/<target>/ (scripts/prebuild.sh): each macOS one is a bundle of its architecture,
// and each Linux one needs no glibc symbol version above 2.28 and no library but glibc's own.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { execFileSync } = require('node:child_process');
const { root } = require('../harness/addon');

const targets = Object.keys(require('../../package.json').optionalDependencies).map((name) => name.split('/')[1]);
const binary = (target) => path.join(root, 'prebuilds', target, 'libvemora_bindings.node');
const built = targets.filter((target) => fs.existsSync(binary(target)));

// Only macOS's: the other runs load the Linux and Windows binaries (Node 20 and 26, qemu-user, Wine), and fail on
// a wrong format or architecture. macOS on Apple silicon refuses code without a signature; the linker signs ad hoc.
const MACHO = { 'darwin-x64': 'x86-64 bundle', 'darwin-arm64': 'arm64 bundle, signed' };

// From the Mach-O header: cputype, filetype, LC_CODE_SIGNATURE among the load commands.
function describe(b) {
  if (b.readUInt32LE(0) !== 0xfeedfacf) return 'not Mach-O';
  let signed = false;
  for (let i = 0, at = 32; i < b.readUInt32LE(16); i += 1, at += b.readUInt32LE(at + 4)) signed ||= b.readUInt32LE(at) === 0x1d;
  const arch = { 0x01000007: 'x86-64', 0x0100000c: 'arm64' }[b.readUInt32LE(4)] ?? b.readUInt32LE(4);
  return `${arch} ${b.readUInt32LE(12) === 8 ? 'bundle' : 'not a bundle'}${signed ? ', signed' : ''}`;
}

// What the dynamic loader would refuse on glibc 2.28: a newer GLIBC_ version, any other library's version (GLIBCXX_,
// CXXABI_, GCC_: libstdc++ and libgcc belong inside), another library.
const GLIBC_OWN = /^(libc\.so\.6|libm\.so\.6|libpthread\.so\.0|libdl\.so\.2|ld-linux-(x86-64\.so\.2|aarch64\.so\.1))$/;
function beyondGlibc228(file) {
  const out = execFileSync('readelf', ['-V', '-d', '--wide', file], { encoding: 'utf8' });
  const versions = [...out.matchAll(/Name: (\S+)\s+Flags/g)].map(([, v]) => v).filter((v) => {
    const [, major, minor] = /^GLIBC_(\d+)\.(\d+)/.exec(v) ?? [];
    return !major || Number(major) * 1000 + Number(minor) > 2028;
  });
  const libraries = [...out.matchAll(/\(NEEDED\)\s+Shared library: \[(.+)\]/g)].map(([, l]) => l).filter((l) => !GLIBC_OWN.test(l));
  return [...new Set(versions)].concat(libraries);
}

test('each macOS binary is a Mach-O bundle of its architecture, signed for Apple silicon', (t) => {
  const darwin = built.filter((target) => target in MACHO);
  if (!darwin.length) return t.skip('no macOS binary in prebuilds/');
  assert.deepEqual(darwin.map((target) => describe(fs.readFileSync(binary(target)))), darwin.map((target) => MACHO[target]));
});

test('each Linux binary loads on glibc 2.28: no newer symbol version, no library outside glibc', (t) => {
  const linux = built.filter((target) => target.startsWith('linux-'));
  if (!linux.length) return t.skip('no Linux binary in prebuilds/');
  assert.deepEqual(linux.map((target) => [target, beyondGlibc228(binary(target))]), linux.map((target) => [target, []]));
});
