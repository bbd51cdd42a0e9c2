'use strict';
const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON);
process.stdout.write(JSON.stringify({
  physicalVRAM: VemoraCore.getMachinePhysicalVRAM(),
  availableVRAM: VemoraCore.getAvailableVRAM(),
}));
