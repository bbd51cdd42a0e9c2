'use strict';
// What the package's "exports" let a consumer reach, through require and
// import, resolved by the package's own name.
const test = require('node:test');
const assert = require('node:assert/strict');
const { root } = require('../harness/addon');

const pkg = require('../../package.json');

// [specifier, what require and import give: 'class', 'manifest' or an error code]
const rows = [
  ['libvemora', 'class'],
  ['libvemora/package.json', 'manifest'],
  ['libvemora/index.js', 'ERR_PACKAGE_PATH_NOT_EXPORTED'],
  ['libvemora/build/Release/libvemora_bindings.node', 'ERR_PACKAGE_PATH_NOT_EXPORTED'],
];

for (const [specifier, expected] of rows) {
  test(`${specifier}: require and import give ${expected}`, async () => {
    if (expected.startsWith('ERR_')) {
      assert.throws(() => require(specifier), { code: expected });
      await assert.rejects(import(specifier), { code: expected });
      return;
    }
    const required = require(specifier);
    const json = specifier.endsWith('.json') ? { with: { type: 'json' } } : undefined;
    const imported = await import(specifier, json);
    if (expected === 'manifest') {
      assert.equal(required.version, pkg.version);
      assert.equal(imported.default.version, pkg.version);
      return;
    }
    assert.equal(required, require(root), 'the name resolves to the package root');
    assert.deepEqual(Object.keys(imported), ['VemoraCore']);
    // One add-on, one class: ESM re-exports the CommonJS module.
    assert.equal(imported.VemoraCore, required.VemoraCore);
    assert.equal(typeof imported.VemoraCore.getAvailableRAM(), 'number');
  });
}
