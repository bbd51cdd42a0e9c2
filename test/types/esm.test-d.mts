// An ES module consumer resolves the "import" entry and sees the same class.
import { expectType } from 'tsd';
import { VemoraCore, type DeviceTypeName } from 'libvemora';

expectType<[-1, boolean, DeviceTypeName]>([VemoraCore.RAM_METER_ERROR_CODE, VemoraCore.willFailToAllocate(1024), VemoraCore.getDeviceType()]);
