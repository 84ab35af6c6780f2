// The TypeScript compiler, loaded with require: imported as an ES module,
// Node would first scan its whole source for the names it exports.
import { createRequire } from "node:module";

export default createRequire(import.meta.url)("typescript");
