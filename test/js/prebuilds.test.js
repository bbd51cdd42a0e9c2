'use strict';
// The prebuilt Linux add-ons in prebuilds/<target>/ (scripts/prebuild.sh) need no glibc symbol version above 2.28 and
// no library but glibc's own. The other runs load the Linux and Windows binaries (Node 20 and 26, qemu-user, Wine) and
// fail on a wrong format or architecture; scripts/build-darwin.sh checks each macOS one as it builds it.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { execFileSync } = require('node:child_process');
const { root } = require('../harness/addon');

const binary = (target) => path.join(root, 'prebuilds', target, 'libvemora_bindings.node');
const linux = Object.keys(require('../../package.json').optionalDependencies).map((name) => name.split('/')[1])
  .filter((target) => target.startsWith('linux-') && fs.existsSync(binary(target)));

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

test('each Linux binary loads on glibc 2.28: no newer symbol version, no library outside glibc', (t) => {
  if (!linux.length) return t.skip('no Linux binary in prebuilds/');
  assert.deepEqual(linux.map((target) => [target, beyondGlibc228(binary(target))]), linux.map((target) => [target, []]));
});
