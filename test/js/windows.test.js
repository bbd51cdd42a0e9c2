'use strict';
// Windows (run here under Wine): the figures against what Node's own os and process report (libuv reads
// GlobalMemoryStatusEx and GetProcessMemoryInfo too), diagnostics that name the Windows call, GPU answers that
// agree with each other, and the add-on in an executable with another name.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn, spawnSync } = require('node:child_process');
const { once } = require('node:events');
const { VemoraCore: load, addonPath, runChild } = require('../harness/addon');

const skip = process.platform !== 'win32' && 'Windows only';
const MiB = 2 ** 20;
const inChild = (expression, options) =>
  runChild('-e', [`const { VemoraCore: V } = require(process.env.VEMORA_TEST_ADDON); process.stdout.write(JSON.stringify(${expression}))`], options);

test('RAM is what os reports', { skip }, () => {
  const VemoraCore = load();
  assert.equal(VemoraCore.getMachinePhysicalRAM(), os.totalmem());
  const [before, available, after] = [os.freemem(), VemoraCore.getAvailableRAM(), os.freemem()];
  assert.ok(Math.abs(available - (before + after) / 2) < 64 * MiB + Math.abs(before - after), `${available} vs ${before}`);
});

// The larger of the working set (rss) and the private bytes, of the process asked about.
test('another process: 256 MiB it touched; a PID that cannot be opened names the call', { skip }, async () => {
  const child = spawn(process.execPath, ['-e', `globalThis.keep = Buffer.alloc(${256 * MiB}, 1);
    process.stdout.write(String(process.memoryUsage().rss)); process.stdin.on('data', () => process.exit());`]);
  const [rss] = await once(child.stdout, 'data');
  const used = load().getProcessUsedRAM(child.pid);
  child.stdin.write('\n');
  await once(child, 'exit');
  assert.ok(used >= 256 * MiB && used >= Number(rss) - 8 * MiB, `${used} for rss ${rss}`);
  const refused = inChild('V.getProcessUsedRAM(2 ** 31 - 1)');
  assert.deepEqual([refused.stdout, refused.stderr], ['-1', 'OpenProcess: error 87\n']);
});

test('GPUs: figures, report and survey agree; without an adapter, one line per figure', { skip }, () => {
  const child = inChild('[V.getMachinePhysicalVRAM(), V.getAvailableRAM() > 0, V.getAvailableVRAMByDevice(), V.surveyHardware().gpuSurveyResult]');
  const [vram, , report, { result, gpuInfo }] = JSON.parse(child.stdout);
  if (result.code !== 'Success') {
    // Wine without a display: DXGI makes no factory.
    assert.deepEqual([vram, report, gpuInfo], [-1, { result, deviceResults: [] }, []]);
    assert.equal(child.stderr, `GPU memory: ${result.message}\n`);
    return;
  }
  assert.equal(vram, gpuInfo.reduce((sum, gpu) => sum + gpu.dedicatedMemoryCapacityBytes, 0));
  assert.deepEqual(report.deviceResults.map((d) => [d.name, d.deviceId, d.totalVramBytes]),
    gpuInfo.map((gpu, i) => [gpu.name, i, gpu.dedicatedMemoryCapacityBytes]));
});

// The delay-load hook answers "node.exe" with the host program, whatever its name.
test('loads in an executable with another name, as in an Electron app', { skip }, (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-host-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const host = path.join(dir, 'vemora-host.exe');
  fs.copyFileSync(process.execPath, host);
  const child = spawnSync(host, ['-e', `process.stdout.write(JSON.stringify([process.execPath,
    require(${JSON.stringify(addonPath)}).VemoraCore.getMachinePhysicalRAM()]))`], { encoding: 'utf8', timeout: 60000 });
  assert.equal(child.status, 0, child.stderr);
  assert.deepEqual(JSON.parse(child.stdout), [host, os.totalmem()]);
});
