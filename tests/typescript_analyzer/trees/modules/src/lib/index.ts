export * from "./server";
export { helper as h, default } from "./base"; //> src.lib.base.helper src.lib.base.main
export * as base from "./base";
