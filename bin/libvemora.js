#!/usr/bin/env node
'use strict';
// Prints this machine's memory report: readable by default, JSON with --json.

function gib(bytes) {
  if (typeof bytes !== 'number' || bytes < 0) return 'unavailable';
  return `${(bytes / 2 ** 30).toFixed(2)} GiB`;
}

function collect(VemoraCore) {
  const physical = VemoraCore.getMachinePhysicalRAM();
  const available = VemoraCore.getAvailableRAM();
  const allocations = {};
  for (const gb of [1, 8, 32, 128]) {
    allocations[`${gb} GB`] = VemoraCore.willFailToAllocate(gb * 1e9);
  }
  return {
    physicalRAM: physical,
    availableRAM: available,
    usedRAM: physical >= 0 && available >= 0 ? Math.max(physical - available, 0) : -1,
    physicalVRAM: VemoraCore.getMachinePhysicalVRAM(),
    availableVRAM: VemoraCore.getAvailableVRAM(),
    processRAM: VemoraCore.getProcessUsedRAM(process.pid),
    allocationWouldFail: allocations,
  };
}

function render(report) {
  const rows = [
    ['Physical RAM', gib(report.physicalRAM)],
    ['Available RAM', gib(report.availableRAM)],
    ['Used RAM', gib(report.usedRAM)],
    ['GPU working set (VRAM)', gib(report.physicalVRAM)],
    ['GPU-usable memory now', gib(report.availableVRAM)],
    ['This process', gib(report.processRAM)],
  ];
  for (const [size, fails] of Object.entries(report.allocationWouldFail)) {
    rows.push([`Allocating ${size}`, fails ? 'would fail' : 'fits']);
  }
  const width = Math.max(...rows.map(([label]) => label.length));
  return rows.map(([label, value]) => `${label.padEnd(width)}  ${value}`).join('\n');
}

function main(argv) {
  let VemoraCore;
  try {
    ({ VemoraCore } = require('..'));
  } catch (error) {
    process.stderr.write(`${error.message}\n`);
    return 1;
  }
  const report = collect(VemoraCore);
  process.stdout.write(argv.includes('--json') ? `${JSON.stringify(report, null, 2)}\n` : `${render(report)}\n`);
  return 0;
}

process.exitCode = main(process.argv.slice(2));
