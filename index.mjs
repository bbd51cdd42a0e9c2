// ES module entry. It re-exports the CommonJS module rather than loading the
// add-on a second time, so `import` and `require` share one VemoraCore.
import cjs from './index.js';

export const { VemoraCore } = cjs;
