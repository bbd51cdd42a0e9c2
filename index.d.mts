// The ES module entry re-exports the CommonJS one, so the types are the same.
export * from './index.js';
