'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const path = require('node:path');
const { runChild } = require('../harness/addon');

test('main thread and four workers at once, terminated and repeated', () => {
  const child = runChild(path.join(__dirname, '..', 'harness', 'workers-stress.js'));
  assert.equal(child.signal, null, `killed by ${child.signal}\n${child.stderr.slice(-2000)}`);
  assert.equal(child.status, 0, child.stderr.slice(-2000));
  assert.match(child.stdout, /^\d+ rounds\n$/);
});
