'use strict';
// The prebuilt add-ons in prebuilds/<target>/ (scripts/prebuild.sh): each is a binary of its target's format and
// architecture, and each Linux one needs no glibc symbol version above 2.28 and no library but glibc's own.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { execFileSync } = require('node:child_process');
const { root } = require('../harness/addon');

const targets = Object.keys(require('../../package.json').optionalDependencies).map((name) => name.split('/')[1]);
const binary = (target) => path.join(root, 'prebuilds', target, 'libvemora_bindings.node');
const built = targets.filter((target) => fs.existsSync(binary(target)));

// macOS on Apple silicon refuses code without a signature; the linker signs ad hoc.
const FORMATS = { 'linux-x64': 'ELF x86-64 shared object', 'linux-arm64': 'ELF arm64 shared object', 'darwin-x64': 'Mach-O x86-64 bundle',
  'darwin-arm64': 'Mach-O arm64 bundle, signed', 'win32-x64': 'PE x86-64 DLL' };

// From the headers: ELF (e_type, e_machine), Mach-O (cputype, filetype, LC_CODE_SIGNATURE), PE (Machine, Characteristics).
function describe(b) {
  const arch = (code) => ({ 62: 'x86-64', 183: 'arm64', 0x01000007: 'x86-64', 0x0100000c: 'arm64', 0x8664: 'x86-64' })[code] ?? code;
  if (b.readUInt32BE(0) === 0x7f454c46) return `ELF ${arch(b.readUInt16LE(18))} ${b.readUInt16LE(16) === 3 ? 'shared object' : 'not a shared object'}`;
  if (b.readUInt32LE(0) === 0xfeedfacf) {
    let signed = false;
    for (let i = 0, at = 32; i < b.readUInt32LE(16); i += 1, at += b.readUInt32LE(at + 4)) signed ||= b.readUInt32LE(at) === 0x1d;
    return `Mach-O ${arch(b.readUInt32LE(4))} ${b.readUInt32LE(12) === 8 ? 'bundle' : 'not a bundle'}${signed ? ', signed' : ''}`;
  }
  if (b.toString('latin1', 0, 2) === 'MZ') {
    const pe = b.readUInt32LE(0x3c);
    return `PE ${arch(b.readUInt16LE(pe + 4))} ${b.readUInt16LE(pe + 22) & 0x2000 ? 'DLL' : 'not a DLL'}`;
  }
  return 'unknown format';
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

test('each prebuilt binary is of its target\'s format and architecture', (t) => {
  if (!built.length) return t.skip('nothing in prebuilds/: run scripts/prebuild.sh');
  assert.deepEqual(built.map((target) => describe(fs.readFileSync(binary(target)))), built.map((target) => FORMATS[target]));
});

test('each Linux binary loads on glibc 2.28: no newer symbol version, no library outside glibc', (t) => {
  const linux = built.filter((target) => target.startsWith('linux-'));
  if (!linux.length) return t.skip('no Linux binary in prebuilds/');
  assert.deepEqual(linux.map((target) => [target, beyondGlibc228(binary(target))]), linux.map((target) => [target, []]));
});
